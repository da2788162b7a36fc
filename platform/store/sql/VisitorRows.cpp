#include "sql/VisitorRows.h"

namespace VELT::sharing::db {

std::optional<SessionRow> FindSession(soci::session& sql, const std::string& sid_hash,
                                      const char* lock) {
  SessionRow row;
  sql << "select id, address, last_used from visitor_session where sid_hash = :hash" << lock,
      soci::into(row.id), soci::into(row.address), soci::into(row.last_used), soci::use(sid_hash);
  if (!sql.got_data()) return std::nullopt;
  return row;
}

bool TokenRow::Fits(const EntryRow& link, const std::string& visitor_address) const {
  return protection == link.protection && (link.enable_match_ip == 0 || address == visitor_address);
}

std::optional<TokenRow> FindToken(soci::session& sql, long long session, long long link) {
  TokenRow row;
  sql << "select address, protection from visitor_token "
         "where session_id = :session and link_id = :link",
      soci::into(row.address), soci::into(row.protection), soci::use(session), soci::use(link);
  if (!sql.got_data()) return std::nullopt;
  return row;
}

std::string RemoveDeadSessionsSql(int limit) {
  return "delete from visitor_session where id in (select id from visitor_session "
         "where last_used <= :time order by last_used limit " +
         std::to_string(limit) + ")";
}

}  // namespace VELT::sharing::db
