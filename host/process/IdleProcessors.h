// Whether the machine's processors have time left.
#pragma once

#include <chrono>
#include <optional>

namespace VELT::host {

class IdleProcessors {
 public:
  // Looks back over the time since the last call that looked, which must be long enough to tell. True
  // when half a processor or more was idle then, false when less, or when it is too early
  // to tell, as at the first call. Where the kernel does not say (proc(5)), all count as idle.
  bool HaveTime();
  // Forgets the time before.
  void Reset() { last_.reset(); }

 private:
  using Clock = std::chrono::steady_clock;
  struct Reading {
    Clock::time_point time;
    Clock::duration idle;  // of all processors together
  };
  static Reading Read();

  std::optional<Reading> last_;
};

}  // namespace VELT::host
