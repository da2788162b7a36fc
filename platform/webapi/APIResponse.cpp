#include "veltwebapi/APIResponse.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "veltwebapi/ResponseState.h"

namespace VELT {
namespace {

// Excludes the characters that could end the cookie's text and begin another attribute, cookie or
// header line (RFC 6265, section 4.1.1).
bool IsCookieText(const std::string& text) {
  return std::none_of(text.begin(), text.end(), [](unsigned char c) {
    return c < 0x20 || c == 0x7F || c == ';' || c == ',';
  });
}

}  // namespace

APIResponse::APIResponse() : state_(std::make_unique<ResponseState>()) {}
APIResponse::~APIResponse() = default;

void APIResponse::SetSuccess(const Json::Value& data) {
  state_->outcome = ResponseState::Outcome::kSuccess;
  state_->error_code = 0;
  state_->body = data;
}

void APIResponse::SetError(int code, const Json::Value& detail) {
  state_->outcome = ResponseState::Outcome::kError;
  state_->error_code = code;
  state_->body = detail;
}

void APIResponse::NoteEvent(const std::string& kind, const std::string& file) {
  state_->event_kind = kind;
  state_->event_file = file;
}

void APIResponse::SetRetryAfter(std::int64_t seconds) { state_->retry_after = seconds; }

void APIResponse::SetEnableOutput(bool enable) { state_->output_enabled = enable; }

bool APIResponse::Send(std::string_view bytes) { return state_->sink && state_->sink(bytes); }

void APIResponse::BreakOff() { state_->broken_off = true; }

void APIResponse::Afterwards(std::function<void()> action) {
  state_->afterwards = std::move(action);
}

bool APIResponse::AddCookie(const std::string& path, const std::string& name,
                            const std::string& value, long lifetime, const std::string& domain,
                            bool secure, bool /*http_only*/) {
  if (name.empty() || !IsCookieText(path) || !IsCookieText(name) || !IsCookieText(value) ||
      !IsCookieText(domain)) {
    return false;
  }
  state_->cookies.push_back({path, name, value, lifetime, domain, secure});
  return true;
}

}  // namespace VELT
