// Any text as an owner's parameters: a pre-check refuses in its one form, a handler answers with a known code for any
// input, and what a pre-check accepts reaches the store, which can't be used here.
#include "host/request/RequestReader.h"
#include "module/SharingAPI.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/support/SyslogCapture.h"
#include "veltsharing/StoreOptions.h"
#include "veltsharing/View.h"
#include "veltwebapi/APITable.h"
#include "veltwebapi/RequestContext.h"
#include "veltwebapi/ResponseState.h"

extern "C" const VELT::APITableEntry* GetAPITable();
extern "C" const VELT::APICheckTableEntry* GetAPICheckTable();

namespace VELT {
namespace {

using sharing::record::Entry;

bool ReadContext(const std::string& text, RequestContext& context) {
  host::WebRequest request;
  request.body = text;
  request.body_complete = true;
  request.variables["CONTENT_TYPE"] =
      text.starts_with('{') ? "application/json" : "application/x-www-form-urlencoded";
  return host::ReadParameters(request, context.parameters).empty();
}

void RequireRefusal(const ResponseState& state) {
  Require(state.outcome == ResponseState::Outcome::kError && state.error_code == kErrorCheck,
          "it is a 120");
  Require(state.body.isObject() && state.body.size() == 2 && state.body["name"].isString(),
          "a 120 has name and reason");
  const std::string reason = state.body["reason"].asString();
  Require(reason == "required" || reason == "type" || reason == "condition", "a reason is known");
}

// A time that is taken is shown as one that would be taken again, and means the same.
void TryTime(const RequestContext& context) {
  const APIRequest request(std::make_unique<RequestContext>(context));
  const Json::Value text = request.GetParam("expire_at", "");
  if (!text.isString()) return;
  Json::Value shown[2];
  shown[0]["expire_at"] = text;
  for (Json::Value& json : shown) {
    Entry entry;
    entry.set_expire_at_str(shown[0]["expire_at"].asString(), "%Y-%m-%d %H:%M:%S");
    entry.ToJSON(json);
  }
  Require(shown[0]["expire_at"] == shown[1]["expire_at"], "a time is shown as it is given");
}

}  // namespace

void Try(const std::string& text) {
  static const bool configured = (sharing::ConfigureStore({"sqlite3 /nonexistent", {}}), true);
  RequestContext context;
  context.view.of = sharing::View::Of::kOwner;
  const sharing::Viewing viewing(context.view);
  if (!configured || !ReadContext(text, context)) return;
  TryTime(context);
  for (const auto* check = GetAPICheckTable(); check->api != nullptr; ++check) {
    const APIRequest request(std::make_unique<RequestContext>(context));
    APIResponse response;
    const bool passed = check->check(const_cast<APIRequest*>(&request), &response);
    const ResponseState& state = response.state();
    if (!passed) RequireRefusal(state);
    if (check->api != std::string("VELT.Core.Sharing") || check->method == std::string("logout"))
      continue;
    const auto* row = GetAPITable();
    while (row->api != std::string(check->api) || row->method != std::string(check->method)) ++row;
    row->handler(const_cast<APIRequest*>(&request), &response);
    Require(state.outcome == ResponseState::Outcome::kError, "a handler answers");
    Require(state.error_code == kErrorStore || (state.error_code == kErrorParam && !passed),
            "a code is known");
    Require(state.body.isString(), "an error has a text");
  }
  Log().clear();
}

}  // namespace VELT
