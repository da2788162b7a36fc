// The text of an answer, as the web server expects it from a FastCGI program (RFC 3875, section 6).
#pragma once

#include <json/value.h>

#include <string>

#include "veltwebapi/ResponseState.h"

namespace VELT::host {

// The framework's own error codes.
enum FrameworkError {
  kUnexpectedFailure = 100,
  kNoSuchApi = 102,
  kNoSuchMethod = 103,
  kNoSuchVersion = 104,
  kNotAllowed = 105,
  kMalformed = 106,
};

// The answer that a handler left in `state`, which holds a success or an error. Cookies are marked
// Secure when `secure` is set.
std::string JsonAnswer(const ResponseState& state, bool secure);
// The Set-Cookie lines of an answer whose other lines the handler gives.
std::string CookieLines(const ResponseState& state, bool secure);
std::string ErrorAnswer(FrameworkError code, const std::string& detail);

// An answer that is no API's: `status` with its reason ("404 Not Found") and a line of text.
std::string PlainAnswer(const std::string& status, const std::string& text);

}  // namespace VELT::host
