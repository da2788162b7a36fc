// What `velt-sharing check` says of files by link: whether the folders can be shared here.
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "apps/files/Configuration.h"
#include "apps/files/Ids.h"
#include "apps/files/Inbox.h"
#include "apps/files/OpenAt2.h"
#include "apps/files/Refusal.h"
#include "apps/files/Spool.h"
#include "apps/files/Tree.h"
#include "veltsys/Descriptor.h"
#include "veltwebapi/ServiceCheck.h"

namespace VELT::files {
namespace {

using State = ServiceCheck::State;

// Hard links are for one mount only, even where the file system is the same.
std::uint64_t MountOf(int handle) {
  struct statx status {};
  return statx(handle, "", AT_EMPTY_PATH, STATX_MNT_ID, &status) == 0 ? status.stx_mnt_id : 0;
}

// The accounts of people. A directory service may not tell of all that it has.
std::vector<Account> People() {
  constexpr uid_t kFirst = 1000;
  constexpr uid_t kNobody = 65534;
  constexpr std::size_t kMost = 1000;
  std::vector<uid_t> ids;
  setpwent();
  for (const passwd* row = getpwent(); row != nullptr && ids.size() < kMost; row = getpwent()) {
    if (row->pw_uid >= kFirst && row->pw_uid != kNobody) ids.push_back(row->pw_uid);
  }
  endpwent();
  std::vector<Account> people;
  for (const uid_t uid : ids) {
    if (auto account = FindAccount(uid)) people.push_back(std::move(*account));
  }
  return people;
}

struct Reach {
  int accounts = 0;   // that can use the root
  std::string fault;  // of one that can't
};

// Whether the account can share what is in its root.
void TryRoot(const Root& root, const Account& account, const Spool& spool, Reach& reach) {
  const IdsGuard owner(account);
  std::string fault =
      " is not on the mount of the spool, so the web server gets no file of it: both must be on "
      "one file system, and below one of the ReadWritePaths= if a unit protects the system";
  try {
    const Found folder = FindRoot(root);
    Find(folder, "");
    if (MountOf(folder.handle.get()) == MountOf(spool.folder())) {
      ++reach.accounts;
      return;
    }
  } catch (const Refusal&) {
    const bool refused = faccessat(AT_FDCWD, root.path.c_str(), R_OK | X_OK, AT_EACCESS) != 0;
    fault = std::string(": ") + (refused ? strerror(errno) : "a symbolic link is in its path");
  }
  if (reach.fault.empty()) reach.fault = account.name + ": " + root.path + fault;
}

void CheckRoots(const Configuration& configuration, const Spool& spool, ServiceCheck& check) {
  std::map<std::string, Reach> roots;
  for (const Account& account : People()) {
    for (const Root& root : configuration.RootsOf(account)) {
      TryRoot(root, account, spool, roots[root.name]);
    }
  }
  for (const auto& [name, reach] : roots) {
    const State state = reach.accounts == 0   ? State::kFailed
                        : reach.fault.empty() ? State::kOk
                                              : State::kWarning;
    check.Add(state, "files, root " + name,
              "for " + std::to_string(reach.accounts) + " accounts" +
                  (reach.fault.empty() ? "" : ", not for " + reach.fault));
  }
  if (roots.empty()) {
    check.Add(configuration.has_roots() ? State::kWarning : State::kOk, "files, roots",
              "no account may share anything: see \"roots\" in files.json");
  }
}

// What is wrong with the spool; empty: nothing.
std::string FaultOf(const Spool& spool) {
  {
    const IdsGuard root = IdsGuard::Root();
    const Descriptor file(openat(spool.folder(), ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
    if (file.get() < 0) {
      return std::string("can't be written to: ") + strerror(errno) +
             (errno == EROFS ? "; the unit's ReadWritePaths= must name it or a folder above it"
                             : "");
    }
  }
  constexpr uid_t kNobody = 65534;
  const IdsGuard stranger(Account{"", kNobody, getegid(), {getegid()}});
  if (faccessat(AT_FDCWD, spool.PathOf("").c_str(), X_OK, AT_EACCESS) != 0) {
    return "can't be entered by the web server's group: chmod a+x it and the folders above it";
  }
  return "";
}

void CheckSpool(const Configuration& configuration, const Spool& spool, ServiceCheck& check) {
  const std::string fault = FaultOf(spool);
  const bool accel = !configuration.accel_prefix().empty();
  check.Add(fault.empty() ? State::kOk : State::kFailed, "files, spool",
            configuration.spool() + " " +
                (!fault.empty() ? fault
                 : accel        ? "is for nginx (X-Accel-Redirect)"
                         : "is for lighttpd or Apache (X-Sendfile); nginx needs \"accel_prefix\""));
  constexpr double kMegabyte = 1e6;
  const auto room = static_cast<double>(RoomOn(spool.folder(), configuration));
  check.Add(room > 0 ? State::kOk : State::kWarning, "files, space",
            room > 0 ? "uploads have room for " +
                           std::to_string(static_cast<std::uint64_t>(room / kMegabyte)) + " MB"
                     : "uploads are refused: no more is free than the reserve");
}

void Check(ServiceCheck& check) {
  if (OpenHandle(AT_FDCWD, "/", 0, 0).get() < 0) {
    return check.Add(State::kFailed, "files, openat2", kNoOpenAt2);
  }
  const Configuration configuration;
  if (const std::string& fault = configuration.fault(); !fault.empty()) {
    check.Add(State::kWarning, "files, configuration", fault);
  }
  if (!configuration.has_roots() && configuration.spool().empty()) return;
  std::optional<Spool> spool;
  try {
    spool.emplace(configuration);
  } catch (const Refusal&) {
    return check.Add(State::kFailed, "files, spool",
                     configuration.spool() +
                         " must be a folder that belongs to root, that nobody else may write " +
                         "to, with no symbolic link in its path");
  }
  CheckSpool(configuration, *spool, check);
  CheckRoots(configuration, *spool, check);
}

}  // namespace
}  // namespace VELT::files

extern "C" __attribute__((visibility("default"))) void CheckService(VELT::ServiceCheck& check) {
  try {
    VELT::files::Check(check);
  } catch (const VELT::files::Refusal&) {
    check.Add(VELT::ServiceCheck::State::kFailed, "files",
              "the ids of another account can't be taken: the service must be started as root");
  }
}
