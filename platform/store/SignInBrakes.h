// The limits on failed attempts of owners to sign in. They are kept with visitors' failed logins, for
// an account's password opens both doors.
#pragma once

#include <cstdint>
#include <string>

#include "platform/store/sql/StoreSession.h"

namespace VELT::sharing::owners {

// What an attempt is counted by.
struct AttemptKey {
  std::string account;  // AccountKey of the account's name
  std::string source;   // SourceKey of the client's address, or BrowserSource of a known browser
  bool known_browser = false;
};

// All are to be called in a transaction in which `BrowserKey` was called, which lets one attempt after
// the other through. They throw soci::soci_error.

// The secret that signs the cookies of known browsers, made at the first call.
std::string BrowserKey(db::StoreSession& store);

// Seconds until an attempt may be judged; 0: at once.
std::int64_t SecondsToWait(soci::session& sql, const AttemptKey& key, std::int64_t now);

// Counts an attempt as failed, before it is judged, so that attempts at the same time count too.
// Returns its number.
long long CountAttempt(soci::session& sql, const AttemptKey& key, std::int64_t now);

// Takes the count of one attempt back, or of all failures at the account from the same source.
void ForgetAttempt(soci::session& sql, long long attempt);
void ForgetFailures(soci::session& sql, const AttemptKey& key);

// A browser's identity in the cookie `cookie`, if the key has signed it for this account; else empty.
std::string KnownBrowser(const std::string& key, const std::string& account,
                         const std::string& cookie);
// The cookie for a browser, a new one if `browser` is empty.
std::string SignedBrowser(const std::string& key, const std::string& account, std::string browser);
std::string BrowserSource(const std::string& browser);

}  // namespace VELT::sharing::owners
