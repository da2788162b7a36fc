// When served files were last modified, for pages that ask about the same few files at every visit.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <map>
#include <mutex>
#include <string>

#include "veltsys/Descriptor.h"

namespace VELT {

// Asking an open file costs a third of looking its path up, so files stay open, a few dozen at
// most. It is noticed at once when a file is edited, replaced, moved or removed, and within a
// second when a folder above it is exchanged or a symbolic link turned. Several threads may call it
// at once.
class ModifyTimes {
 public:
  // In nanoseconds since 1970; empty when there is no such regular file.
  std::string Of(const std::string& path);

 private:
  using Clock = std::chrono::steady_clock;

  struct OpenFile {
    OpenFile(Descriptor& file, const struct stat& status, Clock::time_point now);
    bool IsUnchanged(Clock::time_point now) const;

    Descriptor descriptor;
    timespec changed;
    std::string modify_time;
    Clock::time_point looked_up;
  };

  std::mutex mutex_;
  std::map<std::string, OpenFile> files_;
};

}  // namespace VELT
