// When served files were last modified, for pages that ask about the same few files at every visit.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "veltsys/Descriptor.h"

namespace VELT {

// Asking an open file costs a third of looking its path up, so files stay open, a few dozen at most
// and only on the root's own file system, for others are there to be unmounted. It is noticed at
// once when a file is edited, replaced, moved or removed, and within a second when a folder above
// it is exchanged, a symbolic link turned, or a file of an overlay's lower layer covered. Several
// threads may call it at once.
class ModifyTimes {
 public:
  using TimePoint = std::chrono::system_clock::time_point;

  explicit ModifyTimes(std::string root,
                       std::function<TimePoint()> clock = std::chrono::system_clock::now);

  // Of the file at `path` below the root ("/pkg/app.js"), as decimal digits that count nanoseconds
  // since 1970; empty when there is no such regular file.
  std::string Of(std::string_view path);

 private:
  struct OpenFile {
    Descriptor descriptor;
    struct stat status;  // as the path was looked up
    std::string modify_time;
    TimePoint looked_up;
  };

  static bool IsCurrent(const OpenFile& file, TimePoint now);
  void Keep(std::string_view path, const struct stat& status, TimePoint now);

  const std::string root_;
  const std::function<TimePoint()> clock_;
  std::mutex mutex_;
  std::map<std::string, OpenFile, std::less<>> files_;
};

}  // namespace VELT
