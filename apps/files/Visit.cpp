#include "apps/files/Visit.h"

#include <string>

#include "apps/files/Refusal.h"
#include "veltsharing/Keys.h"
#include "veltsharing/LinkStatus.h"
#include "veltsharing/Login.h"
#include "veltsharing/Visit.h"

namespace VELT::files {
namespace {

using sharing::LinkStatus;
using sharing::LoginResult;
using sharing::record::Entry;

Code CodeOf(LoginResult result) {
  switch (result) {
    case LoginResult::kNotServed:
      return kNoLink;
    case LoginResult::kDenied:
      return kAddressDenied;
    case LoginResult::kUsedUp:
      return kUsedUp;
    case LoginResult::kLoggedIn:
    case LoginResult::kInternal:
    case LoginResult::kWrongAccount:
    case LoginResult::kWrongPassword:
    case LoginResult::kNotListed:
      break;
  }
  return kNoVisit;
}

}  // namespace

Entry Admit(const APIRequest& request, APIResponse& response, bool log_in) {
  Entry entry = request.GetSharingEntry();
  if (!request.IsSharing() || entry.get_id() == 0 || entry.get_project_name() != kProject) {
    throw Refusal(kNoLink);
  }
  const std::string sid = request.GetSharingSID();
  if (sharing::HoldsToken(entry, sid)) return entry;
  // A link that is off or outside its times is refused like a missing one.
  const LinkStatus status = entry.get_status();
  const bool is_open = status == LinkStatus::kActive || status == LinkStatus::kUsedUp;
  if (!is_open || entry.get_owner_user().empty()) throw Refusal(kNoLink);
  if (!log_in || entry.get_protect_type() != Entry::ProtectType::kNone) throw Refusal(kNoVisit);
  const _tag_sharing_login_params params{entry.get_hash().c_str(), "", "", "",
                                         sid.empty() ? nullptr : sid.c_str()};
  std::string fresh;
  const auto result = static_cast<LoginResult>(VeltSharingLogin(fresh, &params, false));
  if (result != LoginResult::kLoggedIn) throw Refusal(CodeOf(result));
  response.AddCookie("/", sharing::SZK_SHARING_SID, fresh, 0, "", false, false);
  return entry;
}

}  // namespace VELT::files
