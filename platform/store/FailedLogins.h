// The limits on failed logins. Within a quarter of an hour, ten failures from one address lock it
// out of the link, whatever credentials they were. An account's password opens more than one link,
// so failures at an account also count over all links: ten from one address lock that address out
// of the account, thirty from all addresses lock everybody out. A lower limit would make it easy to
// lock the account's owner out.
#pragma once

#include <cstdint>
#include <string>

#include "sql/Soci.h"

namespace VELT::sharing::db {

// What a login's failures are counted by.
struct FailureKey {
  long long link = 0;
  std::string account;  // AccountKey of the account's name; empty for the link's own password
  std::string source;   // SourceKey of the visitor's address
};

// One text for all spellings of an account's name that the user database knows. It is a digest,
// which bounds the length and keeps what people type into the wrong field from being stored in
// clear.
std::string AccountKey(const std::string& name);

// One text for all addresses of one visitor. An IPv6 address counts by its first 64 bits, which one
// customer has to himself; an IPv4 address that is mapped into IPv6 counts as itself. So does a
// text that is no address.
std::string SourceKey(const std::string& address);

// These throw soci::soci_error.
bool IsLockedOut(soci::session& sql, const FailureKey& key, std::int64_t now);
// Also removes failures that no longer count.
void CountFailure(soci::session& sql, const FailureKey& key, std::int64_t now);
// After a successful login: removes the failures from the same source at the same account or, for
// an empty account, at the same link's password. Others may be another person's.
void ClearFailures(soci::session& sql, const FailureKey& key);
// Removes failures that no longer count.
void PruneFailures(soci::session& sql, std::int64_t now);

}  // namespace VELT::sharing::db
