#include "platform/store/LinkStatus.h"

namespace VELT::sharing {

LinkStatus StatusAt(const LinkLimits& limits, std::int64_t now) {
  if (!limits.enabled) return LinkStatus::kDisabled;
  if (limits.expire_at != 0 && now > limits.expire_at) return LinkStatus::kExpired;
  if (now < limits.start_at) return LinkStatus::kPending;
  if (limits.expire_times != 0 && limits.visits >= limits.expire_times) return LinkStatus::kUsedUp;
  return LinkStatus::kActive;
}

bool ServesVisitors(LinkStatus status) {
  return status == LinkStatus::kActive || status == LinkStatus::kUsedUp;
}

const char* StatusText(LinkStatus status) {
  switch (status) {
    case LinkStatus::kActive:
      return "active";
    case LinkStatus::kDisabled:
      return "disabled";
    case LinkStatus::kExpired:
      return "expired";
    case LinkStatus::kPending:
      return "pending";
    case LinkStatus::kUsedUp:
      return "used_up";
  }
  return "";
}

}  // namespace VELT::sharing
