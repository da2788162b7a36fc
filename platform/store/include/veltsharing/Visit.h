// Visits, for the host and for API modules.
#pragma once

#include <cstdint>
#include <vector>

#include "veltsharing/Entry.h"

namespace VELT::sharing {

inline constexpr int kVisitDays = 90;  // days for which the store keeps the number of visits

// Sets `days` to the visits of the stored link on each of the latest kVisitDays days, today's last.
// A day begins and ends as the appliance's local date does. False when the database can't be used.
bool VisitsByDay(const record::Entry& entry, std::vector<std::int64_t>& days);

}  // namespace VELT::sharing
