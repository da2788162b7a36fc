// What state a link is in, decided in one place for its JSON form, its login and its tokens.
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

// Whether visitors who are in may stay. A link without visits left lets nobody new in, but its
// last visitors are not turned out.
bool ServesVisitors(LinkStatus status);

const char* StatusText(LinkStatus status);

}  // namespace VELT::sharing
