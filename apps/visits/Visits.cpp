// VELT.Visits: when links were visited, and what visitors did. The web API of the links themselves is an
// interface that other systems share, so this stands beside it.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "apps/visits/Notify.h"
#include "declared/VELT.Visits.h"
#include "veltsharing/LinkEvents.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/Visit.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"
#include "veltwebapi/APITable.h"
#include "veltwebapi/ErrorCodes.h"

namespace VELT::visits {
namespace {

using Method = params::VisitsList;

// The link that a call names, if the caller may know what visitors do with it.
bool FindLink(const APIRequest& request, const std::string& id, sharing::record::Entry& entry) {
  return sharing::db::EntryDB(*sharing::db::SharingDB::Instance()).GetByHash(id, entry) &&
         (request.IsAdmin() || entry.get_owner_uid() == request.GetLoginUID());
}

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
    if (!FindLink(*request, id.asString(), entry)) continue;
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

// Reads what the call asks for. False after setting the answer that refuses it.
template <typename Row>
bool ReadEvents(const APIRequest& request, APIResponse& response, sharing::LinkEventFilter filter,
                std::vector<sharing::LinkEvent>& events, int& total) {
  filter.kind = params::Read(request, Row::kKind);
  filter.since = params::Read(request, Row::kSince);
  sharing::record::Entry entry;
  if (!sharing::db::SharingDB::Instance()->IsGood()) {
    response.SetError(kErrorStore, "db error");
    return false;
  }
  if (!FindLink(request, params::Read(request, Row::kSharingId), entry)) {
    response.SetError(kErrorSharingID, "no such link");
    return false;
  }
  if (sharing::ListLinkEvents(entry, filter, events, total)) return true;
  response.SetError(kErrorStore, "db error");
  return false;
}

void EventList(APIRequest* request, APIResponse* response) {
  using Row = params::VisitsEventList;
  std::vector<sharing::LinkEvent> events;
  int total = 0;
  const sharing::LinkEventFilter page{"", 0, params::Read(*request, Row::kOffset),
                                      params::Read(*request, Row::kLimit)};
  if (!ReadEvents<Row>(*request, *response, page, events, total)) return;
  Json::Value data;
  data["total"] = total;
  data["events"] = Json::Value(Json::arrayValue);
  for (const sharing::LinkEvent& event : events) {
    Json::Value& row = data["events"].append(Json::objectValue);
    row["time"] = Json::Int64{event.time};
    row["kind"] = event.kind;
    row["file"] = event.file;
    row["result"] = event.result;
    row["address"] = event.address;
    row["browser"] = event.browser;
    row["times"] = Json::Int64{event.times};
  }
  response->SetSuccess(data);
}

// A field of RFC 4180. What a table calculator would take for a formula begins with an apostrophe.
std::string Field(std::string text) {
  if (!text.empty() && std::string_view("=+-@\t\r").find(text.front()) != std::string_view::npos) {
    text.insert(text.begin(), '\'');
  }
  for (std::size_t at = 0; (at = text.find('"', at)) != std::string::npos; at += 2)
    text.insert(at, 1, '"');
  return '"' + text + '"';
}

std::string UtcTime(std::int64_t seconds) {
  std::array<char, 32> text{};
  tm at{};
  const std::time_t time = seconds;
  if (gmtime_r(&time, &at) == nullptr) return {};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &at)};
}

void EventCsv(APIRequest* request, APIResponse* response) {
  std::vector<sharing::LinkEvent> events;
  int total = 0;
  const sharing::LinkEventFilter all{"", 0, 0, std::numeric_limits<int>::max()};
  if (!ReadEvents<params::VisitsEventCsv>(*request, *response, all, events, total)) return;
  std::string text =
      "Content-Type: text/csv; charset=UTF-8\r\nContent-Disposition: attachment; "
      "filename=\"events.csv\"\r\n\r\n"
      "time,kind,file,result,address,browser,times\r\n";
  for (const sharing::LinkEvent& event : events) {
    text += UtcTime(event.time) + "," + event.kind + "," + Field(event.file) + "," + event.result +
            "," + Field(event.address) + "," + Field(event.browser) + "," +
            std::to_string(event.times) + "\r\n";
  }
  response->SetEnableOutput(false);
  std::fwrite(text.data(), 1, text.size(), stdout);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) const APITableEntry* GetAPITable() {
  static constexpr APITableEntry kTable[] = {params::Entry<Method>(List),
                                             params::Entry<params::VisitsEventList>(EventList),
                                             params::Entry<params::VisitsEventCsv>(EventCsv),
                                             params::Entry<params::NotifyGet>(NotifyGet),
                                             params::Entry<params::NotifySet>(NotifySet),
                                             params::Entry<params::NotifyLinkSet>(NotifyLinkSet),
                                             params::Entry<params::NotifyConfirm>(NotifyConfirm),
                                             params::Entry<params::NotifySecret>(NotifySecret),
                                             params::Entry<params::NotifyTest>(NotifyTest),
                                             {}};
  return kTable;
}

extern "C" __attribute__((visibility("default"))) const APICheckTableEntry* GetAPICheckTable() {
  return params::AllMethods::kChecks;
}

}  // namespace VELT::visits
