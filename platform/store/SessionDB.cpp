#include <cstdint>
#include <optional>
#include <string>

#include "platform/store/Secrets.h"
#include "platform/store/StoreContext.h"
#include "platform/store/sql/Connection.h"
#include "platform/store/sql/StoreSession.h"
#include "platform/store/sql/VisitorRows.h"
#include "veltsharing/Session.h"
#include "veltsharing/SharingDB.h"

namespace VELT::sharing::db {
namespace {

// Seconds between two notes of a session's use: most requests of a visitor write nothing.
constexpr std::int64_t kUseInterval = std::int64_t{5} * 60;

}  // namespace

SessionDB::SessionDB(BaseDB& db) : db_(db) {}

bool SessionDB::GetBySessionId(const std::string& sid, record::Session& session) const {
  session = record::Session();
  return Connection::Of(db_).Run("read a session", [&](StoreSession& store) {
    const SessionRow* row = store.statements().FindSession(Digest(sid));
    if (row == nullptr) return false;
    const std::int64_t now = Now();
    session.id_ = row->id;
    session.legal_ = row->IsAlive(now);
    session.use_due_ = session.legal_ && now - row->last_used >= kUseInterval;
    return true;
  });
}

}  // namespace VELT::sharing::db

void VELT::sharing::NoteUse(const std::string& sid) {
  const long long now = Now();
  const std::string hash = Digest(sid);
  db::Connection::Of(*db::SharingDB::Instance()).Run("note a session's use", [&](auto& store) {
    store.sql() << "update visitor_session set last_used = :now "
                   "where sid_hash = :hash and last_used < :now",
        soci::use(now, "now"), soci::use(hash, "hash");
    return true;
  });
}
