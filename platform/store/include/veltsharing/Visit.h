// Visits, for the host and for API modules other than the sharing module.
#pragma once

#include <string>

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

// Whether the visitor session `sid`, which may be any text, holds a legal token for the stored link
// `entry`. False as well when the database can't be used. One thread at a time.
bool HoldsToken(const record::Entry& entry, const std::string& sid);

}  // namespace VELT::sharing
