#include "ModifyTimes.h"

#include <fcntl.h>

#include <cstddef>
#include <cstdint>

namespace VELT {
namespace {

constexpr std::size_t kMostFiles = 64;
constexpr std::chrono::seconds kPathTrusted{1};

// File systems round their times, to two seconds at worst, so a second change may leave no mark on
// a file until then.
constexpr std::chrono::seconds kCoarsestTime{2};

std::string TextOf(const timespec& time) {
  return std::to_string(std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec);
}

bool IsSettled(const timespec& changed) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::seconds(changed.tv_sec) + kCoarsestTime < now;
}

}  // namespace

ModifyTimes::OpenFile::OpenFile(Descriptor& file, const struct stat& status, Clock::time_point now)
    : descriptor(file.Release()),
      changed(status.st_ctim),
      modify_time(TextOf(status.st_mtim)),
      looked_up(now) {}

// Writing to a file, moving it and removing a name of it all touch its change time (inode(7)).
bool ModifyTimes::OpenFile::IsUnchanged(Clock::time_point now) const {
  struct stat status;
  return now - looked_up < kPathTrusted && fstat(descriptor.get(), &status) == 0 &&
         status.st_ctim.tv_sec == changed.tv_sec && status.st_ctim.tv_nsec == changed.tv_nsec;
}

std::string ModifyTimes::Of(const std::string& path) {
  const Clock::time_point now = Clock::now();
  const std::lock_guard lock(mutex_);
  const auto known = files_.find(path);
  if (known != files_.end()) {
    if (known->second.IsUnchanged(now)) return known->second.modify_time;
    files_.erase(known);
  }
  Descriptor file(open(path.c_str(), O_PATH | O_CLOEXEC));
  struct stat status;
  if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return "";
  if (!IsSettled(status.st_ctim)) return TextOf(status.st_mtim);
  if (files_.size() == kMostFiles) files_.clear();
  return files_.try_emplace(path, file, status, now).first->second.modify_time;
}

}  // namespace VELT
