#include <algorithm>

#include "platform/store/OwnerAccounts.h"
#include "platform/store/Secrets.h"
#include "platform/store/StoreContext.h"
#include "veltsharing/Owners.h"

namespace VELT::sharing::owners {
namespace {

// The end of a session by now; 0 or less than now: it has ended.
std::int64_t EndOf(long long created_at, long long last_used, bool stay) {
  if (stay) return created_at + kStayingLife;
  return std::min<std::int64_t>(created_at + kWholeLife, last_used + kIdleLife);
}

}  // namespace

bool FindSession(const std::string& session, std::optional<Owner>& owner) {
  owner.reset();
  if (session.size() != kSessionIdLength) return true;
  return Run("find an owner's session", [&](db::StoreSession& store) {
    const db::OwnerSessionRow* row = store.statements().FindOwnerSession(Digest(session));
    const long long now = Now();
    if (row == nullptr || EndOf(row->created_at, row->last_used, row->stay != 0) <= now)
      return true;
    Owner found;
    found.how = Owner::How::kSession;
    found.id = row->id;
    found.account = row->account;
    found.uid = static_cast<unsigned int>(row->uid);
    found.expire_at = EndOf(row->created_at, now, row->stay != 0);  // this call is a use
    found.failures = row->failures;
    found.check_due = IsCheckDue(row->checked_at, now);
    found.use_due = row->last_used + kNoteEvery <= now;
    owner = found;
    return true;
  });
}

bool SignOut(const std::string& session) {
  return Run("sign an owner out", [&](db::StoreSession& store) {
    const std::string hash = Digest(session);
    store.sql() << "delete from owner_session where sid_hash = :hash", soci::use(hash);
    return true;
  });
}

void NoteUse(const Owner& owner) {
  Run("note an owner's call", [&](db::StoreSession& store) {
    const long long now = Now();
    const bool is_session = owner.how == Owner::How::kSession;
    store.sql() << std::string("update ") + (is_session ? "owner_session" : "owner_token") +
                       " set last_used = :now where id = :id and last_used < :now2",
        soci::use(now), soci::use(owner.id), soci::use(now);
    return true;
  });
}

bool ListSessions(const std::string& account, std::vector<SessionRow>& sessions) {
  return Run("list an owner's sessions",
             [&](db::StoreSession& store) {
               SessionRow row;
               long long created_at = 0;
               long long last_used = 0;
               long long stay = 0;
               const long long now = Now();
               soci::statement statement =
                   (store.sql().prepare
                        << "select s.id, s.created_at, s.last_used, s.stay, s.address, s.browser "
                           "from owner_session s join owner_account a on a.id = s.account_id "
                           "where a.name = :name and s.credential = a.credential "
                           "order by s.last_used desc, s.id desc",
                    soci::into(row.id), soci::into(created_at), soci::into(last_used),
                    soci::into(stay), soci::into(row.address), soci::into(row.browser),
                    soci::use(account));
               statement.execute();
               while (statement.fetch()) {
                 if (EndOf(created_at, last_used, stay != 0) <= now) continue;
                 row.created_at = created_at;
                 row.last_used = last_used;
                 sessions.push_back(row);
               }
               return true;
             });
}

bool EndSession(const std::string& account, long long id) {
  return Run("end an owner's session", [&](db::StoreSession& store) {
    soci::statement statement =
        (store.sql().prepare << "delete from owner_session where id = :id and account_id in "
                                "(select id from owner_account where name = :name)",
         soci::use(id), soci::use(account));
    statement.execute(true);
    return statement.get_affected_rows() == 1;
  });
}

bool EndOtherSessions(const std::string& account, long long kept) {
  return Run("end an owner's other sessions", [&](db::StoreSession& store) {
    store.sql() << "delete from owner_session where id <> :id and account_id in "
                   "(select id from owner_account where name = :name)",
        soci::use(kept), soci::use(account);
    return true;
  });
}

}  // namespace VELT::sharing::owners
