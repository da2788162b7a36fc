#include <string>

#include "declared/VELT.Core.Sharing.h"
#include "module/SharingAPI.h"
#include "veltsharing/SharingDB.h"
#include "veltwebapi/APIRequest.h"

namespace VELT {
namespace {

constexpr unsigned int kEveryOwner = 0xFFFFFFFF;

}  // namespace

int SharingTriggerGC::ParseParams() {
  project_name_ = Read(params::SharingTriggerGc::kProjectName);
  all_entry_ = Read(params::SharingTriggerGc::kAllEntry);
  return 0;
}

int SharingTriggerGC::Execute() {
  sharing::db::SharingDB* database = sharing::db::SharingDB::Instance();
  sharing::db::EntryDB entry_db(*database);

  if (!database->IsGood()) return Fail(kErrorStore, "db open fail");
  const unsigned int owner =
      request_->IsAdmin() && all_entry_ ? kEveryOwner : request_->GetLoginUID();
  if (!entry_db.PurgeExpiredByOwnerProject(owner, project_name_)) {
    return Fail(kErrorStore, "gc error");
  }
  return 0;
}

int SharingTriggerGC::FormOutput() {
  result_ = "";
  return 0;
}

}  // namespace VELT
