// The limits on failed logins. Ten failures within 15 minutes from one address, with any
// credentials, lock the address out of the link. An account's password opens more than one link, so
// the failures at an account also count over all links: ten from one address lock that address out
// of the account, thirty from all addresses lock everybody out. With a lower limit it would be easy
// to lock out the account's owner.
//
// Guesses at a link's own password from all addresses lock nobody out, or anybody could close the link
// to its visitors. From the thirtieth on, each address has to wait for its turn before each try. The
// pause between two turns grows from 1 to 60 seconds with the number of guesses, but nobody waits for
// longer than two minutes, however many addresses guess.
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
// Seconds until the turn of `key`, whose account is empty, which is stored when it has none yet; 0: now,
// or there is no need for turns. To be called with the link locked, and committed.
std::int64_t SecondsToTurn(soci::session& sql, const FailureKey& key, std::int64_t now);
// Uses the turn up. Also removes failures that no longer count.
void CountFailure(soci::session& sql, const FailureKey& key, std::int64_t now);
// To be called after a successful login. Removes the failures from the same source at the same
// account or, if the account is empty, at the password of the same link. Others may be somebody
// else's.
void ClearFailures(soci::session& sql, const FailureKey& key);
// Remove what no longer counts.
void PruneTurns(soci::session& sql, std::int64_t now);
void PruneFailures(soci::session& sql, std::int64_t now);

}  // namespace VELT::sharing::db
