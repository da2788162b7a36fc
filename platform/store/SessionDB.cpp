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

// Seconds between two updates of a session's last use: most requests of a visitor write nothing.
constexpr std::int64_t kUseInterval = std::int64_t{5} * 60;

void UpdateLastUse(soci::session& sql, const SessionRow& session, std::int64_t now) {
  const long long time = now;
  try {
    sql << "update visitor_session set last_used = :now where id = :id and last_used < :now",
        soci::use(time, "now"), soci::use(session.id, "id");
  } catch (const soci::soci_error& error) {
    // A visitor may read on while the database can't be written.
    LogError("note a session's use", error);
  }
}

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
    if (session.legal_ && now - row->last_used >= kUseInterval) {
      UpdateLastUse(store.sql(), *row, now);
    }
    return true;
  });
}

}  // namespace VELT::sharing::db
