// The steps of one visitor's login to a link.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/store/FailedLogins.h"
#include "platform/store/sql/EntryRow.h"
#include "platform/store/sql/StoreSession.h"
#include "platform/store/sql/VisitorRows.h"
#include "veltsharing/Entry.h"
#include "veltsharing/Login.h"

namespace VELT::sharing::db {

// Used for one login. The texts of `params` are copied.
class VisitorLogin {
 public:
  explicit VisitorLogin(const _tag_sharing_login_params& params);

  // To be called once. Throws std::runtime_error when the stored link is damaged, std::bad_alloc
  // when memory is lacking.
  LoginResult Run();

  // The new session's id after kLoggedIn.
  const std::string& new_sid() const { return new_sid_; }
  // Whether the login made a visit and did not only go on with one; after kLoggedIn.
  bool is_new_visit() const { return !holds_token_; }
  // After kDenied for too many failures: seconds until the next try; otherwise 0.
  std::int64_t lockout() const { return lockout_; }

 private:
  std::optional<LoginResult> Attempt(StoreSession& store);
  LoginResult CheckPreconditions(StoreSession& store);
  FailureKey MakeFailureKey() const;
  LoginResult CheckCredentials() const;
  LoginResult CheckListedAccount(const record::Entry& entry) const;
  LoginResult Admit(StoreSession& store);
  void RenewSession(StoreSession& store);

  const std::string hash_;
  const std::string password_;
  const std::string account_;
  const std::string account_password_;
  const std::string old_sid_;
  const std::string account_key_;
  const std::string source_key_;
  std::string new_sid_;

  // What the current attempt has read.
  long long now_ = 0;
  EntryRow link_;
  std::optional<SessionRow> session_;  // the visitor's, if alive
  bool holds_token_ = false;           // a legal one for the link
  std::int64_t lockout_ = 0;

  // The result of CheckCredentials, and the revision of the link that it is for.
  std::optional<LoginResult> credentials_result_;
  long long checked_revision_ = 0;
};

}  // namespace VELT::sharing::db
