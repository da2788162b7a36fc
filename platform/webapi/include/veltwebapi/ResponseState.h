// The host's half of APIResponse: what a handler left to send.
#pragma once

#include <json/value.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace VELT {

struct Cookie {
  std::string path;
  std::string name;
  std::string value;
  long lifetime = 0;  // seconds; 0: until the browser ends
  std::string domain;
  bool secure = false;
};

struct ResponseState {
  enum class Outcome { kNone, kSuccess, kError };

  Outcome outcome = Outcome::kNone;
  int error_code = 0;
  Json::Value body;  // the data of a success, the detail of an error
  bool output_enabled = true;
  std::vector<Cookie> cookies;

  // See APIResponse. `sink` is the host's, empty where a method may not stream.
  std::function<bool(std::string_view)> sink;
  bool broken_off = false;
  std::function<void()> when_taken;
};

}  // namespace VELT
