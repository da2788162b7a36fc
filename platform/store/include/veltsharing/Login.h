// Logging a visitor in to a link and out of it.
#pragma once

#include <string>

// All texts are borrowed for the call and never null but the last.
struct _tag_sharing_login_params {  // NOLINT(bugprone-reserved-identifier): callers know this name
  const char* sharing_id;
  const char* password;       // of a link with a password
  const char* mosk_username;  // of a link for listed users
  const char* mosk_password;
  const char* sid;  // the visitor's session so far; null: none
};

// Checks the visitor's credentials against the link and, when they are right, makes a token for it
// in a new session, whose id is left in `sid` (untouched otherwise); the session of `params` ends
// and its other tokens move along. `flag` must be false. Needs the right to check the appliance's
// passwords (PAM).
//
// A visit is a login that makes a new token: a session that holds a legal one for the link gets in
// again, under a new id but with the right credentials, without using up a visit, also where none
// is left.
//
// Returns 1: logged in; -2: wrong account or password; -3: no such link, or it is disabled, not
// started, expired or its owner gone; -8: the address is denied, or too much was guessed within the
// last quarter of an hour (ten times at the link or at the account from this address, thirty times
// at the account from all); -9: wrong link password; -10: the account is not listed, which counts
// as a guess; -11: no visit left; -1: internal failure. Never throws.
int VeltSharingLogin(std::string& sid, const _tag_sharing_login_params* params, bool flag);

// Ends the visitor session `sid`, its tokens for other links included, if it holds one for the
// link. Non-zero on success; zero when there was no such session.
int VeltSharingLogout(const std::string& sharing_id, const std::string& sid);
