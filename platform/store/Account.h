// The accounts of links' owners.
#pragma once

namespace VELT::sharing {

// Whether the user database has the account.
bool OwnerExists(long long uid);

}  // namespace VELT::sharing
