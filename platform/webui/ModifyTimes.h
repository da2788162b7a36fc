// The modification times of the web server's files, for pages that need those of the same few files
// at every visit.
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

// fstat(2) of an open file takes a third of the time of a path look-up, so files stay open: a few
// dozen at most, and only on the root's own file system, since an open file would keep another one
// from being unmounted. A file that is edited, replaced, moved or removed is noticed at once.
// Within a second it is noticed that a folder above the file was replaced, a symbolic link changed,
// or a file of an overlay's lower layer was hidden. Several threads may call it at once.
class ModifyTimes {
 public:
  using TimePoint = std::chrono::system_clock::time_point;

  explicit ModifyTimes(std::string root,
                       std::function<TimePoint()> clock = std::chrono::system_clock::now);

  // The modification time of the file at `path` below the root ("/pkg/app.js"), as the decimal
  // number of nanoseconds since 1970; empty when there is no such regular file.
  std::string Of(std::string_view path);

 private:
  struct OpenFile {
    Descriptor descriptor;
    struct stat status;  // when the path was looked up
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
