// The effective ids that a worker serves requests with.
#pragma once

#include <string>

#include "host/Options.h"

namespace VELT::host {

// Those of the account and the group that the options of these names give; empty ones leave the
// process's. Throws std::runtime_error when there is no such account or group.
Ids FindIds(const std::string& user, const std::string& group);

// Makes `ids` the effective ids of the process, with the user's supplementary groups. The real and
// saved ids stay, so that a handler can return to them for a short time. Does nothing when the
// process has the effective ids already. Throws std::system_error.
void LowerTo(const Ids& ids);

// Makes `ids` the real and saved ids as well, so that the process can't get the old ones back. Throws
// std::system_error.
void LowerForGood(const Ids& ids);

// Whether `ids` are the effective ids of the process.
bool IsLoweredTo(const Ids& ids);

}  // namespace VELT::host
