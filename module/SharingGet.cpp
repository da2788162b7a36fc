#include <string>

#include "declared/VELT.Core.Sharing.h"
#include "module/LinkAddress.h"
#include "module/SharingAPI.h"
#include "veltsharing/Entry.h"
#include "veltsharing/Session.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/Token.h"
#include "veltwebapi/APIRequest.h"

namespace VELT {

int SharingGet::ParseParams() {
  // A visitor who names no link means the one of the address that they called.
  const std::string own = request_->GetSharingID();
  sharing_id_ = Read(params::Text{params::SharingGet::kSharingId.name, own.c_str()});
  return 0;
}

int SharingGet::Execute() {
  sharing::db::SharingDB* database = sharing::db::SharingDB::Instance();
  sharing::db::EntryDB entry_db(*database);
  const unsigned int uid = request_->GetLoginUID();

  if (!database->IsGood()) return Fail(kErrorStore, "db open fail");
  if (!entry_db.GetByHash(sharing_id_, entry_)) return Fail(kErrorSharingID);
  if (request_->IsSharing()) return AdmitVisitor();
  if (!request_->IsAdmin() && uid != entry_.get_owner_uid()) {
    return Fail(kErrorOwner);
  }
  return 0;
}

int SharingGet::AdmitVisitor() {
  sharing::db::SharingDB* database = sharing::db::SharingDB::Instance();
  const sharing::db::SessionDB session_db(*database);
  const sharing::db::TokenDB token_db(*database);
  sharing::record::Session session;
  sharing::record::Token token;

  if (!session_db.GetBySessionId(request_->GetSharingSID(), session) || !session.IsLegal()) {
    return Fail(kErrorSharingSession, "invalid sharing session_id");
  }
  if (!token_db.GetBySessionEntry(session, entry_, token) || !token.IsLegal()) {
    return Fail(kErrorSharingSession, "no token");
  }
  if (token.get_entry_id() != entry_.get_id()) return Fail(kErrorSharingID, "err token");
  return 0;
}

int SharingGet::FormOutput() {
  FormEntryJSON(request_, entry_, result_);
  return 0;
}

}  // namespace VELT
