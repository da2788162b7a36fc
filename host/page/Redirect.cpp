#include "host/page/Redirect.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "veltsharing/Keys.h"
#include "veltsys/Text.h"

namespace VELT::host {
namespace {

using sharing::record::Entry;

std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return lower;
}

}  // namespace

std::optional<std::string> RedirectTarget(const Entry& entry) {
  const std::string& uri = entry.get_redirect_uri();
  const bool plain = std::none_of(uri.begin(), uri.end(), [](char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F || c == '\\';
  });
  const auto has_host_after = [&uri](std::string_view scheme) {
    return uri.size() > scheme.size() && Lower(uri.substr(0, scheme.size())) == scheme &&
           std::string_view("/?# ").find(uri[scheme.size()]) == std::string_view::npos;
  };
  const bool in_site = uri.starts_with('/') && !uri.starts_with("//");
  if (!plain || !(in_site || has_host_after("http://") || has_host_after("https://"))) {
    return std::nullopt;
  }
  std::string target = EncodePercent(uri, ":/?#[]@!$&'()*+,;=%");
  switch (entry.get_redirect_type()) {
    case Entry::RedirectType::kNone:
      return std::nullopt;
    case Entry::RedirectType::kAlways:
      break;
    case Entry::RedirectType::kUrlParam: {
      const std::size_t end = std::min(target.find('#'), target.size());
      const std::size_t query = target.find('?');
      std::string parameter = query < end ? "&" : "?";
      if (query + 1 == end || (query < end && target[end - 1] == '&')) {
        parameter.clear();
      }
      target.insert(end,
                    parameter + sharing::SZK_SHARING_ID + "=" + EncodePercent(entry.get_hash()));
      break;
    }
  }
  return target;
}

}  // namespace VELT::host
