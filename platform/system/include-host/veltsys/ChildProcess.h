// A child process with a deadline, for the other platform libraries.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>

#include "veltsys/Descriptor.h"

namespace VELT {

// Owns a child of this process that leads its own process group. The destructor ends the child and
// its group. For one thread at a time.
class ChildProcess {
 public:
  using Clock = std::chrono::steady_clock;
  enum class Output { kWhole, kTooLate, kTooLarge };

  // Nobody else may wait for `pid`.
  ChildProcess(pid_t pid, Clock::time_point deadline);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // False, with errno set, when the system gives no descriptor to watch the child with. End is then
  // the only operation that works.
  bool IsWatched() const { return watch_.get() >= 0; }

  // Reads from `pipe` into `output` until all writers have closed it. kTooLate: not all had at the
  // deadline, or at the call if that is later and the child has ended. kTooLarge: there were more
  // than `most` bytes, or memory was lacking, or reading failed. `output` is meaningful with kWhole
  // only.
  Output Read(int pipe, std::size_t most, std::string& output) const;

  // Waits until the child ends by itself, to the deadline at most. True when it has, or End was
  // called.
  bool EndsInTime() const;

  // Ends the child if it still runs: sends SIGTERM to its group, and SIGKILL if it has not ended a
  // short time later. What is left of the group is killed in any case. Returns the child's wait
  // status (wait(2)), the same at every call, or -1 when it is unknown.
  int End();

 private:
  pid_t pid_;  // -1 after End
  Clock::time_point deadline_;
  Descriptor watch_;  // a pidfd
  int status_ = -1;
};

}  // namespace VELT
