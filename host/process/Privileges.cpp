#include "host/process/Privileges.h"

#include <grp.h>
#include <unistd.h>

#include <cerrno>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "host/Options.h"
#include "veltsys/Accounts.h"
#include "veltsys/User.h"

namespace VELT::host {

Ids FindIds(const std::string& user, const std::string& group) {
  Ids ids{geteuid(), getegid(), user};
  if (!user.empty()) {
    const auto found = accounts::FindUser(user);
    if (!found.has_value()) throw std::runtime_error("--user: no account is called " + user);
    ids.uid = found->uid;
    ids.gid = found->gid;
  }
  if (!group.empty()) {
    const auto found = accounts::FindGroup(group);
    if (!found.has_value()) throw std::runtime_error("--group: no group is called " + group);
    ids.gid = *found;
  }
  return ids;
}

bool IsLoweredTo(const Ids& ids) { return geteuid() == ids.uid && getegid() == ids.gid; }

void LowerTo(const Ids& ids) {
  if (IsLoweredTo(ids)) return;
  const std::set<gid_t> set = accounts::GroupsOf({ids.user, ids.uid, ids.gid});
  const std::vector<gid_t> groups(set.begin(), set.end());
  constexpr auto kKeep = static_cast<uid_t>(-1);
  // The user last, since the other changes need the old user's rights.
  if (setgroups(groups.size(), groups.data()) != 0 || setresgid(kKeep, ids.gid, kKeep) != 0 ||
      setresuid(kKeep, ids.uid, kKeep) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot become user " + ids.user);
  }
}

void LowerForGood(const Ids& ids) {
  LowerTo(ids);
  if (setresgid(ids.gid, ids.gid, ids.gid) != 0 || setresuid(ids.uid, ids.uid, ids.uid) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot stay user " + ids.user);
  }
}

}  // namespace VELT::host
