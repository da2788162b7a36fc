// VELT.Visits: on which days links were visited. The web API of the links themselves is an
// interface that other systems share, so this stands beside it.
#include <cstdint>
#include <string>
#include <vector>

#include "declared/VELT.Visits.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/Visit.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"
#include "veltwebapi/APITable.h"
#include "veltwebapi/ErrorCodes.h"

namespace VELT::visits {
namespace {

using Method = params::VisitsList;

// A link that is gone and one of somebody else's are left out alike.
void List(APIRequest* request, APIResponse* response) {
  auto& database = *sharing::db::SharingDB::Instance();
  if (!database.IsGood()) {
    response->SetError(kErrorStore, "db error");
    return;
  }
  Json::Value links(Json::objectValue);
  for (const Json::Value& id : params::Read(*request, Method::kSharingIds)) {
    sharing::record::Entry entry;
    if (!sharing::db::EntryDB(database).GetByHash(id.asString(), entry)) continue;
    if (!request->IsAdmin() && entry.get_owner_uid() != request->GetLoginUID()) continue;
    std::vector<std::int64_t> days;
    if (!sharing::VisitsByDay(entry, days)) {
      response->SetError(kErrorStore, "db error");
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

extern "C" __attribute__((visibility("default"))) const APITableEntry* GetAPITable() {
  static constexpr APITableEntry kTable[] = {params::Entry<Method>(List), {}};
  return kTable;
}

extern "C" __attribute__((visibility("default"))) const APICheckTableEntry* GetAPICheckTable() {
  return params::AllMethods::kChecks;
}

}  // namespace VELT::visits
