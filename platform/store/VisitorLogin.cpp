// A login takes one transaction, or two when the link needs credentials. The first checks the
// preconditions, those that need no credentials, and ends. Credentials are checked between the two,
// because that takes long and a transaction makes others wait. The second checks the preconditions
// again and stores the outcome. If the link's revision has changed since the first, the credentials
// are checked again.
#include "platform/store/VisitorLogin.h"

#include <algorithm>
#include <set>
#include <vector>

#include "platform/store/Account.h"
#include "platform/store/LinkStatus.h"
#include "platform/store/LocalTime.h"
#include "platform/store/Pam.h"
#include "platform/store/Secrets.h"
#include "platform/store/StoreContext.h"
#include "platform/store/VisitDays.h"
#include "platform/store/sql/Connection.h"
#include "platform/store/sql/Dialect.h"
#include "platform/store/sql/PreparedStatements.h"
#include "platform/store/sql/Transaction.h"
#include "veltsharing/LinkStatus.h"
#include "veltsharing/SharingDB.h"
#include "veltsys/Accounts.h"
#include "veltsys/Counters.h"
#include "veltsys/User.h"

namespace VELT::sharing::db {
namespace {

using ProtectType = record::Entry::ProtectType;

// A login fails when the link was updated during each of this many attempts.
constexpr int kMaxAttempts = 3;

}  // namespace

VisitorLogin::VisitorLogin(const _tag_sharing_login_params& params)
    : hash_(params.sharing_id),
      password_(params.password),
      account_(params.mosk_username),
      account_password_(params.mosk_password),
      old_sid_(params.sid == nullptr ? "" : params.sid),
      account_key_(AccountKey(account_)),
      source_key_(SourceKey(CurrentView().address)) {}

LoginResult VisitorLogin::Run() {
  Connection& connection = Connection::Of(*SharingDB::Instance());
  for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
    std::optional<LoginResult> result;
    const bool ran = connection.Run("log a visitor in", [this, &result](StoreSession& store) {
      result = Attempt(store);
      return true;
    });
    if (!ran) return LoginResult::kInternal;
    if (result) return *result;
    credentials_result_ = CheckCredentials();
    checked_revision_ = link_.revision;
  }
  return LoginResult::kInternal;
}

// One transaction. Returns nothing when the credentials must be checked before the next one.
std::optional<LoginResult> VisitorLogin::Attempt(StoreSession& store) {
  Transaction transaction(store);
  LoginResult result = CheckPreconditions(store);
  if (result != LoginResult::kLoggedIn) {
    if (lockout_ > 0) transaction.Commit();  // keeps the visitor's turn
    return result;
  }
  if (link_.IsProtected()) {
    if (!credentials_result_ || checked_revision_ != link_.revision) return std::nullopt;
    result = *credentials_result_;
  }
  switch (result) {
    case LoginResult::kLoggedIn:
      result = Admit(store);
      if (result != LoginResult::kLoggedIn) return result;
      break;
    case LoginResult::kWrongPassword:
    case LoginResult::kWrongAccount:
    case LoginResult::kNotListed:  // which reveals that the password was right
      CountFailure(store.sql(), MakeFailureKey(), now_);
      break;
    case LoginResult::kInternal:
    case LoginResult::kNotServed:
    case LoginResult::kDenied:
    case LoginResult::kUsedUp:
      return result;
  }
  transaction.Commit();
  return result;
}

// Locks the link and the visitor's session, and reads what the later steps need.
LoginResult VisitorLogin::CheckPreconditions(StoreSession& store) {
  now_ = Now();
  const EntryRow* link = store.statements().LockLink(hash_);
  if (link == nullptr || !IsVisitorsView()) return LoginResult::kNotServed;
  link_ = *link;
  const LinkStatus status = StatusAt(link_.Limits(), now_);
  if (!ServesVisitors(status) || !OwnerExists(link_.owner_uid)) return LoginResult::kNotServed;

  session_.reset();
  if (!old_sid_.empty()) {
    const SessionRow* session = store.statements().LockSession(Digest(old_sid_));
    if (session != nullptr) session_ = *session;
  }
  if (session_ && !session_->IsAlive(now_)) session_.reset();
  const bool match_ip = link_.enable_match_ip != 0;
  if (session_ && match_ip && session_->address != CurrentView().address)
    return LoginResult::kDenied;

  const TokenRow* token = session_ ? store.statements().FindToken(session_->id, link_.id) : nullptr;
  holds_token_ = token != nullptr && token->Fits(link_, CurrentView().address);
  if (link_.IsProtected()) {
    const FailureKey key = MakeFailureKey();
    lockout_ = LockoutSeconds(store.sql(), key, now_);
    if (lockout_ == 0 && key.account.empty() && !holds_token_) {
      lockout_ = SecondsToTurn(store.sql(), key, now_);
    }
    if (lockout_ > 0) {
      Count(Event::kLoginLockedOut);
      return LoginResult::kDenied;
    }
  }
  if (status == LinkStatus::kUsedUp && !holds_token_) return LoginResult::kUsedUp;
  return LoginResult::kLoggedIn;
}

FailureKey VisitorLogin::MakeFailureKey() const {
  const bool for_accounts = link_.protect_type == static_cast<int>(ProtectType::kUser);
  return {link_.id, for_accounts ? account_key_ : std::string(), source_key_};
}

LoginResult VisitorLogin::CheckCredentials() const {
  const record::Entry entry = link_.ToEntry();
  switch (entry.get_protect_type()) {
    case ProtectType::kNone:
      return LoginResult::kLoggedIn;
    case ProtectType::kPassword:
      return entry.IsPasswordValid(password_) ? LoginResult::kLoggedIn
                                              : LoginResult::kWrongPassword;
    case ProtectType::kUser:
      return CheckListedAccount(entry);
  }
  return LoginResult::kInternal;
}

LoginResult VisitorLogin::CheckListedAccount(const record::Entry& entry) const {
  const PamReply reply =
      AskPam({PamRequest::Kind::kVisitor, account_, {account_password_}, CurrentView().address},
             LoginTimeout());
  if (reply.verdict == PamReply::Verdict::kWrong) return LoginResult::kWrongAccount;
  if (reply.verdict != PamReply::Verdict::kRight) return LoginResult::kInternal;
  const auto user = accounts::FindUser(reply.name);
  if (!user) return LoginResult::kNotListed;
  const auto uids = entry.get_protect_uids();
  const auto gids = entry.get_protect_gids();
  const auto groups = accounts::GroupsOf(*user);
  const bool listed =
      std::find(uids.begin(), uids.end(), user->uid) != uids.end() ||
      std::any_of(gids.begin(), gids.end(), [&groups](gid_t gid) { return groups.contains(gid); });
  return listed ? LoginResult::kLoggedIn : LoginResult::kNotListed;
}

LoginResult VisitorLogin::Admit(StoreSession& store) {
  if (!holds_token_) {
    if (!store.statements().CountVisit(link_.id)) return LoginResult::kUsedUp;
    const std::int64_t day = LocalDay(now_);
    store.statements().CountVisitOfDay(link_.id, day, OldestVisitDay(day));
  }
  if (link_.IsProtected()) ClearFailures(store.sql(), MakeFailureKey());
  RenewSession(store);
  store.statements().InsertToken(session_->id, link_, CurrentView().address);
  return LoginResult::kLoggedIn;
}

// Every login gives a new session id. A session that exists already keeps its other tokens under
// it, and its old id becomes invalid.
void VisitorLogin::RenewSession(StoreSession& store) {
  new_sid_ = NewSessionId();
  const std::string hash = Digest(new_sid_);
  if (session_) {
    store.sql() << "update visitor_session set sid_hash = :hash, address = :address, "
                   "last_used = :now where id = :id",
        soci::use(hash), soci::use(CurrentView().address), soci::use(now_), soci::use(session_->id);
    return;
  }
  PreparedStatements& statements = store.statements();
  statements.RemoveDeadSessions(now_ - kSessionLife);
  statements.RemoveSurplusSessions(link_.id, CurrentView().address);
  session_.emplace();
  session_->id = statements.InsertSession(hash, CurrentView().address, now_);
}

}  // namespace VELT::sharing::db
