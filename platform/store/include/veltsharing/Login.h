// Logging a visitor in to a link and out of it.
#pragma once

#include <string>

namespace VELT::sharing {

enum class LoginResult {
  kLoggedIn = 1,
  kInternal = -1,
  kWrongAccount = -2,  // or its password
  kNotServed = -3,     // no such link, or it is disabled, pending or expired, or its owner is gone
  // The link asks for one address and the session's last login was from another; or too many logins
  // have failed within 15 minutes: ten from this address at the link or the account, or thirty from
  // all addresses at the account; or after thirty from all addresses at the link's password, it is
  // not the turn of this address yet.
  kDenied = -8,
  kWrongPassword = -9,  // of the link
  kNotListed = -10,     // the account, which counts as a failed login
  kUsedUp = -11,        // no visit left
};

}  // namespace VELT::sharing

// All texts are borrowed for the call. Only the last may be null.
struct _tag_sharing_login_params {  // NOLINT(bugprone-reserved-identifier): callers know this name
  const char* sharing_id;
  const char* password;       // of a link with a password
  const char* mosk_username;  // of a link for listed users
  const char* mosk_password;
  const char* sid;  // the visitor's current session; null: none
};

// Checks the visitor's credentials for the link. If they are right, makes a token for it in a new
// session and sets `sid` to the session's id; otherwise `sid` stays as it was. The session of
// `params` ends, and its tokens for other links move to the new one. `flag` must be false. The
// process needs the right to check passwords of the appliance's accounts (PAM).
//
// A login counts as a visit unless the session already holds a legal token for the link. Such a
// session may log in again, with the right credentials, even when no visit is left.
//
// Never throws. Returns a LoginResult.
int VeltSharingLogin(std::string& sid, const _tag_sharing_login_params* params, bool flag);

// Ends the visitor session `sid` with all its tokens if it holds one for the link. Returns non-zero
// on success; zero when there was no such session, or visitors can't find the link any more.
int VeltSharingLogout(const std::string& sharing_id, const std::string& sid);
