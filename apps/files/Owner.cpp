// An owner's methods: what may be shared, and what a link shares.
#include <optional>
#include <string>
#include <vector>

#include "apps/files/Configuration.h"
#include "apps/files/Ids.h"
#include "apps/files/Inbox.h"
#include "apps/files/Methods.h"
#include "apps/files/Names.h"
#include "apps/files/Refusal.h"
#include "apps/files/Search.h"
#include "apps/files/Share.h"
#include "apps/files/Spool.h"
#include "apps/files/Tree.h"
#include "apps/files/Visit.h"
#include "declared/VELT.Files.h"
#include "veltsharing/Entry.h"
#include "veltsharing/SharingDB.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"

namespace VELT::files {
namespace {

bool IsThere(const Root& root, const std::string& path) {
  try {
    Find(FindRoot(root), path);
    return true;
  } catch (const Refusal&) {
    return false;
  }
}

// A path that is no longer there, or that the owner can't read any more, is "missing".
Json::Value DescribeItem(const Share& share, const std::string& path) {
  Json::Value row;
  try {
    const IdsGuard owner(share.owner());
    const Found found = share.Find(path);
    row = ToJson(share.NameOf(path), found.status, ToText(path));
    row["missing"] = false;
  } catch (const Refusal&) {
    row["name"] = ToText(share.NameOf(path));
    row["path"] = ToText(path);
    row["missing"] = true;
  }
  return row;
}

Json::Value DescribeUploads(const Share& share, const std::string& link) {
  const Spool spool(share.configuration());
  const IdsGuard root = IdsGuard::Root();
  Json::Value rows(Json::arrayValue);
  for (const Unfinished& upload : ReadUnfinished(spool.folder())) {
    if (upload.link != link) continue;
    Json::Value& row = rows.append(Json::Value());
    row["upload"] = upload.id;
    row["name"] = ReadAbout(spool, link, upload.id)["name"];
    row["size"] = static_cast<Json::Int64>(upload.size);
    row["offset"] = static_cast<Json::Int64>(upload.received);
    row["time"] = static_cast<Json::Int64>(upload.changed);
  }
  return rows;
}

// The caller's own link, or any one for an administrator.
sharing::record::Entry LinkOf(const APIRequest& request, const std::string& id) {
  auto& database = *sharing::db::SharingDB::Instance();
  sharing::record::Entry entry;
  if (!database.IsGood() || !sharing::db::EntryDB(database).GetByHash(id, entry) ||
      entry.get_project_name() != kProject) {
    throw Refusal(kNoSuchLink);
  }
  if (!request.IsAdmin() && entry.get_owner_uid() != request.GetLoginUID()) {
    throw Refusal(kOthersLink);
  }
  return entry;
}

Json::Value Describe(const Share& share) {
  Json::Value data;
  data["root"] = share.root().name;
  data["title"] = share.root().title;
  data["items"] = Json::Value(Json::arrayValue);
  for (const std::string& path : share.items()) data["items"].append(DescribeItem(share, path));
  if (share.upload().allowed) data["upload"] = ToJson(share.upload());
  return data;
}

}  // namespace

Account CallerOf(const APIRequest& request) {
  auto account = FindAccount(request.GetLoginUID());
  if (!account) throw Refusal(kNoRoot);
  return *account;
}

void GetRoots(const APIRequest& request, APIResponse& response) {
  const Account caller = CallerOf(request);
  Json::Value rows(Json::arrayValue);
  for (const Root& root : Configuration().RootsOf(caller)) {
    const IdsGuard owner(caller);
    if (!IsThere(root, "")) continue;
    Json::Value& row = rows.append(Json::Value());
    row["name"] = root.name;
    row["title"] = root.title;
  }
  Json::Value data;
  data["roots"] = rows;
  response.SetSuccess(data);
}

void ListRoot(const APIRequest& request, APIResponse& response) {
  const Account caller = CallerOf(request);
  const Root root = Configuration().RootOf(caller, Read(request, params::FilesList::kRoot));
  const auto path = ToPath(Read(request, params::FilesList::kPath));
  if (!path) throw Refusal(kNotFound);
  Listing listing;
  {
    const IdsGuard owner(caller);
    listing = ListWith<params::FilesList>(request, Find(FindRoot(root), *path));
  }
  Json::Value data;
  data["total"] = static_cast<Json::UInt64>(listing.total);
  data["entries"] = Json::Value(Json::arrayValue);
  for (const Item& item : listing.shown) {
    data["entries"].append(ToJson(item.name, item.status, ToText(Join(*path, item.name))));
  }
  response.SetSuccess(data);
}

void FindFiles(const APIRequest& request, APIResponse& response) {
  using Row = params::FilesFind;
  const std::string text = Read(request, Row::kText);
  const auto limit = static_cast<std::size_t>(Read(request, Row::kLimit));
  const Account caller = CallerOf(request);
  const Root root = Configuration().RootOf(caller, Read(request, Row::kRoot));
  Matches matches;
  {
    const IdsGuard owner(caller);
    matches = Search(FindRoot(root), text, limit);
  }
  Json::Value data;
  data["complete"] = matches.complete;
  data["entries"] = Json::Value(Json::arrayValue);
  for (const Item& item : matches.found) {
    data["entries"].append(ToJson(LastOf(item.name), item.status, ToText(item.name)));
  }
  response.SetSuccess(data);
}

void DescribeLink(const APIRequest& request, APIResponse& response) {
  const sharing::record::Entry entry =
      LinkOf(request, Read(request, params::FilesDescribe::kSharingId));
  const Share share(entry);
  Json::Value data = Describe(share);
  if (share.upload().allowed) data["unfinished"] = DescribeUploads(share, entry.get_hash());
  response.SetSuccess(data);
}

void RemoveUploads(const APIRequest& request, APIResponse& response) {
  using Row = params::FilesUploadRemove;
  const std::string id = Read(request, Row::kUpload);
  const sharing::record::Entry entry = LinkOf(request, Read(request, Row::kSharingId));
  const Share share(entry);
  const Spool spool(share.configuration());
  const IdsGuard root = IdsGuard::Root();
  if (!RemoveUnfinishedOf(spool.folder(), entry.get_hash(), id) && !id.empty()) {
    throw Refusal(kNoUpload);
  }
  response.SetSuccess("");
}

}  // namespace VELT::files
