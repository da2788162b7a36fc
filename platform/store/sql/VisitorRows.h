// The rows of a visitor's session and of its tokens, one for each link that it opens.
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

// `lock` is empty or the dialect's row lock. Throws soci::soci_error, as does FindToken.
std::optional<SessionRow> FindSession(soci::session& sql, const std::string& sid_hash,
                                      const char* lock = "");

struct TokenRow {
  std::string address;  // of the login that made it
  long long protection = 0;

  // Whether the link's protection is still that of the login and, where the link asks for that, the
  // visitor's address is.
  bool Fits(const EntryRow& link, const std::string& visitor_address) const;
};

// The session's token for the link; empty when there is none.
std::optional<TokenRow> FindToken(soci::session& sql, long long session, long long link);

// SQL that removes sessions that were not used after `:time`, the longest unused first and `limit`
// at most.
std::string RemoveDeadSessionsSql(int limit);

}  // namespace VELT::sharing::db
