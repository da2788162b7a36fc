// The limits on failed logins. Ten failures within 15 minutes from one address, with any
// credentials, lock the address out of the link. An account's password opens more than one link, so
// the failures at an account also count over all links: ten from one address lock that address out
// of the account, thirty from all addresses lock everybody out. With a lower limit it would be easy
// to lock out the account's owner.
#pragma once

#include <cstdint>
#include <string>

#include "platform/store/sql/Soci.h"
#include "veltsys/Address.h"

namespace VELT::sharing::db {

// What a login's failures are counted by.
struct FailureKey {
  long long link = 0;
  std::string account;  // AccountKey of the account's name; empty for the link's own password
  std::string source;   // SourceKey of the visitor's address
};

// The same text for all spellings of an account's name that the user database accepts. It is a
// digest, which limits its length and keeps what people type into the wrong field, a password for
// instance, from being stored in clear.
std::string AccountKey(const std::string& name);

// These throw soci::soci_error.
// Seconds until a login may be tried; 0: at once.
std::int64_t LockoutSeconds(soci::session& sql, const FailureKey& key, std::int64_t now);
// Also removes failures that no longer count.
void CountFailure(soci::session& sql, const FailureKey& key, std::int64_t now);
// To be called after a successful login. Removes the failures from the same source at the same
// account or, if the account is empty, at the password of the same link. Others may be somebody
// else's.
void ClearFailures(soci::session& sql, const FailureKey& key);
// Removes failures that no longer count.
void PruneFailures(soci::session& sql, std::int64_t now);

}  // namespace VELT::sharing::db
