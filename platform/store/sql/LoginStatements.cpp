#include "sql/LoginStatements.h"

#include "sql/Statement.h"

namespace VELT::sharing::db {

LoginStatements::LoginStatements(soci::session& sql)
    : count_visit_(sql),
      remove_dead_(sql),
      remove_surplus_(sql),
      insert_session_(sql),
      insert_token_(sql) {
  count_visit_.exchange(soci::use(link_));
  Prepare(count_visit_,
          "update link set visits = visits + 1 "
          "where id = :id and (expire_times = 0 or visits < expire_times)");

  remove_dead_.exchange(soci::use(unused_since_));
  Prepare(remove_dead_,
          "delete from visitor_session where id in (select id from visitor_session "
          "where last_used <= :time order by last_used limit 100)");

  remove_surplus_.exchange(soci::use(link_));
  remove_surplus_.exchange(soci::use(address_));
  Prepare(remove_surplus_,
          "delete from visitor_session where id in (select session_id from visitor_token "
          "where link_id = :link and address = :address order by session_id desc "
          "limit 100 offset 999)");

  insert_session_.exchange(soci::use(hash_));
  insert_session_.exchange(soci::use(address_));
  insert_session_.exchange(soci::use(now_));
  insert_session_.exchange(soci::into(session_));
  Prepare(insert_session_,
          "insert into visitor_session (sid_hash, address, last_used) "
          "values (:hash, :address, :now) returning id");

  insert_token_.exchange(soci::use(session_));
  insert_token_.exchange(soci::use(link_));
  insert_token_.exchange(soci::use(address_));
  insert_token_.exchange(soci::use(protection_));
  Prepare(insert_token_,
          "insert into visitor_token (session_id, link_id, address, protection) "
          "values (:session, :link, :address, :protection) "
          "on conflict (session_id, link_id) do update "
          "set address = excluded.address, protection = excluded.protection");
}

bool LoginStatements::CountVisit(long long link) {
  link_ = link;
  count_visit_.execute(true);
  return count_visit_.get_affected_rows() == 1;
}

long long LoginStatements::InsertSession(const std::string& sid_hash, const std::string& address,
                                         long long link, long long now, long long unused_since) {
  hash_ = sid_hash;
  address_ = address;
  link_ = link;
  now_ = now;
  unused_since_ = unused_since;
  remove_dead_.execute(true);
  remove_surplus_.execute(true);
  if (!RunToEnd(insert_session_)) throw soci::soci_error("The new session got no id.");
  return session_;
}

void LoginStatements::InsertToken(long long session, const EntryRow& link,
                                  const std::string& address) {
  session_ = session;
  link_ = link.id;
  protection_ = link.protection;
  address_ = address;
  insert_token_.execute(true);
}

}  // namespace VELT::sharing::db
