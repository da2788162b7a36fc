// The answer to one web API request, as a module fills it.
#pragma once

#include <json/value.h>

#include <memory>
#include <string>

namespace VELT {

struct ResponseState;

// Lives for one handler call and belongs to the framework. One thread at a time.
class APIResponse {
 public:
  APIResponse();
  ~APIResponse();
  APIResponse(const APIResponse&) = delete;
  APIResponse& operator=(const APIResponse&) = delete;

  // Each replaces what an earlier call of either set.
  void SetSuccess(const Json::Value& data);
  void SetError(int code, const Json::Value& detail);

  // False: nothing of the above is sent; the module's standard output, header included, is.
  void SetEnableOutput(bool enable);

  // Adds a Set-Cookie header (RFC 6265). `lifetime` is in seconds, 0 for the browser's session; an
  // empty `domain` is this host only. HttpOnly and SameSite=Lax are always set, and Secure on
  // HTTPS, whatever the two flags say. Returns false, adding nothing, when a text holds a control
  // character, ';' or ',' or the name is empty.
  bool AddCookie(const std::string& path, const std::string& name, const std::string& value,
                 long lifetime, const std::string& domain, bool secure, bool http_only);

  // For the host: see ResponseState.h.
  ResponseState& state() { return *state_; }

 private:
  std::unique_ptr<ResponseState> state_;
};

}  // namespace VELT
