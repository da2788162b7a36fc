// How long the store keeps how many visits a link had on each day.
#pragma once

#include <cstdint>

#include "veltsharing/Visit.h"

namespace VELT::sharing::db {

// The first of the days that are kept, by the number of the present one (LocalDay).
constexpr std::int64_t OldestVisitDay(std::int64_t today) { return today - kVisitDays + 1; }

}  // namespace VELT::sharing::db
