#include "apps/files/Spool.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <string_view>
#include <tuple>

#include "apps/files/Ids.h"
#include "apps/files/OpenAt2.h"
#include "apps/files/Refusal.h"

namespace VELT::files {
namespace {

constexpr const char* kOut = "out";
constexpr std::time_t kLongestHandOver = 60;  // seconds

Descriptor OpenSpool(const std::string& path) {
  Descriptor folder =
      OpenHandle(AT_FDCWD, path, O_DIRECTORY, RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS);
  struct stat status {};
  if (!path.starts_with('/') || folder.get() < 0 || fstat(folder.get(), &status) != 0 ||
      status.st_uid != 0 || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    syslog(LOG_ERR, "files: the spool %s is no folder of root's alone", path.c_str());
    throw Refusal(kUnavailable);
  }
  return folder;
}

// Names begin with the time at which they were made.
std::time_t TimeOf(std::string_view name) {
  std::time_t time = 0;
  std::from_chars(name.data(), name.data() + name.size(), time, 16);
  return time;
}

std::string TimedName() {
  std::array<char, 16> digits{};
  char* const end =
      std::to_chars(digits.data(), digits.data() + digits.size(), std::time(nullptr), 16).ptr;
  return std::string(kOut) + "/" + std::string(digits.data(), end) + "-" + RandomName();
}

// Removes what dead workers have left behind. Needs root's ids.
void Sweep(int spool) {
  using Clock = std::chrono::steady_clock;
  static Clock::time_point next;
  if (Clock::now() < next) return;
  next = Clock::now() + std::chrono::seconds(kLongestHandOver);
  const std::time_t now = std::time(nullptr);
  const int folder = openat(spool, kOut, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(folder < 0 ? nullptr : fdopendir(folder),
                                                   closedir);
  while (const dirent* entry = stream ? readdir(stream.get()) : nullptr) {
    if (entry->d_type == DT_REG && TimeOf(entry->d_name) < now - kLongestHandOver) {
      unlinkat(dirfd(stream.get()), entry->d_name, 0);
    }
  }
}

void RemoveAsRoot(const std::string& path) {
  try {
    const IdsGuard root = IdsGuard::Root();
    unlink(path.c_str());
  } catch (const Refusal&) {  // logged already; Sweep removes it later
  }
}

}  // namespace

std::string RandomName() {
  constexpr char kDigits[] = "0123456789abcdef";
  std::array<unsigned char, 16> bytes{};
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) std::abort();
  std::string name;
  for (const unsigned char byte : bytes) name += {kDigits[byte >> 4], kDigits[byte & 15]};
  return name;
}

Spool::Spool(const Configuration& configuration)
    : configuration_(configuration), folder_(OpenSpool(configuration.spool())) {}

void Spool::MakeFolder(const std::string& name, For whom) const {
  struct stat status {};
  if (fstatat(folder(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return;
  const uid_t uid = geteuid();
  const gid_t gid = getegid();
  const IdsGuard root = IdsGuard::Root();
  const mode_t mode = whom == For::kRoot ? 0711 : 0710;
  if ((mkdirat(folder(), name.c_str(), mode) == 0 || errno == EEXIST) &&
      (whom == For::kRoot ||
       fchownat(folder(), name.c_str(), uid, gid, AT_SYMLINK_NOFOLLOW) == 0)) {
    return;
  }
  syslog(LOG_ERR, "files: cannot make %s: %s", PathOf(name).c_str(), strerror(errno));
  throw Refusal(kUnavailable);
}

std::string Spool::HandOver(const Descriptor& file, const std::string& part,
                            APIResponse& response) const {
  return HeaderFor(Offer(file, response).substr(PathOf("").size()), part);
}

// All downloads of a file in one second share a link, unless the file changes. Each path that the web
// server opens costs it a descriptor for some seconds, and a file can have only so many links.
std::string Spool::Offer(const Descriptor& file, APIResponse& response) const {
  using Version = std::tuple<dev_t, ino_t, off_t, std::time_t, long>;
  using Clock = std::chrono::steady_clock;
  static Clock::time_point end;
  static std::map<Version, std::string> offered;
  if (const auto now = Clock::now(); now >= end) {
    offered.clear();
    end = now + std::chrono::seconds(1);
  }
  struct stat status {};
  if (fstat(file.get(), &status) != 0) throw Refusal(kUnavailable);
  std::string& path = offered[{status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec,
                               status.st_mtim.tv_nsec}];
  if (path.empty()) path = Link(file, response);
  return path;
}

std::string Spool::Link(const Descriptor& file, APIResponse& response) const {
  MakeFolder(kOut, For::kRoot);
  const std::string name = TimedName();
  {
    const IdsGuard root = IdsGuard::Root();
    Sweep(folder());
    const std::string source = "/proc/self/fd/" + std::to_string(file.get());
    if (linkat(AT_FDCWD, source.c_str(), folder(), name.c_str(), AT_SYMLINK_FOLLOW) != 0) {
      syslog(LOG_ERR, "files: cannot hand a file to the web server in %s: %s",
             configuration_.spool().c_str(), strerror(errno));
      throw Refusal(kUnavailable);
    }
  }
  response.Afterwards([path = PathOf(name)] { RemoveAsRoot(path); });
  if (faccessat(folder(), name.c_str(), R_OK, AT_EACCESS) != 0) {
    syslog(LOG_WARNING, "files: uid %u may not read a shared file, so the web server can't send it",
           geteuid());
    throw Refusal(kUnavailable, "the web server may not read this file");
  }
  return PathOf(name);
}

std::string Spool::HeaderFor(const std::string& name, const std::string& part) const {
  const std::string& prefix = configuration_.accel_prefix();
  if (!prefix.empty()) return "X-Accel-Redirect: " + prefix + name + "\r\n";
  const bool is_whole = part.empty();
  return (is_whole ? "X-Sendfile: " : "X-Sendfile2: ") + PathOf(name) +
         (is_whole ? "" : " " + part) + "\r\n";
}

std::string Spool::TagOf(const struct stat& status) const {
  const bool is_nginx = !configuration_.accel_prefix().empty();
  std::array<char, 96> text{};
  std::snprintf(text.data(), text.size(), is_nginx ? "\"%lx-%lx\"" : "\"%lx-%lx-%lx\"",
                status.st_mtim.tv_sec, status.st_size, status.st_mtim.tv_nsec);
  return text.data();
}

}  // namespace VELT::files
