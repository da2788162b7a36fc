// Any text as a link's redirect: no browser may be sent to an address that the rules forbid.
#include <algorithm>

#include "host/page/Redirect.h"
#include "tests/fuzz/Fuzz.h"

namespace {

bool IsOneOf(const std::string& text, std::size_t at, const char* characters) {
  return at >= text.size() || std::string(characters).find(text[at]) != std::string::npos;
}

bool IsSafe(const std::string& target) {
  const bool plain = std::all_of(target.begin(), target.end(), [](char c) {
    return c > 0x20 && c < 0x7F && std::string("\\\"<>").find(c) == std::string::npos;
  });
  if (!plain) return false;
  if (target.starts_with('/')) return target.size() == 1 || !IsOneOf(target, 1, "/\\");
  std::string scheme = target.substr(0, target.find("://"));
  std::transform(scheme.begin(), scheme.end(), scheme.begin(), tolower);
  return (scheme == "http" || scheme == "https") && !IsOneOf(target, scheme.size() + 3, "/?#\\");
}

}  // namespace

void VELT::Try(const std::string& text) {
  using sharing::record::Entry;
  Entry entry;
  entry.set_redirect_uri(text);
  Require(!host::RedirectTarget(entry), "a link without a redirect leads nowhere");
  entry.set_redirect_type(Entry::RedirectType::kAlways);
  const auto plain = host::RedirectTarget(entry);
  entry.set_redirect_type(Entry::RedirectType::kUrlParam);
  const auto with_id = host::RedirectTarget(entry);
  Require(plain.has_value() == with_id.has_value(), "an address is safe or not");
  if (!plain) return;
  Require(IsSafe(*plain) && IsSafe(*with_id), "an address is safe");
  const std::size_t fragment = std::min(plain->find('#'), plain->size());
  std::string expected = plain->substr(0, fragment);
  const std::size_t query = expected.find('?');
  if (query == std::string::npos) {
    expected += "?";
  } else if (query + 1 < expected.size() && expected.back() != '&') {
    expected += "&";
  }
  Require(*with_id == expected + "sharing_id=" + plain->substr(fragment),
          "the id is one more parameter of the query");
}
