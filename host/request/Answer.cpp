#include "host/request/Answer.h"

#include <json/writer.h>

#include <array>
#include <cstring>
#include <memory>
#include <sstream>
#include <utility>
#include <vector>

namespace VELT::host {
namespace {

// Lines of every answer that has no such line of its own. Pages of other sites may not include the session
// script: they would learn about appliances that only their visitor can reach.
constexpr std::array<std::array<const char*, 2>, 3> kSafeFields = {{
    {"\nCache-Control:", " no-store"},
    {"\nX-Content-Type-Options:", " nosniff"},
    {"\nCross-Origin-Resource-Policy:", " same-site"},
}};

// JsonCpp escapes everything but ASCII here, so that invalid UTF-8 from a plugin can't make the
// answer invalid.
std::string ToText(const Json::Value& value) {
  // Making a writer costs more than writing a short answer.
  static const std::unique_ptr<Json::StreamWriter> writer = [] {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return std::unique_ptr<Json::StreamWriter>(builder.newStreamWriter());
  }();
  std::ostringstream text;
  writer->write(value, &text);
  return std::move(text).str();
}

std::string CookieHeader(const Cookie& cookie, bool secure) {
  std::string header = "Set-Cookie: " + cookie.name + "=" + cookie.value;
  if (!cookie.path.empty()) header += "; Path=" + cookie.path;
  if (!cookie.domain.empty()) header += "; Domain=" + cookie.domain;
  if (cookie.lifetime != 0) header += "; Max-Age=" + std::to_string(cookie.lifetime);
  header += "; HttpOnly; SameSite=Lax";
  if (secure || cookie.secure) header += "; Secure";
  return header + "\r\n";
}

}  // namespace

std::string HeaderLines(const ResponseState& state, bool secure, std::string_view printed) {
  std::string lines;
  for (const Cookie& cookie : state.cookies) lines += CookieHeader(cookie, secure);
  if (state.retry_after > 0) lines += "Retry-After: " + std::to_string(state.retry_after) + "\r\n";
  const std::string head = "\n" + std::string(printed.substr(0, printed.find("\r\n\r\n")));
  for (const auto& [field, value] : kSafeFields) {
    if (strcasestr(head.c_str(), field) != nullptr) continue;
    lines += field + 1 + std::string(value) + "\r\n";
  }
  return lines;
}

std::string JsonAnswer(const ResponseState& state, bool secure) {
  std::string text = std::string("Status: ") + state.status +
                     "\r\n"
                     "Content-Type: application/json; charset=\"UTF-8\"\r\n";
  text += HeaderLines(state, secure) + "\r\n";
  // The data may be a long list, so it is not copied into a JSON value that encloses it.
  if (state.outcome == ResponseState::Outcome::kSuccess) {
    return text + R"({"data":)" + ToText(state.body) + R"(,"success":true})";
  }
  return text + R"({"error":{"code":)" + std::to_string(state.error_code) + R"(,"errors":)" +
         ToText(state.body) + R"(},"success":false})";
}

std::string ErrorAnswer(ErrorCode code, const std::string& detail, const char* status,
                        std::int64_t retry_after) {
  ResponseState state;
  state.status = status;
  state.retry_after = retry_after;
  state.outcome = ResponseState::Outcome::kError;
  state.error_code = code;
  state.body = detail;
  return JsonAnswer(state, false);
}

std::string PlainAnswer(const std::string& status, const std::string& text,
                        const std::string& fields) {
  return "Status: " + status + "\r\n" + fields +
         "Content-Type: text/plain; charset=\"UTF-8\"\r\nCache-Control: no-store\r\n"
         "X-Content-Type-Options: nosniff\r\n\r\n" +
         text + "\n";
}

}  // namespace VELT::host
