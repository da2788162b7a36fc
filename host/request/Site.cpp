#include "host/request/Site.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <string_view>

namespace VELT::host {
namespace {

bool IsAlnum(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool IsPort(std::string_view text) {
  unsigned int port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  return error == std::errc() && end == text.data() + text.size() && port > 0 && port < 65536;
}

// Checks the text between brackets, an IPv6 address, or else the name or IPv4 address before the
// port, for its characters only.
bool IsHost(std::string_view host, bool bracketed) {
  const std::string_view marks = bracketed ? ":." : "-._";
  return !host.empty() && std::all_of(host.begin(), host.end(), [marks](char c) {
    return IsAlnum(c) || marks.find(c) != std::string_view::npos;
  });
}

}  // namespace

bool IsPlainHost(const std::string& text) {
  std::string_view rest = text;
  const bool bracketed = rest.starts_with('[');
  if (bracketed) rest.remove_prefix(1);
  const std::size_t end = rest.find(bracketed ? ']' : ':');
  if (!IsHost(rest.substr(0, end), bracketed)) return false;
  if (end == std::string_view::npos) return !bracketed;
  rest.remove_prefix(bracketed ? end + 1 : end);
  return rest.empty() || (rest.front() == ':' && IsPort(rest.substr(1)));
}

bool IsSiteURL(const std::string& text) {
  for (const std::string_view scheme : {"http://", "https://"}) {
    if (text.starts_with(scheme)) return IsPlainHost(text.substr(scheme.size()));
  }
  return false;
}

std::string BaseURL(const WebRequest& request, const std::string& external_url) {
  if (!external_url.empty()) return external_url;
  const std::string host = request.Variable("HTTP_HOST");
  if (!IsPlainHost(host)) return {};
  return (request.IsHttps() ? "https://" : "http://") + host;
}

bool IsFromOtherSite(const WebRequest& request, const std::string& base_url) {
  // "none" means that the user opened a bookmark or typed the address. "same-site" is another port
  // of this host or another host of its domain, whose pages are not ours.
  const std::string relation = request.Variable("HTTP_SEC_FETCH_SITE");
  if (!relation.empty()) return relation != "same-origin" && relation != "none";
  const std::string origin = request.Variable("HTTP_ORIGIN");
  if (origin.empty() || origin == base_url) return false;
  // In the local network the appliance is also reached under other names than the external one.
  const std::string own = (request.IsHttps() ? "https://" : "http://");
  return origin != own + request.Variable("HTTP_HOST");
}

}  // namespace VELT::host
