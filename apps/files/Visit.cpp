#include "Visit.h"

#include <json/value.h>

#include <string>

#include "Refusal.h"
#include "veltsharing/Keys.h"
#include "veltsharing/Login.h"
#include "veltsharing/SharingDB.h"

namespace VELT::files {
namespace {

using sharing::record::Entry;

bool HoldsToken(const Entry& entry, const std::string& sid) {
  auto& database = *sharing::db::SharingDB::Instance();
  sharing::record::Session session;
  sharing::record::Token token;
  return !sid.empty() && sharing::db::SessionDB(database).GetBySessionId(sid, session) &&
         session.IsLegal() &&
         sharing::db::TokenDB(database).GetBySessionEntry(session, entry, token) &&
         token.IsLegal() && token.get_entry_id() == entry.get_id();
}

Code CodeOf(int login_result) {
  switch (login_result) {
    case -3:
      return kNoLink;
    case -8:
      return kAddressDenied;
    case -11:
      return kUsedUp;
    default:
      return kNoVisit;
  }
}

}  // namespace

Entry Admit(const APIRequest& request, APIResponse& response, bool log_in) {
  Entry entry = request.GetSharingEntry();
  if (!request.IsSharing() || entry.get_id() == 0 || entry.get_project_name() != kProject) {
    throw Refusal(kNoLink);
  }
  const std::string sid = request.GetSharingSID();
  if (HoldsToken(entry, sid)) return entry;
  // A link that is off or not open is as good as none.
  Json::Value link;
  entry.ToJSON(link);
  const bool is_open = link["status"] == "active" || link["status"] == "used_up";
  if (!is_open || entry.get_owner_user().empty()) throw Refusal(kNoLink);
  if (!log_in || entry.get_protect_type() != Entry::ProtectType::kNone) throw Refusal(kNoVisit);
  const _tag_sharing_login_params params{entry.get_hash().c_str(), "", "", "",
                                         sid.empty() ? nullptr : sid.c_str()};
  std::string fresh;
  if (const int result = VeltSharingLogin(fresh, &params, false); result != 1) {
    throw Refusal(CodeOf(result));
  }
  response.AddCookie("/", sharing::SZK_SHARING_SID, fresh, 0, "", false, false);
  return entry;
}

}  // namespace VELT::files
