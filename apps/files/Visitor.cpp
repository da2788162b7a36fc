// A visitor's listing and downloads.
#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "apps/files/Conditions.h"
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

std::string StatusLines(const Verdict& verdict, const struct stat& status) {
  const std::string size = "/" + std::to_string(status.st_size) + "\r\n";
  switch (verdict.status) {
    case 206:
      return "Status: 206 Partial Content\r\nContent-Range: bytes " + verdict.part + size;
    case 304:
      return "Status: 304 Not Modified\r\n";
    case 412:
      return "Status: 412 Precondition Failed\r\n";
    case 416:
      return "Status: 416 Range Not Satisfiable\r\nContent-Range: bytes *" + size;
    default:
      return "";
  }
}

}  // namespace

void ListShare(const APIRequest& request, APIResponse& response) {
  const Share share(Admit(request));
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
  const Guest guest = AdmitDownload(request);
  const Share share(guest.entry);
  MustShow(share);
  const std::string path = share.PathOf(Read(request, params::FilesLinkGet::kPath));
  Descriptor file;
  struct stat status {};
  {
    const IdsGuard owner(share.owner());
    const Found found = share.Find(path);
    if (found.IsFolder()) throw Refusal(kWrongKind);
    file = Open(found, O_RDONLY | O_NONBLOCK);
    status = found.status;
  }
  const Spool spool(share.configuration());
  const std::string tag = spool.TagOf(status);
  const Verdict verdict = Judge(request, tag, status);
  std::string header = StatusLines(verdict, status);
  if (verdict.status < 300) {
    header += spool.HandOver(file, verdict.part, response);
    MakeVisit(request, response, guest);
  }
  const std::string name = share.NameOf(path);
  const MediaType media = MediaTypeOf(name);
  const bool shown = Read(request, params::FilesLinkGet::kShow) && media.kind[0] != '\0';
  // Of a file that is fetched in parts, as films are, the first alone counts.
  if (verdict.status < 300 && verdict.begins && !request.IsHead())
    response.NoteEvent(shown ? "preview" : "download", ToText(name));
  header += "ETag: " + tag + "\r\nLast-Modified: " + HttpDate(status.st_mtim.tv_sec) + "\r\n" +
            SafetyHeaders(media) + ContentDisposition(!shown, name) + "\r\n";
  response.SetEnableOutput(false);
  std::fwrite(header.data(), 1, header.size(), stdout);
}

}  // namespace VELT::files
