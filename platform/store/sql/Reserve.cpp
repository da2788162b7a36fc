#include "platform/store/sql/Reserve.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>

namespace VELT::sharing::db {

// The write-ahead log is copied into the database when it has 4 MiB. Before that, each may need as
// much again.
constexpr off_t kWhole = off_t{8} << 20;
constexpr off_t kBlock = 4096;

void Reserve::Fill() const {
  if (path_.empty()) return;
  struct stat old {};
  const bool exists = stat(path_.c_str(), &old) == 0;
  if (exists && old.st_size >= kWhole) return;
  // The old file may be that of another user: a worker is root during a login.
  if (exists) unlink(path_.c_str());
  const int file = open(path_.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
  if (file < 0) return;
  struct statvfs system {};
  if (fstatvfs(file, &system) == 0) {
    const auto free = static_cast<off_t>(
        std::min<std::uint64_t>(1ULL * system.f_bavail * system.f_frsize, 4 * kWhole));
    const off_t size = std::min(free, std::max({free / 4, old.st_size, off_t{given_up_}}));
    // On failure some file systems keep a part of it.
    if (size >= kBlock && posix_fallocate(file, 0, size / kBlock * kBlock) != 0 &&
        ftruncate(file, 0) != 0) {
      unlink(path_.c_str());
    }
  }
  close(file);
}

void Reserve::GiveUp() {
  if (path_.empty()) return;
  struct stat old {};
  if (stat(path_.c_str(), &old) == 0) given_up_ = old.st_size;
  unlink(path_.c_str());
}

}  // namespace VELT::sharing::db
