// Small helpers of web API modules.
#pragma once

#include <json/value.h>

#include <string>

namespace VELT {

class WebAPIUtil {
 public:
  // Parses one JSON text (RFC 8259, at most 64 levels deep). Null is returned for anything else,
  // trailing text included; nothing is thrown.
  static Json::Value ParseJson(const std::string& text);
};

}  // namespace VELT
