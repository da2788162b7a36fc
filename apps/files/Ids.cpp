#include "apps/files/Ids.h"

#include <grp.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <utility>

#include "apps/files/Refusal.h"
#include "veltsys/Accounts.h"
#include "veltsys/ResultCache.h"
#include "veltsys/User.h"

namespace VELT::files {
namespace {

bool HasOneIdOnly() {
  static const bool one = [] {
    std::ifstream map("/proc/self/uid_map");
    unsigned long inside = 0;
    unsigned long outside = 0;
    unsigned long count = 0;
    unsigned long sum = 0;
    while (map >> inside >> outside >> count) sum += count;
    return sum == 1;
  }();
  return one;
}

std::vector<gid_t> PresentGroups() {
  std::vector<gid_t> groups(static_cast<std::size_t>(std::max(0, getgroups(0, nullptr))));
  if (getgroups(static_cast<int>(groups.size()), groups.data()) < 0) groups.clear();
  return groups;
}

std::optional<Account> LookUp(uid_t uid) {
  const auto user = accounts::FindUser(uid);
  if (!user) return std::nullopt;
  const std::set<gid_t> groups = accounts::GroupsOf(*user);
  return Account{user->name, user->uid, user->gid, {groups.begin(), groups.end()}};
}

}  // namespace

bool Account::IsIn(const std::string& group) const {
  const auto id = accounts::FindGroup(group);
  return id && std::find(groups.begin(), groups.end(), *id) != groups.end();
}

std::optional<Account> FindAccount(uid_t uid) {
  static ResultCache<uid_t, Account> accounts(100);
  return accounts.Get(uid, [uid] { return LookUp(uid); });
}

// Goes through root, which alone may change the groups. The user id comes last, because the other
// steps need root.
bool IdsGuard::Become(const Ids& target) {
  const bool as_root = geteuid() == 0 || seteuid(0) == 0;
  const bool grouped =
      !target.groups ||
      (setgroups(target.groups->size(), target.groups->data()) == 0 && setegid(target.gid) == 0);
  return as_root && grouped && (target.uid == 0 || seteuid(target.uid) == 0);
}

IdsGuard::IdsGuard(const Account& account)
    : IdsGuard({account.uid, account.gid, account.groups},
               {geteuid(), getegid(), PresentGroups()}) {}

IdsGuard IdsGuard::Root() { return {{0, 0, {}}, {geteuid(), 0, {}}}; }

IdsGuard::IdsGuard(const Ids& target, Ids before) : before_(std::move(before)) {
  if (HasOneIdOnly() || Become(target)) return;
  syslog(LOG_ERR, "files: cannot take the ids of uid %u: %s", target.uid, strerror(errno));
  if (!Become(before_)) std::abort();
  throw Refusal(kUnavailable);
}

IdsGuard::~IdsGuard() {
  if (HasOneIdOnly() || Become(before_)) return;
  syslog(LOG_CRIT, "files: cannot return to uid %u: %s", before_.uid, strerror(errno));
  std::abort();
}

}  // namespace VELT::files
