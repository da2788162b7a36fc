// VELT.Visits: on which days links were visited. The web API of the links themselves is an
// interface that other systems share, so this stands beside it.
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "apps/visits/Parameters.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/Visit.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"
#include "veltwebapi/APITable.h"

namespace VELT::visits {
namespace {

// The codes that the links' API has for these.
constexpr int kNoDatabase = 117;
constexpr int kBadParameter = 120;

bool CheckList(APIRequest* request, APIResponse* response) {
  const auto ids = request->GetAndCheckUnitArray(kLinks, PARAM_REQUIRED, nullptr);
  const char* fault = nullptr;
  if (!request->HasParam(kLinks)) {
    fault = "required";
  } else if (ids.IsInvalid() || !std::all_of(ids.Get().begin(), ids.Get().end(),
                                             [](const Json::Value& id) { return id.isString(); })) {
    fault = "type";
  } else if (ids.Get().size() > kMostLinks) {
    fault = "condition";
  }
  if (fault == nullptr) return true;
  Json::Value detail;
  detail["name"] = kLinks;
  detail["reason"] = fault;
  response->SetError(kBadParameter, detail);
  return false;
}

// A link that is gone and one of somebody else's are left out alike.
void List(APIRequest* request, APIResponse* response) {
  auto& database = *sharing::db::SharingDB::Instance();
  if (!database.IsGood()) {
    response->SetError(kNoDatabase, "db error");
    return;
  }
  Json::Value links(Json::objectValue);
  for (const Json::Value& id : request->GetParam(kLinks, Json::Value(Json::arrayValue))) {
    sharing::record::Entry entry;
    if (!sharing::db::EntryDB(database).GetByHash(id.asString(), entry)) continue;
    if (!request->IsAdmin() && entry.get_owner_uid() != request->GetLoginUID()) continue;
    std::vector<std::int64_t> days;
    if (!sharing::VisitsByDay(entry, days)) {
      response->SetError(kNoDatabase, "db error");
      return;
    }
    Json::Value& row = links[id.asString()] = Json::Value(Json::arrayValue);
    for (const std::int64_t visits : days) row.append(Json::Int64{visits});
  }
  Json::Value data;
  data["visits"] = links;
  response->SetSuccess(data);
}

}  // namespace
}  // namespace VELT::visits

extern "C" __attribute__((visibility("default"))) const VELT::APITableEntry* GetAPITable() {
  static constexpr VELT::APITableEntry kTable[] = {{"VELT.Visits", 1, "list", VELT::visits::List},
                                                   {}};
  return kTable;
}

extern "C" __attribute__((visibility("default"))) const VELT::APICheckTableEntry*
GetAPICheckTable() {
  static constexpr VELT::APICheckTableEntry kTable[] = {
      {"VELT.Visits", 1, "list", VELT::visits::CheckList, nullptr, nullptr}, {}};
  return kTable;
}
