// What the host has set through StoreOptions.h: the options, the clock, whether the request is a
// visitor's and from which address.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace VELT::sharing {

// "sqlite3 <path>" or "postgresql <libpq connection string>".
const std::string& ConnectionText();

// Seconds since 1970 UTC.
std::int64_t Now();

bool IsVisitor();

// Empty when the request is not a visitor's.
const std::string& VisitorAddress();

// The only projects whose links the request may see; empty: all.
const std::vector<std::string>& VisibleProjects();
bool SeesProject(const std::string& project);

std::chrono::milliseconds LoginTimeout();

// Sets what LoginWait (Visit.h) returns until the next request.
void SetLoginWait(std::int64_t seconds);

}  // namespace VELT::sharing
