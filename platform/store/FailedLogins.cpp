#include "platform/store/FailedLogins.h"

#include <algorithm>
#include <optional>

#include "platform/store/Secrets.h"
#include "veltsys/Accounts.h"
#include "veltsys/User.h"

namespace VELT::sharing::db {
namespace {

constexpr std::int64_t kWindow = std::int64_t{15} * 60;  // seconds for which a failure counts
constexpr int kFromOneSource = 10;
constexpr int kAtOneAccount = 30;
constexpr int kAtOneLink = 30;
constexpr long long kLongestPause = 60;
constexpr long long kLongestWait = 120;

// SQL that reads the time of the `n`th latest failure that counts. When that failure no longer counts,
// another login may be tried.
std::string NthLatest(const std::string& which, int n) {
  return "select failed_at from failed_login where " + which +
         " and failed_at > :since order by failed_at desc limit 1 offset " + std::to_string(n - 1);
}

}  // namespace

std::string AccountKey(const std::string& name) {
  const auto user = name.empty() ? std::nullopt : accounts::FindUser(name);
  return Digest(user ? user->name : name);
}

std::int64_t LockoutSeconds(soci::session& sql, const FailureKey& key, std::int64_t now) {
  const long long since = now - kWindow;
  long long here = 0;  // the time of the failure that locks this address out; 0: none does
  sql << NthLatest("link_id = :link and address = :source", kFromOneSource), soci::into(here),
      soci::use(key.link), soci::use(key.source), soci::use(since);
  if (!sql.got_data()) here = 0;
  long long latest = here;
  if (!key.account.empty()) {
    long long at_account = 0;
    sql << NthLatest("account = :account and address = :source", kFromOneSource),
        soci::into(at_account), soci::use(key.account), soci::use(key.source), soci::use(since);
    if (sql.got_data()) latest = std::max(latest, at_account);
    sql << NthLatest("account = :account", kAtOneAccount), soci::into(at_account),
        soci::use(key.account), soci::use(since);
    if (sql.got_data()) latest = std::max(latest, at_account);
  }
  return latest == 0 ? 0 : latest - since;
}

std::int64_t SecondsToTurn(soci::session& sql, const FailureKey& key, std::int64_t now) {
  const long long time = now;
  const long long since = now - kWindow;
  long long guesses = 0;  // no more than make a difference
  sql << "select count(*) from (select 1 from failed_login where link_id = :link and account = '' "
         "and failed_at > :since limit 100) as latest",
      soci::into(guesses), soci::use(key.link), soci::use(since);
  if (guesses < kAtOneLink) return 0;
  long long due = 0;
  // A turn is good for as long as a failure counts.
  sql << "select due_at from login_turn where link_id = :link and address = :source and due_at > "
         ":since",
      soci::into(due), soci::use(key.link), soci::use(key.source), soci::use(since);
  if (sql.got_data()) return std::max(0LL, due - time);

  long long last = time;
  sql << "select coalesce(max(due_at), 0) from login_turn where link_id = :link", soci::into(last),
      soci::use(key.link);
  const long long pause = std::min(1LL << ((guesses - kAtOneLink) / 5), kLongestPause);
  due = std::min(std::max(last, time) + pause, time + kLongestWait);
  sql << "delete from login_turn where link_id = :link and due_at <= :since", soci::use(key.link),
      soci::use(since);
  sql << "insert into login_turn (link_id, address, due_at) values (:link, :source, :due)",
      soci::use(key.link), soci::use(key.source), soci::use(due);
  return due - time;
}

void CountFailure(soci::session& sql, const FailureKey& key, std::int64_t now) {
  const long long time = now;
  PruneFailures(sql, now);
  sql << "insert into failed_login (link_id, account, address, failed_at) "
         "values (:link, :account, :source, :now)",
      soci::use(key.link), soci::use(key.account), soci::use(key.source), soci::use(time);
  sql << "delete from login_turn where link_id = :link and address = :source", soci::use(key.link),
      soci::use(key.source);
}

void ClearFailures(soci::session& sql, const FailureKey& key) {
  if (key.account.empty()) {
    sql << "delete from failed_login "
           "where link_id = :link and address = :source and account = ''",
        soci::use(key.link), soci::use(key.source);
    return;
  }
  sql << "delete from failed_login where account = :account and address = :source",
      soci::use(key.account), soci::use(key.source);
}

void PruneTurns(soci::session& sql, std::int64_t now) {
  const long long over = now - kWindow;
  sql << "delete from login_turn where due_at <= :time", soci::use(over);
}

void PruneFailures(soci::session& sql, std::int64_t now) {
  const long long over = now - kWindow;
  sql << "delete from failed_login where failed_at <= :time", soci::use(over);
}

}  // namespace VELT::sharing::db
