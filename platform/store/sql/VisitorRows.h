// The rows of a visitor's session and of its tokens, one for each link that it may open.
#pragma once

#include <cstdint>
#include <string>

#include "platform/store/sql/Dialect.h"
#include "platform/store/sql/EntryRow.h"

namespace VELT::sharing::db {

inline constexpr std::int64_t kSessionLife = std::int64_t{24} * 60 * 60;  // seconds without use

struct SessionRow {
  long long id = 0;
  std::string address;  // at the login that gave it its current id
  long long last_used = 0;

  bool IsAlive(std::int64_t now) const { return now - last_used < kSessionLife; }
};

struct TokenRow {
  std::string address;  // at the login that made the token
  long long protection = 0;

  // Whether the link's protection is the same as at the login and, if the link asks for that, the
  // visitor's address too.
  bool Fits(const EntryRow& link, const std::string& visitor_address) const;
};

// SQL that removes at most `limit` sessions that were not used after `:time`, beginning with the
// one that has not been used for longest. It removes none while another process removes sessions.
std::string RemoveDeadSessionsSql(const Dialect& dialect, int limit);

}  // namespace VELT::sharing::db
