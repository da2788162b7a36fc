// The visitors' side of the tables, shared by the accessors and the login.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "LinkStatus.h"
#include "Soci.h"

namespace VELT::sharing::db {

inline constexpr std::int64_t kSessionLife = std::int64_t{24} * 60 * 60;  // seconds without use
inline constexpr std::int64_t kFailureWindow =
    std::int64_t{15} * 60;  // seconds that a wrong guess counts

struct SessionRow {
  long long id = 0;
  std::string address;  // of the login that gave it its present id
  long long last_used = 0;

  bool IsAlive(std::int64_t now) const { return now - last_used < kSessionLife; }
};

// `lock` is empty or the dialect's row lock.
std::optional<SessionRow> FindSession(soci::session& sql, const std::string& sid,
                                      const char* lock = "");

// The address of the login that made the session's token for the link; empty: there is no token.
std::optional<std::string> FindToken(soci::session& sql, long long session, long long link);

// Whether the user database has the account.
bool OwnerExists(long long uid);

// Removes wrong guesses that no longer count and sessions past their life, of these a thousand at
// most, since everybody waits meanwhile.
void PurgeVisitors(soci::session& sql, std::int64_t now);

}  // namespace VELT::sharing::db
