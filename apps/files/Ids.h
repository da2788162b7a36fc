// The account whose rights the process has. Files are opened with the rights of the account that
// shares them, so that the kernel decides what it may read and write.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace VELT::files {

struct Account {
  std::string name;
  uid_t uid;
  gid_t gid;
  std::vector<gid_t> groups;

  bool IsIn(const std::string& group) const;
};

// Nothing when the user database has no such account. A found account is cached for a second.
std::optional<Account> FindAccount(uid_t uid);

// Gives the process, all its threads included, the effective ids and groups of an account, or root's
// effective ids, until the object ends. The process must have root as real or saved id. Guards don't
// nest. Throws Refusal, with the ids as they were, when the process can't take the new ones. Aborts
// the process when it can't return to its own: it must not serve another request with foreign ids.
//
// A user namespace that maps one id only, as in the demonstration of an ordinary user, has no other
// account to become, and every file is that user's: a guard then does nothing.
class IdsGuard {
 public:
  explicit IdsGuard(const Account& account);
  static IdsGuard Root();
  ~IdsGuard();
  IdsGuard(const IdsGuard&) = delete;
  IdsGuard& operator=(const IdsGuard&) = delete;

 private:
  // Without groups: the present ones stay, and the group too.
  struct Ids {
    uid_t uid;
    gid_t gid = 0;
    std::optional<std::vector<gid_t>> groups;
  };
  IdsGuard(const Ids& target, Ids before);
  static bool Become(const Ids& target);

  const Ids before_;
};

}  // namespace VELT::files
