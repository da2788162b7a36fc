#include "platform/store/SignInBrakes.h"

#include <sodium.h>

#include <algorithm>
#include <array>

#include "platform/store/FailedLogins.h"
#include "platform/store/Secrets.h"
#include "platform/store/sql/Dialect.h"

namespace VELT::sharing::owners {
namespace {

constexpr long long kLockout = 15LL * 60;  // seconds
constexpr long long kSlowFrom = 5;         // failures
constexpr long long kLockedFrom = 10;      // failures from one source
constexpr long long kLongestPause = 60;    // seconds, for the failures from all sources
constexpr const char* kBrowserMark = "browser ";

struct Failures {
  long long count = 0;
  long long latest = 0;
};

// The failures that count of those that the condition `which` names. Their keys are :account and
// :source, in this order.
template <typename... Uses>
Failures Find(soci::session& sql, const std::string& which, const Uses&... keys) {
  Failures failures;
  soci::statement statement(sql);
  statement.exchange(soci::into(failures.count));
  statement.exchange(soci::into(failures.latest));
  (statement.exchange(soci::use(keys)), ...);
  statement.alloc();
  statement.prepare("select count(*), coalesce(max(failed_at), 0) from failed_login where " +
                    which);
  statement.define_and_bind();
  statement.execute(true);
  return failures;
}

// Each failure doubles the pause after it: 1 second after the fifth.
long long PauseAfter(long long failures) {
  if (failures < kSlowFrom) return 0;
  return 1LL << std::min(failures - kSlowFrom, 6LL);
}

std::string Signature(const std::string& key, const std::string& account,
                      const std::string& browser) {
  // The parts have fixed lengths or are digests, so that no two of them give the same text.
  return Digest(key + Digest(key + account + browser));
}

}  // namespace

std::string BrowserKey(db::StoreSession& store) {
  const std::string fresh = NewSessionId();
  store.sql() << "insert into sign_in_key (name, secret) values ('browser', :secret) "
                 "on conflict (name) do nothing",
      soci::use(fresh);
  std::string key;
  store.sql() << std::string("select secret from sign_in_key where name = 'browser'") +
                     db::DialectOf(store.sql()).row_lock,
      soci::into(key);
  return key;
}

std::int64_t SecondsToWait(soci::session& sql, const AttemptKey& key, std::int64_t now) {
  const long long since = now - kLockout;
  const auto until = [](const Failures& failures, bool locks) {
    const bool locked = locks && failures.count >= kLockedFrom;
    const long long pause = PauseAfter(failures.count);
    return failures.latest + (locked ? kLockout : std::min(pause, kLongestPause));
  };
  // The failures from one address count together, at whatever account.
  const Failures here =
      Find(sql, "address = :source and account <> '' and failed_at > :since", key.source, since);
  long long next = until(here, true);
  if (!key.known_browser) {
    const Failures everywhere =
        Find(sql, "account = :account and failed_at > :since", key.account, since);
    next = std::max(next, until(everywhere, false));
  }
  return std::max(0LL, next - static_cast<long long>(now));
}

long long CountAttempt(soci::session& sql, const AttemptKey& key, std::int64_t now) {
  const long long time = now;
  db::PruneFailures(sql, now);
  // No link has a number below zero.
  const long long attempt = -1 - static_cast<long long>(randombytes_random()) * (1LL << 30) -
                            static_cast<long long>(randombytes_uniform(1U << 30));
  sql << "insert into failed_login (link_id, account, address, failed_at) "
         "values (:attempt, :account, :source, :now)",
      soci::use(attempt), soci::use(key.account), soci::use(key.source), soci::use(time);
  const long long since = now - kLockout;
  if (Find(sql, "address = :source and account <> '' and failed_at > :since", key.source, since)
          .count >= kLockedFrom) {
    // So that none of them is forgotten before the lockout is over.
    sql << "update failed_login set failed_at = :now where address = :source and account <> ''",
        soci::use(time), soci::use(key.source);
  }
  return attempt;
}

void ForgetAttempt(soci::session& sql, long long attempt) {
  sql << "delete from failed_login where link_id = :attempt", soci::use(attempt);
}

void ForgetFailures(soci::session& sql, const AttemptKey& key) {
  sql << "delete from failed_login where account = :account and address = :source",
      soci::use(key.account), soci::use(key.source);
}

std::string KnownBrowser(const std::string& key, const std::string& account,
                         const std::string& cookie) {
  const std::size_t dot = cookie.find('.');
  if (dot == std::string::npos) return {};
  const std::string browser = cookie.substr(0, dot);
  const std::string signature = Signature(key, account, browser);
  const std::string given = cookie.substr(dot + 1);
  const bool right = given.size() == signature.size() &&
                     sodium_memcmp(given.data(), signature.data(), given.size()) == 0;
  return right ? browser : std::string();
}

std::string SignedBrowser(const std::string& key, const std::string& account, std::string browser) {
  if (browser.empty()) browser = NewSessionId();
  return browser + "." + Signature(key, account, browser);
}

std::string BrowserSource(const std::string& browser) { return kBrowserMark + Digest(browser); }

}  // namespace VELT::sharing::owners
