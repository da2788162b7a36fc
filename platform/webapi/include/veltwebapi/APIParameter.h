// One request parameter, read and typed for a pre-check.
#pragma once

#include <json/value.h>

#include <string>
#include <utility>

namespace VELT {

enum PARAM_NECESSITY { PARAM_REQUIRED = 0, PARAM_OPTIONAL = 1 };

// A value type for T = std::string, int, bool and Json::Value. A default-constructed object is an
// absent and valid parameter.
template <typename T>
class APIParameter {
 public:
  APIParameter() = default;
  APIParameter(bool set, bool invalid, T value)
      : set_(set), invalid_(invalid), value_(std::move(value)) {}

  // Whether the request has the parameter, of any type.
  bool IsSet() const { return set_; }
  // Whether the parameter is required but absent, has the wrong type, or was refused by the
  // validator.
  bool IsInvalid() const { return invalid_; }
  // The value that Get returns when the parameter is absent.
  void SetDefault(const T& value) {
    if (!set_) value_ = value;
  }
  // The value, or the default; meaningless when IsInvalid().
  const T& Get() const { return value_; }

 private:
  bool set_ = false;
  bool invalid_ = false;
  T value_{};
};

}  // namespace VELT
