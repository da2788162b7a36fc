#include "host/request/Address.h"

#include <string_view>
#include <utility>

#include "veltsys/Text.h"

namespace VELT::host {
namespace {

using Kind = Address::Kind;

constexpr std::string_view kLinks = "/sharing/";

// What a link's address may go on with.
constexpr std::pair<std::string_view, Kind> kDoors[] = {
    {"/webapi", Kind::kVisitor},
    {"/stream", Kind::kStream},
    {"/", Kind::kPage},  // some programs add a slash when they make an address clickable
};

Address FileAddress(const std::string& path) {
  const std::size_t slash = path.find('/');
  std::string link = path.substr(0, slash);
  if (link.empty() || !IsCleanText(link)) return {};
  return {Kind::kFile, std::move(link), slash == std::string::npos ? "" : path.substr(slash + 1)};
}

}  // namespace

Address AddressOf(const WebRequest& request) {
  // How the web server divides the path between the two depends on its configuration.
  std::string path = request.Variable("SCRIPT_NAME") + request.Variable("PATH_INFO");
  if (request.read_body) {
    return path.starts_with(kLinks) ? FileAddress(path.substr(kLinks.size())) : Address{};
  }
  if (path == "/webapi/entry.cgi") return {Kind::kOwner, {}, {}};
  if (!path.starts_with(kLinks) || !IsCleanText(path)) return {};
  path.erase(0, kLinks.size());
  Address address{Kind::kPage, {}, {}};
  for (const auto& [end, kind] : kDoors) {
    if (!path.ends_with(end)) continue;
    path.resize(path.size() - end.size());
    address.kind = kind;
    break;
  }
  if (path.empty() || path.find('/') != std::string::npos) {
    if (address.kind != Kind::kPage) return {};
    path = "-";  // no link's id: the page says so to whoever has a mangled address
  }
  address.link = std::move(path);
  return address;
}

}  // namespace VELT::host
