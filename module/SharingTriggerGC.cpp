#include "module/SharingAPI.h"
#include "veltsharing/Keys.h"
#include "veltsharing/SharingDB.h"

namespace VELT {
namespace {

constexpr unsigned int kEveryOwner = 0xFFFFFFFF;

}  // namespace

int SharingTriggerGC::ParseParams() {
  try {
    project_name_ = request_->GetParam(sharing::SZK_PROJECT_NAME, "").asString();
    all_entry_ = request_->GetParam("all_entry", false).asBool();
  } catch (const std::exception& error) {
    return Fail(kErrorParam, error.what());
  }
  return 0;
}

int SharingTriggerGC::Execute() {
  sharing::db::SharingDB* database = sharing::db::SharingDB::Instance();
  sharing::db::EntryDB entry_db(*database);

  if (!database->IsGood()) return Fail(kErrorDatabase, "db open fail");
  const unsigned int owner =
      request_->IsAdmin() && all_entry_ ? kEveryOwner : request_->GetLoginUID();
  if (!entry_db.PurgeExpiredByOwnerProject(owner, project_name_)) {
    return Fail(kErrorDatabase, "gc error");
  }
  return 0;
}

int SharingTriggerGC::FormOutput() {
  result_ = "";
  return 0;
}

}  // namespace VELT
