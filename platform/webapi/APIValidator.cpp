#include "veltwebapi/APIValidator.h"

#include <algorithm>

namespace VELT {

bool APIValidator::IsBelong(const APIParameter<std::string>& parameter,
                            const Json::Value& allowed) {
  return allowed.isArray() && std::any_of(allowed.begin(), allowed.end(),
                                          [value = Json::Value(parameter.Get())](
                                              const Json::Value& one) { return one == value; });
}

bool APIValidator::IsEqual(const APIParameter<std::string>& parameter, const char* text) {
  return text != nullptr && parameter.Get() == text;
}

bool APIValidator::IsEqual(const APIParameter<Json::Value>& parameter, const Json::Value& value) {
  return parameter.Get() == value;
}

bool APIValidator::IsGreater(const APIParameter<int>& parameter, int bound) {
  return parameter.Get() > bound;
}

}  // namespace VELT
