#include "veltsys/Accounts.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "platform/system/UserDatabase.h"
#include "veltsys/ResultCache.h"

namespace VELT::accounts {
namespace {

// A file that is changed or replaced gets another one.
struct FileVersion {
  ino_t inode = 0;
  std::int64_t changed = 0;  // nanoseconds
  bool operator==(const FileVersion&) const = default;
};

FileVersion VersionOf(const char* path) {
  struct stat status {};
  if (stat(path, &status) != 0) return {};
  return {status.st_ino,
          std::int64_t{status.st_ctim.tv_sec} * 1'000'000'000 + status.st_ctim.tv_nsec};
}

}  // namespace

std::optional<VELTUSER> FindUser(const std::string& name) {
  return FindUserBy([&name](passwd* record, char* buffer, std::size_t size, passwd** found) {
    return getpwnam_r(name.c_str(), record, buffer, size, found);
  });
}

std::optional<VELTUSER> FindUser(uid_t uid) {
  return FindUserBy([uid](passwd* record, char* buffer, std::size_t size, passwd** found) {
    return getpwuid_r(uid, record, buffer, size, found);
  });
}

std::optional<gid_t> FindGroup(const std::string& name) {
  std::optional<gid_t> id;
  LookUp<group>(
      [&name](group* record, char* buffer, std::size_t size, group** found) {
        return getgrnam_r(name.c_str(), record, buffer, size, found);
      },
      [&id](const group& found) { id = found.gr_gid; });
  return id;
}

std::optional<VELTUSER> FindUserCached(uid_t uid) {
  thread_local FileVersion passwd;
  thread_local ResultCache<uid_t, VELTUSER> users(1000);
  const FileVersion current = VersionOf("/etc/passwd");
  if (std::exchange(passwd, current) != current) users.Clear();
  return users.Get(uid, [uid] { return FindUser(uid); });
}

std::set<gid_t> GroupsOf(const VELTUSER& user) {
  std::vector<gid_t> ids(32);
  int count = static_cast<int>(ids.size());
  // On failure getgrouplist(3) sets `count` to the size that it needs. The account may get more
  // groups before the next call.
  while (getgrouplist(user.name.c_str(), user.gid, ids.data(), &count) < 0) {
    if (static_cast<std::size_t>(count) <= ids.size()) return {user.gid};
    ids.resize(static_cast<std::size_t>(count));
  }
  return {ids.begin(), ids.begin() + count};
}

bool IsAdministrator(const VELTUSER& user) {
  if (user.uid == 0) return true;
  // The user's groups are looked up, because a directory service may not list a group's members.
  const auto administrators = FindGroup("administrators");
  return administrators.has_value() && GroupsOf(user).contains(*administrators);
}

}  // namespace VELT::accounts
