// What the path of a request names.
#pragma once

#include <string>

#include "host/request/WebRequest.h"

namespace VELT::host {

struct Address {
  enum class Kind { kNone, kOwner, kVisitor, kStream, kPage, kFile };

  Kind kind = Kind::kNone;
  std::string link;
  // Of kFile, what follows the link: the file's name, unless it is empty, not clean text (IsCleanText)
  // or has a slash, which it may.
  std::string rest;
};

// A request whose body is still to come names a file, or nothing.
Address AddressOf(const WebRequest& request);

}  // namespace VELT::host
