// A visitor's listing and downloads.
#include <fcntl.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "apps/files/Ids.h"
#include "apps/files/Methods.h"
#include "apps/files/Names.h"
#include "apps/files/Refusal.h"
#include "apps/files/Share.h"
#include "apps/files/Spool.h"
#include "apps/files/Tree.h"
#include "apps/files/Visit.h"
#include "declared/VELT.Files.h"
#include "veltsys/Descriptor.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"

namespace VELT::files {
namespace {

// The items themselves, without those that are gone.
Json::Value ListItems(const Share& share) {
  Json::Value rows(Json::arrayValue);
  const IdsGuard owner(share.owner());
  for (std::size_t index = 0; index < share.items().size(); ++index) {
    const std::string& path = share.items()[index];
    try {
      const Found found = share.Find(path);
      rows.append(ToJson(share.NameOf(path), found.status, std::to_string(index)));
    } catch (const Refusal&) {
      continue;
    }
  }
  return rows;
}

// A browser must not run anything in the file with this site's rights, nor guess another type.
std::string SafetyHeaders(const MediaType& media) {
  std::string lines =
      std::string("Content-Type: ") + media.type + "\r\nReferrer-Policy: no-referrer\r\n";
  // Browsers show no PDF file in a sandbox of this kind; their viewers are sandboxes themselves.
  const bool is_pdf = std::string_view(media.kind) == "pdf";
  lines += is_pdf ? "Content-Security-Policy: frame-ancestors 'self'\r\n"
                  : "Content-Security-Policy: default-src 'none'; sandbox\r\n";
  return lines;
}

}  // namespace

void ListShare(const APIRequest& request, APIResponse& response) {
  const Share share(Admit(request, response, false));
  const std::string visitors = Read(request, params::FilesLinkList::kPath);
  Json::Value data;
  data["upload"] = share.upload().allowed ? ToJson(share.upload()) : Json::Value();
  data["entries"] = Json::Value(Json::arrayValue);
  data["total"] = 0;
  if (share.upload().only && visitors.empty()) return response.SetSuccess(data);
  MustShow(share);
  if (visitors.empty()) {
    data["entries"] = ListItems(share);
    data["total"] = data["entries"].size();
    return response.SetSuccess(data);
  }
  const std::string path = share.PathOf(visitors);
  Listing listing;
  {
    const IdsGuard owner(share.owner());
    listing = ListWith<params::FilesLinkList>(request, share.Find(path));
  }
  data["total"] = static_cast<Json::UInt64>(listing.total);
  for (const Item& item : listing.shown) {
    data["entries"].append(ToJson(item.name, item.status, visitors + "/" + ToText(item.name)));
  }
  response.SetSuccess(data);
}

void GetFile(const APIRequest& request, APIResponse& response) {
  const Share share(Admit(request, response, true));
  MustShow(share);
  const std::string path = share.PathOf(Read(request, params::FilesLinkGet::kPath));
  Descriptor file;
  {
    const IdsGuard owner(share.owner());
    const Found found = share.Find(path);
    if (found.IsFolder()) throw Refusal(kWrongKind);
    file = Open(found, O_RDONLY | O_NONBLOCK);
  }
  const std::string handed = Spool(share.configuration()).HandOver(file, response);
  const std::string name = share.NameOf(path);
  const MediaType media = MediaTypeOf(name);
  const bool shown = Read(request, params::FilesLinkGet::kShow) && media.kind[0] != '\0';
  const std::string header =
      handed + SafetyHeaders(media) + ContentDisposition(!shown, name) + "\r\n";
  response.SetEnableOutput(false);
  std::fwrite(header.data(), 1, header.size(), stdout);
}

}  // namespace VELT::files
