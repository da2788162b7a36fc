// An attempt takes two transactions, with PAM between them: the first counts the attempt as failed, or
// refuses it; the second takes the count back, or makes the session.
#include <syslog.h>

#include <algorithm>
#include <exception>

#include "platform/store/FailedLogins.h"
#include "platform/store/LogText.h"
#include "platform/store/OwnerAccounts.h"
#include "platform/store/Pam.h"
#include "platform/store/Secrets.h"
#include "platform/store/SignInBrakes.h"
#include "platform/store/StoreContext.h"
#include "platform/store/sql/Transaction.h"
#include "veltsharing/Owners.h"
#include "veltsys/Accounts.h"
#include "veltsys/Counters.h"

namespace VELT::sharing::owners {
namespace {

using Kind = Outcome::Kind;
using Verdict = PamReply::Verdict;

constexpr int kMostSessions = 100;  // of an account; the longest unused end

// An address as the list of sessions shows it: an IPv4 address without its last part, of an IPv6
// address the network.
std::string Shortened(const std::string& address) {
  const std::string source = SourceKey(address);
  const std::size_t dot = source.find('/') == std::string::npos ? source.rfind('.') : source.npos;
  return dot == std::string::npos ? source : source.substr(0, dot) + ".*";
}

const char* WordFor(Kind kind) {
  switch (kind) {
    case Kind::kSignedIn:
      return "signed in";
    case Kind::kWrong:
      return "wrong account or password";
    case Kind::kQuestion:
      return "asked for more";
    case Kind::kBraked:
      return "too many have failed";
    case Kind::kFailed:
      return "not possible";
  }
  return "";
}

class SignInAttempt {
 public:
  explicit SignInAttempt(const Attempt& attempt)
      : attempt_(attempt),
        user_(accounts::FindUser(attempt.account)),
        key_{db::AccountKey(attempt.account), SourceKey(attempt.address)} {}

  Outcome Run() {
    if (!Transact("count an attempt to sign in", [this](auto& store) { Begin(store); })) {
      return {};
    }
    if (outcome_.wait > 0) {
      outcome_.kind = Kind::kBraked;
      Count(Event::kLoginLockedOut);
      return outcome_;
    }
    reply_ =
        AskPam({PamRequest::Kind::kOwner, attempt_.account, attempt_.answers, attempt_.address},
               LoginTimeout());
    const bool ended = Transact("end an attempt to sign in", [this](auto& store) { End(store); });
    return ended ? outcome_ : Outcome{};
  }

  // The account's name, unless nobody has it: then it may be a password in the wrong field.
  std::string LoggableName() const { return user_ ? user_->name : "unknown"; }

 private:
  template <typename Work>
  bool Transact(const char* task, Work work) {
    return owners::Run(task, [&](db::StoreSession& store) {
      db::Transaction transaction(store);
      browser_key_ = BrowserKey(store);
      now_ = Now();
      work(store);
      transaction.Commit();
      return true;
    });
  }

  void Begin(db::StoreSession& store) {
    browser_ = KnownBrowser(browser_key_, key_.account, attempt_.known_browser);
    if (!browser_.empty()) {
      key_.known_browser = true;
      key_.source = BrowserSource(browser_);
    }
    outcome_.wait = SecondsToWait(store.sql(), key_, now_);
    if (outcome_.wait == 0) number_ = CountAttempt(store.sql(), key_, now_);
  }

  void End(db::StoreSession& store) {
    switch (reply_.verdict) {
      case Verdict::kRight:
        return Admit(store);
      case Verdict::kWrong: {
        outcome_.kind = Kind::kWrong;
        const std::string& name = user_ ? user_->name : attempt_.account;
        // Those of names without an account have a row too, or they would be answered sooner.
        store.sql() << "insert into owner_account (name, uid, credential, checked_at, failures) "
                       "values ((select coalesce(max(name), '') from owner_account where name = "
                       ":name), -1, '', 0, 1) on conflict (name) do update set "
                       "failures = owner_account.failures + 1",
            soci::use(name);
        return;
      }
      case Verdict::kAsks:
        outcome_.kind = Kind::kQuestion;
        outcome_.question = reply_.question;
        outcome_.hidden = reply_.hidden;
        break;
      case Verdict::kFailed:
        outcome_.kind = Kind::kFailed;
        break;
    }
    ForgetAttempt(store.sql(), number_);
  }

  void Admit(db::StoreSession& store) {
    // A module of PAM may have changed the name.
    const auto user = accounts::FindUser(reply_.name);
    if (!user) {
      outcome_.kind = Kind::kWrong;
      return;
    }
    ForgetFailures(store.sql(), key_);
    outcome_.kind = Kind::kSignedIn;
    outcome_.account = user->name;
    const long long account = EnsureAccount(store, user->name, user->uid);
    NoteChecked(store, user->name, reply_.credential);
    if (!attempt_.makes_session) return;
    store.sql() << "select failures from owner_account where id = :id",
        soci::into(outcome_.failures), soci::use(account);
    store.sql() << "update owner_account set failures = 0 where id = :id", soci::use(account);
    outcome_.known_browser =
        SignedBrowser(browser_key_, db::AccountKey(attempt_.account), browser_);
    MakeSession(store, account);
  }

  void MakeSession(db::StoreSession& store, long long account) {
    const std::string old = Digest(attempt_.old_session);
    const long long idle = now_ - kIdleLife;
    const long long staying = now_ - kStayingLife;
    store.sql() << "delete from owner_session where sid_hash = :old or last_used <= :staying "
                   "or (stay = 0 and last_used <= :idle)",
        soci::use(old), soci::use(staying), soci::use(idle);
    store.sql() << "delete from owner_session where id in (select id from owner_session where "
                   "account_id = :account order by last_used desc, id desc limit 1000 offset " +
                       std::to_string(kMostSessions - 1) + ")",
        soci::use(account);
    outcome_.session = NewSessionId();
    const std::string hash = Digest(outcome_.session);
    const std::string address = Shortened(attempt_.address);
    const long long stay = attempt_.stay ? 1 : 0;
    store.sql() << "insert into owner_session (account_id, sid_hash, credential, address, browser, "
                   "stay, failures, created_at, last_used) values (:account, :hash, :credential, "
                   ":address, :browser, :stay, :failures, :now, :used)",
        soci::use(account), soci::use(hash), soci::use(reply_.credential), soci::use(address),
        soci::use(attempt_.browser), soci::use(stay), soci::use(outcome_.failures), soci::use(now_),
        soci::use(now_);
  }

  const Attempt& attempt_;
  const std::optional<VELTUSER> user_;
  AttemptKey key_;
  long long now_ = 0;
  std::string browser_key_;
  std::string browser_;  // the known one's identity
  long long number_ = 0;
  PamReply reply_;
  Outcome outcome_;
};

}  // namespace

Outcome SignIn(const Attempt& attempt) {
  Outcome outcome;
  std::string name;
  try {
    SignInAttempt running(attempt);
    name = running.LoggableName();
    outcome = running.Run();
  } catch (const std::exception&) {  // no memory
    syslog(LOG_ERR, "sharing store: unexpected failure to sign an owner in");
  }
  syslog(LOG_INFO, "owner sign-in: %s, address %s, account %s", WordFor(outcome.kind),
         Printable(attempt.address, 64).c_str(), Printable(name, 64).c_str());
  return outcome;
}

}  // namespace VELT::sharing::owners
