#include "apps/files/Visit.h"

#include <string>
#include <utility>

#include "apps/files/Ids.h"
#include "apps/files/Refusal.h"
#include "veltsharing/Keys.h"
#include "veltsharing/LinkStatus.h"
#include "veltsharing/Login.h"
#include "veltsharing/SharingDB.h"

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
    case LoginResult::kInternal:
      return kUnavailable;
    case LoginResult::kLoggedIn:
    case LoginResult::kWrongAccount:
    case LoginResult::kWrongPassword:
    case LoginResult::kNotListed:
      break;
  }
  return kNoVisit;
}

Guest Find(const APIRequest& request) {
  Entry entry = request.GetSharingEntry();
  if (entry.get_id() == 0 && !sharing::db::SharingDB::Instance()->IsGood()) {
    throw Refusal(kUnavailable);  // it may be there
  }
  if (!request.IsSharing() || entry.get_id() == 0 || entry.get_project_name() != kProject) {
    throw Refusal(kNoLink);
  }
  const bool needs_visit = !request.HasVisit();
  // A link that is off or outside its times is refused like a missing one.
  const LinkStatus status = entry.get_status();
  const bool is_open = status == LinkStatus::kActive || status == LinkStatus::kUsedUp;
  if (needs_visit && (!is_open || entry.get_owner_user().empty())) throw Refusal(kNoLink);
  return {std::move(entry), needs_visit};
}

bool IsProtected(const Entry& entry) {
  return entry.get_protect_type() != Entry::ProtectType::kNone;
}

// Find, for a link that lets in who has no visit yet. Protected links tell nothing before a login.
Guest FindOpen(const APIRequest& request) {
  Guest guest = Find(request);
  if (guest.needs_visit && !IsProtected(guest.entry) &&
      guest.entry.get_status() == LinkStatus::kUsedUp) {
    throw Refusal(kUsedUp);
  }
  return guest;
}

// Throws Refusal.
void LogInOnce(const Entry& entry, const APICredentials& presented) {
  const std::string link = entry.get_hash();
  const _tag_sharing_login_params params{link.c_str(), presented.password.c_str(),
                                         presented.account.c_str(), presented.password.c_str(),
                                         nullptr};
  const IdsGuard root = IdsGuard::Root();  // for passwords of the appliance's accounts
  std::string sid;
  const auto result = static_cast<LoginResult>(VeltSharingLogin(sid, &params, false));
  if (result != LoginResult::kLoggedIn) throw Refusal(CodeOf(result));
  VeltSharingLogout(link, sid);
}

}  // namespace

Entry Admit(const APIRequest& request) {
  Guest guest = Find(request);
  if (guest.needs_visit) throw Refusal(kNoVisit);
  return std::move(guest.entry);
}

Guest AdmitDownload(const APIRequest& request) {
  Guest guest = FindOpen(request);
  if (guest.needs_visit && IsProtected(guest.entry)) throw Refusal(kNoVisit);
  return guest;
}

Guest AdmitWithCredentials(const APIRequest& request) {
  Guest guest = FindOpen(request);
  if (!guest.needs_visit || !IsProtected(guest.entry)) return guest;
  if (!request.GetCredentials()) throw Refusal(kNoVisit);
  LogInOnce(guest.entry, *request.GetCredentials());
  guest.needs_visit = false;
  return guest;
}

void CountVisit(const Guest& guest) {
  if (guest.needs_visit) LogInOnce(guest.entry, {});
}

void MakeVisit(const APIRequest& request, APIResponse& response, const Guest& guest) {
  if (!guest.needs_visit || request.IsHead()) return;
  const std::string sid = request.GetSharingSID();
  const _tag_sharing_login_params params{guest.entry.get_hash().c_str(), "", "", "",
                                         sid.empty() ? nullptr : sid.c_str()};
  std::string fresh;
  const auto result = static_cast<LoginResult>(VeltSharingLogin(fresh, &params, false));
  if (result != LoginResult::kLoggedIn) throw Refusal(CodeOf(result));
  response.AddCookie("/", sharing::SZK_SHARING_SID, fresh, 0, "", false, false);
}

}  // namespace VELT::files
