// How a visitor gets in. All checks that need no secret are made first, within the transaction that
// would let the visitor in. Where a secret is needed, the transaction ends, the secret is checked
// (which takes long and must hold up nobody), and a second transaction makes the same checks again
// and writes down what came of it. The link's revision tells whether the secret was checked against
// the link as it is then.
#include "veltsharing/Login.h"

#include <syslog.h>

#include <algorithm>
#include <optional>

#include "Account.h"
#include "FailedLogins.h"
#include "LogText.h"
#include "Secrets.h"
#include "StoreContext.h"
#include "sql/Connection.h"
#include "sql/EntryRow.h"
#include "sql/Transaction.h"
#include "sql/VisitorRows.h"
#include "veltsharing/SharingDB.h"
#include "veltsys/Accounts.h"

namespace VELT::sharing::db {
namespace {

using ProtectType = record::Entry::ProtectType;

constexpr int kRounds = 3;  // how often a link may change under a login before that gives up

enum class Result {
  kLoggedIn = 1,
  kInternal = -1,
  kWrongAccount = -2,
  kNotServed = -3,
  kDenied = -8,
  kWrongPassword = -9,
  kNotListed = -10,
  kUsedUp = -11,
};

Connection& TheConnection() { return Connection::Of(*SharingDB::Instance()); }

class VisitorLogin {
 public:
  explicit VisitorLogin(const _tag_sharing_login_params& params)
      : hash_(params.sharing_id),
        password_(params.password),
        account_(params.mosk_username),
        account_password_(params.mosk_password),
        old_sid_(params.sid == nullptr ? "" : params.sid),
        account_key_(AccountKey(account_)),
        source_key_(SourceKey(VisitorAddress())) {}

  Result Run();
  const std::string& new_sid() const { return new_sid_; }

 private:
  // One transaction; empty when the secret must be checked before the next one.
  std::optional<Result> Round(StoreSession& store);
  Result CheckGate(StoreSession& store);
  LoginTry Try() const;
  Result CheckSecret() const;
  Result CheckListedAccount(const record::Entry& entry) const;
  Result Admit(StoreSession& store);
  void RenewSession(StoreSession& store);

  const std::string hash_;
  const std::string password_;
  const std::string account_;
  const std::string account_password_;
  const std::string old_sid_;
  const std::string account_key_;
  const std::string source_key_;
  std::string new_sid_;

  // What the present round has read.
  long long now_ = 0;
  EntryRow link_;
  std::optional<SessionRow> session_;  // the visitor's, if alive
  bool holds_token_ = false;           // a legal one for the link

  // What CheckSecret said of which revision of the link.
  std::optional<Result> verdict_;
  long long verdict_revision_ = 0;
};

Result VisitorLogin::Run() {
  for (int round = 0; round < kRounds; ++round) {
    std::optional<Result> result;
    const bool ran = TheConnection().Run("log a visitor in", [this, &result](StoreSession& store) {
      result = Round(store);
      return true;
    });
    if (!ran) return Result::kInternal;
    if (result) return *result;
    verdict_ = CheckSecret();
    verdict_revision_ = link_.revision;
  }
  return Result::kInternal;
}

std::optional<Result> VisitorLogin::Round(StoreSession& store) {
  Transaction transaction(store.sql());
  Result result = CheckGate(store);
  if (result != Result::kLoggedIn) return result;
  if (link_.protect_type != 0) {
    if (!verdict_ || verdict_revision_ != link_.revision) return std::nullopt;
    result = *verdict_;
  }
  switch (result) {
    case Result::kLoggedIn:
      result = Admit(store);
      break;
    case Result::kWrongPassword:
    case Result::kWrongAccount:
    case Result::kNotListed:  // which tells that the password was right
      CountFailure(store.sql(), Try(), now_);
      break;
    default:
      return result;
  }
  if (result != Result::kUsedUp) transaction.Commit();
  return result;
}

// Everything that can be told without a secret.
Result VisitorLogin::CheckGate(StoreSession& store) {
  now_ = Now();
  const char* lock = store.dialect().row_lock;
  const EntryRow* link = store.statements().LockLink(hash_);
  if (link == nullptr) return Result::kNotServed;
  link_ = *link;
  const LinkStatus status = StatusAt(link_.Limits(), now_);
  if (!ServesVisitors(status) || !OwnerExists(link_.owner_uid)) return Result::kNotServed;

  const bool match_ip = link_.enable_match_ip != 0;
  session_ = old_sid_.empty() ? std::nullopt : FindSession(store.sql(), Digest(old_sid_), lock);
  if (session_ && !session_->IsAlive(now_)) session_.reset();
  if (session_ && match_ip && session_->address != VisitorAddress()) return Result::kDenied;

  const auto token = session_ ? FindToken(store.sql(), session_->id, link_.id) : std::nullopt;
  holds_token_ = token && token->Fits(link_, VisitorAddress());
  if (link_.protect_type != 0 && IsShutOut(store.sql(), Try(), now_)) return Result::kDenied;
  if (status == LinkStatus::kUsedUp && !holds_token_) return Result::kUsedUp;
  return Result::kLoggedIn;
}

LoginTry VisitorLogin::Try() const {
  const bool for_accounts = link_.protect_type == static_cast<int>(ProtectType::kUser);
  return {link_.id, for_accounts ? account_key_ : std::string(), source_key_};
}

Result VisitorLogin::CheckSecret() const {
  const record::Entry entry = link_.ToEntry();
  switch (entry.get_protect_type()) {
    case ProtectType::kNone:
      return Result::kLoggedIn;
    case ProtectType::kPassword:
      return entry.IsPasswordValid(password_) ? Result::kLoggedIn : Result::kWrongPassword;
    case ProtectType::kUser:
      return CheckListedAccount(entry);
  }
  return Result::kInternal;
}

Result VisitorLogin::CheckListedAccount(const record::Entry& entry) const {
  std::string name = account_;
  switch (CheckAccount(name, account_password_, VisitorAddress(), LoginTimeout())) {
    case AccountCheck::kRight:
      break;
    case AccountCheck::kWrong:
      return Result::kWrongAccount;
    case AccountCheck::kFailed:
      return Result::kInternal;
  }
  const auto user = accounts::FindUser(name);
  if (!user) return Result::kNotListed;
  const auto uids = entry.get_protect_uids();
  const auto gids = entry.get_protect_gids();
  const auto groups = accounts::GroupsOf(*user);
  const bool listed =
      std::find(uids.begin(), uids.end(), user->uid) != uids.end() ||
      std::any_of(gids.begin(), gids.end(), [&groups](gid_t gid) { return groups.contains(gid); });
  return listed ? Result::kLoggedIn : Result::kNotListed;
}

Result VisitorLogin::Admit(StoreSession& store) {
  if (!holds_token_ && !store.statements().CountVisit(link_.id)) return Result::kUsedUp;
  if (link_.protect_type != 0) ForgetFailures(store.sql(), Try());
  RenewSession(store);
  store.statements().InsertToken(session_->id, link_, VisitorAddress());
  return Result::kLoggedIn;
}

// A session that lives on under a new id takes its other tokens along; nobody else knows that id.
void VisitorLogin::RenewSession(StoreSession& store) {
  new_sid_ = NewSessionId();
  const std::string hash = Digest(new_sid_);
  if (session_) {
    store.sql()
        << "update visitor_session set sid_hash = :hash, address = :address, last_used = :now "
           "where id = :id",
        soci::use(hash), soci::use(VisitorAddress()), soci::use(now_), soci::use(session_->id);
    return;
  }
  PreparedStatements& statements = store.statements();
  statements.RemoveDeadSessions(now_ - kSessionLife);
  statements.RemoveSurplusSessions(link_.id, VisitorAddress());
  session_.emplace();
  session_->id = statements.InsertSession(hash, VisitorAddress(), now_);
}

}  // namespace
}  // namespace VELT::sharing::db

int VeltSharingLogin(std::string& sid, const _tag_sharing_login_params* params, bool flag) {
  using VELT::sharing::Printable;
  using VELT::sharing::db::Result;
  Result result = Result::kInternal;
  std::string link;
  try {
    if (params != nullptr && !flag) {
      link = Printable(params->sharing_id, 6);
      VELT::sharing::db::VisitorLogin login(*params);
      result = login.Run();
      if (result == Result::kLoggedIn) sid = login.new_sid();
    }
  } catch (const std::exception&) {  // a damaged link, or no memory
    syslog(LOG_ERR, "sharing store: unexpected failure to log a visitor in");
  }
  syslog(LOG_INFO, "sharing login: result %d, address %s, link %s", static_cast<int>(result),
         Printable(VELT::sharing::VisitorAddress(), 64).c_str(), link.c_str());
  return static_cast<int>(result);
}

int VeltSharingLogout(const std::string& sharing_id, const std::string& sid) {
  using VELT::sharing::db::Connection;
  using VELT::sharing::db::SharingDB;
  SharingDB& database = *SharingDB::Instance();
  const bool ended =
      Connection::Of(database).Run(
          "log a visitor out", [&](VELT::sharing::db::StoreSession& store) {
            const std::string hash = VELT::sharing::Digest(sid);
            soci::statement statement =
                (store.sql().prepare
                     << "delete from visitor_session where sid_hash = :hash and id in "
                        "(select t.session_id from visitor_token t join link l on l.id = t.link_id "
                        "where l.hash = :link)",
                 soci::use(hash), soci::use(sharing_id));
            statement.execute(true);
            return statement.get_affected_rows() == 1;
          });
  // Nor does the end of a visit tell a link that has been turned off from one that is gone.
  VELT::sharing::record::Entry link;
  return ended && VELT::sharing::db::EntryDB(database).GetByHash(sharing_id, link);
}
