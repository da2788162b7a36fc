#include "platform/webui/ModifyTimes.h"

#include <fcntl.h>

#include <cstddef>
#include <utility>

namespace VELT {
namespace {

constexpr std::size_t kMostFiles = 64;
constexpr std::chrono::seconds kPathTrusted{1};

// File systems round their times, to two seconds at worst. A file may change twice in that time
// with the same change time.
constexpr std::chrono::seconds kCoarsestTime{2};

std::string TextOf(const timespec& time) {
  const std::string nanoseconds = std::to_string(1'000'000'000 + time.tv_nsec);
  return std::to_string(time.tv_sec) + nanoseconds.substr(1);
}

// A write to a file and the removal of one of its names set its change time (inode(7)), and in
// practice a move does too.
bool IsUnchanged(const struct stat& before, const struct stat& now) {
  return before.st_dev == now.st_dev && before.st_ino == now.st_ino &&
         before.st_ctim.tv_sec == now.st_ctim.tv_sec &&
         before.st_ctim.tv_nsec == now.st_ctim.tv_nsec;
}

}  // namespace

ModifyTimes::ModifyTimes(std::string root, std::function<TimePoint()> clock)
    : root_(std::move(root)), clock_(std::move(clock)) {}

std::string ModifyTimes::Of(std::string_view path) {
  const std::lock_guard lock(mutex_);
  const TimePoint now = clock_();
  const auto known = files_.find(path);
  if (known != files_.end() && IsCurrent(known->second, now)) return known->second.modify_time;

  struct stat status;
  const bool exists =
      stat(std::string(root_).append(path).c_str(), &status) == 0 && S_ISREG(status.st_mode);
  if (known != files_.end()) {
    if (exists && IsUnchanged(known->second.status, status)) {
      known->second.looked_up = now;
      return known->second.modify_time;
    }
    files_.erase(known);
  }
  if (!exists) return "";
  Keep(path, status, now);
  return TextOf(status.st_mtim);
}

// If the clock was set back, the time since the look-up is unknown.
bool ModifyTimes::IsCurrent(const OpenFile& file, TimePoint now) {
  struct stat status;
  return now >= file.looked_up && now - file.looked_up < kPathTrusted &&
         fstat(file.descriptor.get(), &status) == 0 && IsUnchanged(file.status, status);
}

void ModifyTimes::Keep(std::string_view path, const struct stat& status, TimePoint now) {
  if (std::chrono::seconds(status.st_ctim.tv_sec) + kCoarsestTime >= now.time_since_epoch()) return;
  struct stat root;
  if (stat(root_.c_str(), &root) != 0 || root.st_dev != status.st_dev) return;
  Descriptor file(open(std::string(root_).append(path).c_str(), O_PATH | O_CLOEXEC));
  struct stat opened;
  if (fstat(file.get(), &opened) != 0 || !IsUnchanged(status, opened)) return;
  if (files_.size() == kMostFiles) files_.clear();
  files_.try_emplace(std::string(path),
                     OpenFile{std::move(file), status, TextOf(status.st_mtim), now});
}

}  // namespace VELT
