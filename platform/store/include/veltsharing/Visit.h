// Visits, for the host and for API modules.
#pragma once

#include <cstdint>
#include <vector>

#include "veltsharing/Entry.h"

namespace VELT::sharing {

// The results of VeltSharingLogin, which Login.h describes.
enum class LoginResult {
  kLoggedIn = 1,
  kInternal = -1,
  kWrongAccount = -2,
  kNotServed = -3,
  kDenied = -8,
  kWrongPassword = -9,
  kNotListed = -10,
  kUsedUp = -11,
};

inline constexpr int kVisitDays = 90;  // days for which the store keeps the number of visits

// Sets `days` to the visits of the stored link on each of the latest kVisitDays days, today's last.
// A day begins and ends as the appliance's local date does. False when the database can't be used.
bool VisitsByDay(const record::Entry& entry, std::vector<std::int64_t>& days);

}  // namespace VELT::sharing
