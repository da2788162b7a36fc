// A child process that must be done by a deadline, for the other platform libraries.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>

#include "veltsys/Descriptor.h"

namespace VELT {

// Owns a child of this process that leads a process group of its own; when it goes, so do the child
// and its group. For one thread at a time.
class ChildProcess {
 public:
  using Clock = std::chrono::steady_clock;
  enum class Output { kWhole, kTooLate, kTooMuch };

  // `pid` has not been waited for, and nobody else will.
  ChildProcess(pid_t pid, Clock::time_point deadline);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // False, with errno set: the system gave no means to watch the child, which can only be ended.
  bool IsWatched() const { return watch_.get() >= 0; }

  // Reads from `pipe` into `output` until all its writers have closed it. kTooLate: some had not at
  // the deadline; kTooMuch: it was more than `most` bytes, or than there is memory for. `output` is
  // of no use then.
  Output Read(int pipe, std::size_t most, std::string& output) const;

  // Waits for the child's own end, to the deadline at most. True when it came, or End was called.
  bool EndsInTime() const;

  // Ends the child, if it still runs: SIGTERM to its group, and SIGKILL when it is not gone a short
  // while later. What is left of the group is killed in any case. Returns the child's wait status
  // (wait(2)), the same at every call, or -1 when it can't be had.
  int End();

 private:
  pid_t pid_;  // -1 when it has been waited for
  Clock::time_point deadline_;
  Descriptor watch_;
  int status_ = -1;
};

}  // namespace VELT
