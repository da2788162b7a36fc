// What the host has set through StoreOptions.h and View.h.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "veltsharing/View.h"

namespace VELT::sharing {

// "sqlite3 <path>" or "postgresql <libpq connection string>".
const std::string& ConnectionText();

// Seconds since 1970 UTC.
std::int64_t Now();

std::chrono::milliseconds LoginTimeout();

// The view that was lent last, or nobody's.
View& CurrentView();

inline bool IsOwnersView() { return CurrentView().of == View::Of::kOwner; }
inline bool IsVisitorsView() { return CurrentView().of == View::Of::kVisitor; }
// Whether the current view has links of this project.
bool SeesProject(const std::string& project);

}  // namespace VELT::sharing
