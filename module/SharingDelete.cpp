#include <string>

#include "declared/VELT.Core.Sharing.h"
#include "module/SharingAPI.h"
#include "veltsharing/Entry.h"
#include "veltsharing/SharingDB.h"
#include "veltwebapi/APIRequest.h"

namespace VELT {

int SharingDelete::ParseParams() {
  sharing_id_ = Read(params::SharingDelete::kSharingId);
  return 0;
}

int SharingDelete::Execute() {
  sharing::db::SharingDB* database = sharing::db::SharingDB::Instance();
  sharing::db::EntryDB entry_db(*database);
  sharing::record::Entry entry;
  const unsigned int uid = request_->GetLoginUID();

  if (!database->IsGood()) return Fail(kErrorStore, "db open fail");
  if (!entry_db.GetByHash(sharing_id_, entry)) return Fail(kErrorSharingID);
  if (!request_->IsAdmin() && uid != entry.get_owner_uid()) {
    return Fail(kErrorOwner);
  }
  if (!entry_db.Delete(entry)) return Fail(kErrorStore, "db delete entry fail");
  return 0;
}

int SharingDelete::FormOutput() {
  result_ = "";
  return 0;
}

}  // namespace VELT
