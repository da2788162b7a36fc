// The answer to one web API request, as a module fills it.
#pragma once

#include <json/value.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>

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

  // False: nothing of the above is sent; the module's standard output, header included, is (RFC
  // 3875, section 6.2), with the cookies that were added.
  void SetEnableOutput(bool enable);

  // Sends raw output as it is made, however much: the first call's text begins with the header.
  // Only for methods of the pool "stream". Waits while the client is slow; false means that nothing
  // more is wanted, and the handler returns. What is set or printed besides is dropped, and cookies
  // must be there before the first call. A client that takes less than 1 MiB within the request's
  // time limit is given up, and the worker with it.
  bool Send(std::string_view bytes);
  // What was sent is not the whole answer, and never will be: the client sees that.
  void BreakOff();

  // `action` is called once, on every way out of the handler but the worker's death: when the web
  // server has read the answer, and has opened what its header names, or a second later. It must
  // not throw, nor use the request.
  void OnTaken(std::function<void()> action);

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
