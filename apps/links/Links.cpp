// VELT.Links: what the owner's page needs besides the links' own API, which other systems share.
#include <glob.h>

#include <algorithm>
#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "declared/VELT.Links.h"
#include "veltsharing/Condition.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/Users.h"
#include "veltsys/User.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"
#include "veltwebapi/APITable.h"

namespace VELT::links {
namespace {

using Method = params::LinksFind;
using sharing::record::Entry;

constexpr int kNoDatabase = 117;  // as in the links' API

void KeepShared(unsigned int uid, std::vector<Entry>& entries) {
  std::set<unsigned int> groups;
  VELTUSER* user = nullptr;
  if (VELTUserGetByUID(uid, &user) == 0) sharing::UserGroupsGet(user, groups);
  VELTUserFree(user);
  std::erase_if(entries, [&](const Entry& entry) {
    const auto uids = entry.get_protect_uids();
    const auto gids = entry.get_protect_gids();
    return std::ranges::find(uids, uid) == uids.end() &&
           std::ranges::none_of(gids, [&](unsigned int gid) { return groups.contains(gid); });
  });
}

void Find(APIRequest* request, APIResponse* response) {
  const auto read = [request](const auto& row) { return params::Read(*request, row); };
  const int offset = read(Method::kOffset);
  const int limit = read(Method::kLimit);
  const bool shared_only = read(Method::kShareWithMe);
  const bool everybodys = read(Method::kAllEntry) && request->IsAdmin();
  sharing::db::EntryDB links(*sharing::db::SharingDB::Instance());
  sharing::db::Condition& condition = *links.GetCondition();
  condition.Search(read(Method::kText));
  if (const std::string project = read(Method::kProjectName); !project.empty()) {
    condition.Where("project_name", project);
  }
  if (!everybodys) {
    condition.Where("owner_uid", std::to_string(request->GetLoginUID()));
  }
  condition.OrderBy(read(Method::kSortBy), read(Method::kSortDirection) == "ASC");
  if (!shared_only) condition.Limit(offset, limit);
  int total = 0;
  std::vector<Entry> entries;
  if (!links.Count(total) || !links.Query(entries)) {
    response->SetError(kNoDatabase, "db error");
    return;
  }
  if (shared_only) {
    KeepShared(request->GetLoginUID(), entries);
    total = static_cast<int>(entries.size());
    entries.erase(entries.begin(), entries.begin() + std::min(offset, total));
    if (std::cmp_less(limit, entries.size())) entries.resize(limit);
  }
  Json::Value data;
  data["total"] = total;
  data["sharings"] = Json::Value(Json::arrayValue);
  for (const Entry& entry : entries) {
    Json::Value& link = data["sharings"].append(Json::objectValue);
    entry.ToJSON(link);
    link["url"] = request->GetSharingURL("/sharing/" + entry.get_hash());
  }
  response->SetSuccess(data);
}

void Applications(APIRequest* /*request*/, APIResponse* response) {
  constexpr std::string_view kFolder = "/usr/velt/web/pkg/";
  Json::Value data;
  data["applications"] = Json::Value(Json::arrayValue);
  glob_t scripts{};  // in the order of their names
  if (glob((std::string(kFolder) + "*/owner/part.js").c_str(), 0, nullptr, &scripts) == 0) {
    for (std::size_t index = 0; index < scripts.gl_pathc; ++index) {
      const std::string name = scripts.gl_pathv[index] + kFolder.size();
      data["applications"].append(name.substr(0, name.find('/')));
    }
  }
  globfree(&scripts);
  response->SetSuccess(data);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) const APITableEntry* GetAPITable() {
  static constexpr APITableEntry kTable[] = {
      params::Entry<Method>(Find), params::Entry<params::LinksApplications>(Applications), {}};
  return kTable;
}

extern "C" __attribute__((visibility("default"))) const APICheckTableEntry* GetAPICheckTable() {
  return params::AllMethods::kChecks;
}

}  // namespace VELT::links
