// The state of a link, decided in one place for its JSON form, its logins and its tokens.
#pragma once

#include <cstdint>

#include "veltsharing/LinkStatus.h"

namespace VELT::sharing {

struct LinkLimits {
  bool enabled;
  std::int64_t start_at;  // seconds since 1970 UTC; 0: no limit
  std::int64_t expire_at;
  std::int64_t expire_times;
  std::int64_t visits;
};

LinkStatus StatusAt(const LinkLimits& limits, std::int64_t now);

// Whether visitors who have logged in keep their access. A link without visits left admits nobody
// new, but its last visitors keep theirs.
bool ServesVisitors(LinkStatus status);

const char* StatusText(LinkStatus status);

}  // namespace VELT::sharing
