// The state of a link.
#pragma once

namespace VELT::sharing {

enum class LinkStatus {
  kActive,
  kDisabled,
  kExpired,
  kPending,  // not yet started
  kUsedUp,   // it had as many visits as it allows; its last visitors keep their access
};

}  // namespace VELT::sharing
