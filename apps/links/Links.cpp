// VELT.Links: what the owner's page needs besides the links' own API, which other systems share.
#include <glob.h>

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "declared/VELT.Links.h"
#include "veltsharing/Condition.h"
#include "veltsharing/LinkStatus.h"
#include "veltsharing/SharingDB.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"
#include "veltwebapi/APITable.h"

namespace VELT::links {
namespace {

using Method = params::LinksFind;
using sharing::LinkStatus;
using sharing::record::Entry;

constexpr int kNoDatabase = 117;  // as in the links' API

std::optional<LinkStatus> StatusOf(const std::string& text) {
  static const std::map<std::string, LinkStatus> kStates = {{"active", LinkStatus::kActive},
                                                            {"disabled", LinkStatus::kDisabled},
                                                            {"pending", LinkStatus::kPending},
                                                            {"expired", LinkStatus::kExpired},
                                                            {"used_up", LinkStatus::kUsedUp}};
  const auto found = kStates.find(text);
  return found == kStates.end() ? std::nullopt : std::optional(found->second);
}

void Find(APIRequest* request, APIResponse* response) {
  const auto read = [request](const auto& row) { return params::Read(*request, row); };
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
  if (const auto status = StatusOf(read(Method::kStatus))) condition.InState(*status);
  condition.Limit(read(Method::kOffset), read(Method::kLimit));
  int total = 0;
  std::vector<Entry> entries;
  if (!links.Count(total) || !links.Query(entries)) {
    response->SetError(kNoDatabase, "db error");
    return;
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
