// Conditions and ranges of a request for a file (RFC 9110, sections 13 and 14). The web server sends the
// file and its parts, but not every server evaluates all of these, and a visit is counted before.
#pragma once

#include <sys/stat.h>

#include <ctime>
#include <string>

#include "veltwebapi/APIRequest.h"

namespace VELT::files {

struct Verdict {
  int status;          // 200: the web server goes on, also with ranges; or 206, 304, 412, 416
  std::string part;    // with 206 "FIRST-LAST", for a range that web servers can't read
  bool begins = true;  // with 200 or 206: the part that is asked for begins where the file does
};

// `tag` is the file's ETag, `status` what fstat(2) says of it.
Verdict Judge(const APIRequest& request, const std::string& tag, const struct stat& status);

// The time as a header field has it.
std::string HttpDate(std::time_t time);

}  // namespace VELT::files
