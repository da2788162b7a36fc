// The answer to one web API request, as a module fills it.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace VELT {

struct ResponseState;

// Lives for one handler call and is owned by the framework. One thread at a time.
class APIResponse {
 public:
  APIResponse();
  ~APIResponse();
  APIResponse(const APIResponse&) = delete;
  APIResponse& operator=(const APIResponse&) = delete;

  // The answer's data, or its error code and detail. Each call replaces an earlier one of either.
  void SetSuccess(const Json::Value& data);
  void SetError(int code, const Json::Value& detail);

  // Says in the header Retry-After that the same request is to be sent again in so many seconds.
  void SetRetryAfter(std::int64_t seconds);

  // With false, the module's standard output is sent instead of the above: header lines and body
  // (RFC 3875, section 6.2), to which the cookies are added.
  void SetEnableOutput(bool enable);

  // Sends a piece of an answer of any length at once, only in methods of the pool "stream". The
  // first piece begins with all header lines; cookies must have been added before. Waits while the
  // client is slow. Returns false when the handler must return, because the client has left for
  // instance. Other output and what the functions above set are dropped. If the client takes less
  // than 1 MiB within the request's time limit, the worker ends, and with it the answer.
  bool Send(std::string_view bytes);
  // Says that what was sent is not the whole answer. The connection is then closed without the
  // answer's end, so that the client notices.
  void BreakOff();

  // `action` is called once some seconds after the answer, also that of a handler that threw, unless
  // the worker dies. By then the web server has opened the file that the answer's header names. It
  // must not throw or use the request. A second call replaces the action.
  void Afterwards(std::function<void()> action);

  // Has the link's owner read of the visitor's call, unless it fails: `kind` is one of LinkEvents.h,
  // `file` what it was about, which may be empty. A second call replaces both.
  void NoteEvent(const std::string& kind, const std::string& file);

  // Adds a Set-Cookie header (RFC 6265). `lifetime` is in seconds, 0 for the browser's session; an
  // empty `domain` is this host only. HttpOnly and SameSite=Lax are always set; Secure is set on
  // HTTPS or if `secure` is true. Returns false, adding nothing, when a text contains a control
  // character, ';' or ',' or the name is empty.
  bool AddCookie(const std::string& path, const std::string& name, const std::string& value,
                 long lifetime, const std::string& domain, bool secure, bool http_only);

  // For the host: see ResponseState.h.
  ResponseState& state() { return *state_; }

 private:
  std::unique_ptr<ResponseState> state_;
};

}  // namespace VELT
