// Checks of parameters' values in pre-checks. An absent parameter has its default. None throws.
#pragma once

#include <json/value.h>

#include <string>

#include "veltwebapi/APIParameter.h"

namespace VELT {

class APIValidator {
 public:
  // The value is one of the strings in `allowed`, a JSON array.
  static bool IsBelong(const APIParameter<std::string>& parameter, const Json::Value& allowed);
  static bool IsEqual(const APIParameter<std::string>& parameter, const char* text);
  static bool IsEqual(const APIParameter<Json::Value>& parameter, const Json::Value& value);
  static bool IsGreater(const APIParameter<int>& parameter, int bound);
};

}  // namespace VELT
