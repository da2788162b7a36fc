// The visitors' side of the tables, shared by the accessors and the login.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "sql/EntryRow.h"
#include "sql/Soci.h"

namespace VELT::sharing::db {

inline constexpr std::int64_t kSessionLife = std::int64_t{24} * 60 * 60;  // seconds without use

struct SessionRow {
  long long id = 0;
  std::string address;  // of the login that gave it its present id
  long long last_used = 0;

  bool IsAlive(std::int64_t now) const { return now - last_used < kSessionLife; }
};

// `lock` is empty or the dialect's row lock.
std::optional<SessionRow> FindSession(soci::session& sql, const std::string& sid,
                                      const char* lock = "");

struct TokenRow {
  std::string address;  // of the login that made it
  long long protection = 0;

  // For what it was made: the link's present protection and, where the link asks for that, the
  // address of the visitor.
  bool Fits(const EntryRow& link) const;
};

// The session's token for the link; empty: there is none.
std::optional<TokenRow> FindToken(soci::session& sql, long long session, long long link);

// Whether the user database has the account.
bool OwnerExists(long long uid);

// Removes failed logins that no longer count and sessions past their life, of these a thousand at
// most, since everybody waits meanwhile.
void PurgeVisitors(soci::session& sql, std::int64_t now);

}  // namespace VELT::sharing::db
