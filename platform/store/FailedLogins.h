// How often somebody may fail to log in. Within a quarter of an hour, ten failures from one address
// shut it out of a link, whatever it failed with there. For accounts, whose passwords open more
// than one link, failures count over all links besides: ten from one address shut that address out
// of the account, and thirty from all addresses everybody; fewer would let anyone shut the account's
// owner out.
#pragma once

#include <cstdint>
#include <string>

#include "sql/Soci.h"

namespace VELT::sharing::db {

// What a login is tried at, and from where.
struct LoginTry {
  long long link = 0;
  std::string account;  // AccountKey of the account's name; empty: the link's own password
  std::string source;   // SourceKey of the visitor's address
};

// One text for all spellings of an account's name that the user database knows it by. A digest: it
// bounds the length, and what people type into the wrong field is not stored in clear.
std::string AccountKey(const std::string& name);

// IPv6 addresses are one by their first 64 bits, which one customer has for himself; an IPv4
// address may be mapped into IPv6. A text that is no address stands for itself.
std::string SourceKey(const std::string& address);

// These throw soci::soci_error.
bool IsShutOut(soci::session& sql, const LoginTry& login, std::int64_t now);
// Failures that no longer count are removed along the way.
void CountFailure(soci::session& sql, const LoginTry& login, std::int64_t now);
// Of a login that succeeded: forgets the failures that it proves to be its visitor's own, those at
// the same account, or at the same link's password, from the same source.
void ForgetFailures(soci::session& sql, const LoginTry& login);
// Removes failures that no longer count.
void PruneFailures(soci::session& sql, std::int64_t now);

}  // namespace VELT::sharing::db
