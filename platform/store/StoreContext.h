// What the host has told the store: options, clock, the visitor's address.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace VELT::sharing {

// "sqlite3 <path>" or "postgresql <libpq connection string>".
const std::string& ConnectionText();

// Seconds since 1970 UTC.
std::int64_t Now();

const std::string& VisitorAddress();
bool HasVisitor();

std::chrono::milliseconds LoginTimeout();

}  // namespace VELT::sharing
