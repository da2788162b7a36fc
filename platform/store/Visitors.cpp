#include "Visitors.h"

#include "FailedLogins.h"
#include "Secrets.h"
#include "StoreContext.h"
#include "sql/Connection.h"
#include "veltsharing/SharingDB.h"
#include "veltsys/Accounts.h"

namespace VELT::sharing::db {
namespace {

constexpr std::int64_t kNoteEvery =
    std::int64_t{5} * 60;  // seconds between two notes that a session was used

void NoteUse(soci::session& sql, const SessionRow& session, std::int64_t now) {
  const long long time = now;
  try {
    sql << "update visitor_session set last_used = :now where id = :id and last_used < :now",
        soci::use(time, "now"), soci::use(session.id, "id");
  } catch (const soci::soci_error& error) {
    // A visitor may read on while the database can't be written.
    LogError("note a session's use", error);
  }
}

bool IsTokenLegal(const EntryRow& link, const TokenRow& token, std::int64_t now) {
  return token.Fits(link) && ServesVisitors(StatusAt(link.Limits(), now)) &&
         OwnerExists(link.owner_uid);
}

}  // namespace

std::optional<SessionRow> FindSession(soci::session& sql, const std::string& sid,
                                      const char* lock) {
  SessionRow row;
  const std::string hash = Digest(sid);
  sql << "select id, address, last_used from visitor_session where sid_hash = :hash" << lock,
      soci::into(row.id), soci::into(row.address), soci::into(row.last_used), soci::use(hash);
  if (!sql.got_data()) return std::nullopt;
  return row;
}

bool TokenRow::Fits(const EntryRow& link) const {
  return protection == link.protection &&
         (link.enable_match_ip == 0 || address == VisitorAddress());
}

std::optional<TokenRow> FindToken(soci::session& sql, long long session, long long link) {
  TokenRow row;
  sql << "select address, protection from visitor_token "
         "where session_id = :session and link_id = :link",
      soci::into(row.address), soci::into(row.protection), soci::use(session), soci::use(link);
  if (!sql.got_data()) return std::nullopt;
  return row;
}

bool OwnerExists(long long uid) { return accounts::FindUser(static_cast<uid_t>(uid)).has_value(); }

void PurgeVisitors(soci::session& sql, std::int64_t now) {
  const long long unused_since = now - kSessionLife;
  sql << "delete from visitor_session where id in (select id from visitor_session "
         "where last_used <= :time order by last_used limit 1000)",
      soci::use(unused_since);
  PruneFailures(sql, now);
}

SessionDB::SessionDB(BaseDB& db) : db_(db) {}

bool SessionDB::GetBySessionId(const std::string& sid, record::Session& session) const {
  session = record::Session();
  return Connection::Of(db_).Run("read a session", [&](StoreSession& store) {
    const auto row = FindSession(store.sql(), sid);
    if (!row) return false;
    const std::int64_t now = Now();
    session.id_ = row->id;
    session.legal_ = row->IsAlive(now);
    if (session.legal_ && now - row->last_used >= kNoteEvery) NoteUse(store.sql(), *row, now);
    return true;
  });
}

TokenDB::TokenDB(BaseDB& db) : db_(db) {}

bool TokenDB::GetBySessionEntry(const record::Session& session, const record::Entry& entry,
                                record::Token& token) const {
  token = record::Token();
  return Connection::Of(db_).Run("read a token", [&](StoreSession& store) {
    const auto held = FindToken(store.sql(), session.id_, entry.get_id());
    const auto link = EntryRow::FindById(store.sql(), entry.get_id());
    if (!held || !link) return false;
    token.entry_id_ = link->id;
    token.legal_ = session.legal_ && IsTokenLegal(*link, *held, Now());
    return true;
  });
}

bool TokenDB::PurgeByEntry(const record::Entry& entry) {
  return Connection::Of(db_).Run("remove a link's tokens", [&](StoreSession& store) {
    const long long id = entry.get_id();
    store.sql() << "delete from visitor_token where link_id = :id", soci::use(id);
    return true;
  });
}

}  // namespace VELT::sharing::db
