#include <algorithm>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "declared/VELT.Core.Sharing.h"
#include "module/LinkAddress.h"
#include "module/SharingAPI.h"
#include "veltsharing/Condition.h"
#include "veltsharing/Entry.h"
#include "veltsharing/Keys.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/Users.h"
#include "veltsys/User.h"
#include "veltwebapi/APIRequest.h"

namespace VELT {

int SharingList::ParseParams() {
  project_name_ = Read(params::SharingList::kProjectName);
  sort_by_ = Read(params::SharingList::kSortBy);
  sort_direction_ = Read(params::SharingList::kSortDirection);
  offset_ = Read(params::SharingList::kOffset);
  limit_ = Read(params::SharingList::kLimit);
  all_entry_ = Read(params::SharingList::kAllEntry);
  share_with_me_ = Read(params::SharingList::kShareWithMe);
  return 0;
}

int SharingList::Execute() {
  sharing::db::SharingDB* database = sharing::db::SharingDB::Instance();
  const sharing::db::EntryDB entry_db(*database);

  if (!database->IsGood()) return Fail(kErrorStore, "db open fail");

  sharing::db::Condition* condition = entry_db.GetCondition();
  PrepareCondition(condition);
  if (!entry_db.Count(total_)) return Fail(kErrorStore, "db conut entries fail");

  // Some stores clear the condition after a count. In one that keeps it, this changes nothing.
  PrepareCondition(condition);
  if (!share_with_me_) condition->Limit(offset_, limit_);
  if (!entry_db.Query(entries_)) return Fail(kErrorStore, "db get entries fail");

  if (share_with_me_) {
    PrepareUserInfo();
    FilterShareWithMe();
  }
  return 0;
}

void SharingList::PrepareCondition(sharing::db::Condition* condition) {
  if (!project_name_.empty()) condition->Where(sharing::SZK_PROJECT_NAME, project_name_);
  if (!sort_by_.empty()) condition->OrderBy(sort_by_, sort_direction_ == "ASC");
  if (!(request_->IsAdmin() && all_entry_)) {
    condition->Where(sharing::SZK_OWNER_UID, std::to_string(request_->GetLoginUID()));
  }
}

void SharingList::PrepareUserInfo() {
  login_uid_ = request_->GetLoginUID();
  VELTUSER* user = nullptr;
  // Without the account's record its groups are unknown, so that only its uid can match.
  if (VELTUserGetByUID(login_uid_, &user) == 0) sharing::UserGroupsGet(user, group_ids_);
  if (user != nullptr) VELTUserFree(user);
}

bool SharingList::CheckShareWithMe(const sharing::record::Entry& entry) const {
  const std::vector<unsigned int> uids = entry.get_protect_uids();
  const std::vector<unsigned int> gids = entry.get_protect_gids();
  return std::ranges::find(uids, login_uid_) != uids.end() ||
         std::ranges::any_of(gids, [this](unsigned int gid) { return group_ids_.contains(gid); });
}

void SharingList::FilterShareWithMe() {
  total_ = 0;
  std::vector<sharing::record::Entry> page;
  for (const sharing::record::Entry& entry : entries_) {
    if (!CheckShareWithMe(entry)) continue;
    if (total_ >= offset_ && (limit_ < 0 || std::cmp_less(page.size(), limit_))) {
      page.push_back(entry);
    }
    ++total_;
  }
  entries_ = std::move(page);
}

int SharingList::FormOutput() {
  result_["total"] = total_;
  result_["limit"] = limit_;
  result_["offset"] = offset_;
  FormEntriesJSON(request_, entries_, result_["sharings"]);
  return 0;
}

}  // namespace VELT
