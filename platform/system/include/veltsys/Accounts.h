// Look-ups in the user database, for the other platform libraries and the host. Several
// threads may call all of these at once; none throws but std::bad_alloc.
#pragma once

#include <sys/types.h>

#include <optional>
#include <set>
#include <string>

#include "veltsys/User.h"

namespace VELT::accounts {

// Each is empty when there is no such account, no such group, or the database can't be read.
std::optional<VELTUSER> FindUser(const std::string& name);
std::optional<VELTUSER> FindUser(uid_t uid);
std::optional<gid_t> FindGroup(const std::string& name);

// As FindUser, but an account that was found is kept for a second, unless /etc/passwd changes. Takes
// a tenth of the time.
std::optional<VELTUSER> FindUserCached(uid_t uid);

// The ids of every group that the account belongs to, its primary group included.
std::set<gid_t> GroupsOf(const VELTUSER& user);

// Whether the account administers the appliance: uid 0 or a member of the group "administrators".
bool IsAdministrator(const VELTUSER& user);

}  // namespace VELT::accounts
