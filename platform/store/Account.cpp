#include "platform/store/Account.h"

#include "veltsys/Accounts.h"

namespace VELT::sharing {

bool OwnerExists(long long uid) {
  return accounts::FindUserCached(static_cast<uid_t>(uid)).has_value();
}

}  // namespace VELT::sharing
