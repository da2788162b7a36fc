// How long the store keeps the number of a link's visits on each day.
#pragma once

#include <cstdint>

#include "veltsharing/Visit.h"

namespace VELT::sharing::db {

// The oldest day that is kept. Days are numbered as by LocalDay.
constexpr std::int64_t OldestVisitDay(std::int64_t today) { return today - kVisitDays + 1; }

}  // namespace VELT::sharing::db
