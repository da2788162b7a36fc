// What the host has told the store: options, clock, whether a visitor asks and from where.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace VELT::sharing {

// "sqlite3 <path>" or "postgresql <libpq connection string>".
const std::string& ConnectionText();

// Seconds since 1970 UTC.
std::int64_t Now();

bool IsVisitor();

// Empty where no visitor asks.
const std::string& VisitorAddress();

std::chrono::milliseconds LoginTimeout();

}  // namespace VELT::sharing
