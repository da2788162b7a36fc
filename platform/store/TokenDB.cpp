#include <optional>
#include <string>

#include "platform/store/Account.h"
#include "platform/store/LinkStatus.h"
#include "platform/store/StoreContext.h"
#include "platform/store/sql/Connection.h"
#include "platform/store/sql/Dialect.h"
#include "platform/store/sql/EntryRow.h"
#include "platform/store/sql/StoreSession.h"
#include "platform/store/sql/VisitorRows.h"
#include "veltsharing/Entry.h"
#include "veltsharing/Session.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/Token.h"

namespace VELT::sharing::db {

TokenDB::TokenDB(BaseDB& db) : db_(db) {}

bool TokenDB::GetBySessionEntry(const record::Session& session, const record::Entry& entry,
                                record::Token& token) const {
  token = record::Token();
  return Connection::Of(db_).Run("read a token", [&](StoreSession& store) {
    const TokenRow* row = store.statements().FindToken(session.id_, entry.get_id());
    const EntryRow* link = store.statements().FindLinkById(entry.get_id());
    if (row == nullptr || link == nullptr) return false;
    token.entry_id_ = link->id;
    token.legal_ = IsVisitorsView() && session.legal_ && row->Fits(*link, CurrentView().address) &&
                   ServesVisitors(StatusAt(link->Limits(), Now())) && OwnerExists(link->owner_uid);
    return true;
  });
}

bool TokenDB::PurgeByEntry(const record::Entry& entry) {
  return IsOwnersView() &&
         Connection::Of(db_).RunWithReserve("remove a link's tokens", [&](StoreSession& store) {
           const long long id = entry.get_id();
           store.sql() << "delete from visitor_token where "
                       << DialectOf(store.sql()).beside_no_such << "link_id = :id",
               soci::use(id);
           return true;
         });
}

}  // namespace VELT::sharing::db

namespace VELT::sharing {

Visit FindVisit(const std::string& link, const std::string& sid) {
  auto& database = *db::SharingDB::Instance();
  Visit visit;
  record::Session session;
  record::Token token;
  if (!db::EntryDB(database).GetByHash(link, visit.link) || sid.empty() ||
      !db::SessionDB(database).GetBySessionId(sid, session)) {
    return visit;
  }
  visit.is_legal = session.IsLegal() &&
                   db::TokenDB(database).GetBySessionEntry(session, visit.link, token) &&
                   token.IsLegal() && token.get_entry_id() == visit.link.get_id();
  visit.use_due = visit.is_legal && session.use_due_;
  return visit;
}

}  // namespace VELT::sharing
