#include "host/process/IdleProcessors.h"

#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <string>

namespace VELT::host {
namespace {

// The kernel counts in hundredths of a second.
constexpr std::chrono::milliseconds kLongEnough{60};

}  // namespace

IdleProcessors::Reading IdleProcessors::Read() {
  const auto now = Clock::now();
  std::ifstream file("/proc/stat");
  std::string label;
  std::int64_t user = 0;
  std::int64_t nice = 0;
  std::int64_t system = 0;
  std::int64_t idle = 0;
  std::int64_t waiting = 0;  // for a disk
  if (!(file >> label >> user >> nice >> system >> idle >> waiting)) {
    return {now, now.time_since_epoch()};
  }
  return {now, std::chrono::microseconds((idle + waiting) * 1'000'000 / sysconf(_SC_CLK_TCK))};
}

bool IdleProcessors::HaveTime() {
  if (last_ && Clock::now() - last_->time < kLongEnough) return false;
  const Reading now = Read();
  const bool have = last_ && (now.idle - last_->idle) * 2 >= now.time - last_->time;
  last_ = now;
  return have;
}

}  // namespace VELT::host
