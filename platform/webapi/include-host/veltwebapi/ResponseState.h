// The host's side of APIResponse: what a handler has set.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace VELT {

struct Cookie {
  std::string path;
  std::string name;
  std::string value;
  long lifetime = 0;  // in seconds; 0: until the browser closes
  std::string domain;
  bool secure = false;
};

struct ResponseState {
  enum class Outcome { kNone, kSuccess, kError };

  Outcome outcome = Outcome::kNone;
  int error_code = 0;
  Json::Value body;               // the data of a success, the detail of an error
  const char* status = "200 OK";  // of HTTP
  bool output_enabled = true;
  std::vector<Cookie> cookies;
  std::int64_t retry_after = 0;  // seconds for the header Retry-After; 0: no such header

  // See APIResponse. The host sets `sink`; it is empty for methods that may not stream.
  std::function<bool(std::string_view)> sink;
  bool broken_off = false;
  std::function<void()> afterwards;
  std::string event_kind;  // empty: there is none
  std::string event_file;
};

}  // namespace VELT
