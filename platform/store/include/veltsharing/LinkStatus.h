// What state a link is in.
#pragma once

namespace VELT::sharing {

enum class LinkStatus {
  kActive,
  kDisabled,
  kExpired,
  kPending,  // not yet started
  kUsedUp,   // as many visits as it allows; its last visitors may stay
};

}  // namespace VELT::sharing
