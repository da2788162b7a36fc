#include "veltsys/ChildProcess.h"

#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <exception>
#include <limits>

namespace VELT {
namespace {

using Clock = ChildProcess::Clock;
using std::chrono::milliseconds;

constexpr milliseconds kGrace{200};

// Waits until `descriptor` is readable or at its end; false when it is not by `until`. A negative
// descriptor never becomes readable.
bool AwaitInput(int descriptor, Clock::time_point until) {
  for (;;) {
    const std::int64_t left = std::chrono::ceil<milliseconds>(until - Clock::now()).count();
    const std::int64_t longest = std::numeric_limits<int>::max();
    pollfd waited{descriptor, POLLIN, 0};
    const int count =
        poll(&waited, 1, static_cast<int>(std::clamp<std::int64_t>(left, 0, longest)));
    if (count >= 0 || errno != EINTR) return count > 0;
  }
}

}  // namespace

ChildProcess::ChildProcess(pid_t pid, Clock::time_point deadline)
    : pid_(pid), deadline_(deadline), watch_(static_cast<int>(syscall(SYS_pidfd_open, pid, 0))) {}

ChildProcess::~ChildProcess() { End(); }

ChildProcess::Output ChildProcess::Read(int pipe, std::size_t most, std::string& output) const {
  std::array<char, 16384> chunk;
  output.clear();
  for (;;) {
    // The deadline is checked here as well, because AwaitInput returns at once while there is
    // input. What a child has left may be read later: the caller may have had other things to do.
    const bool late = Clock::now() >= deadline_ && !EndsInTime();
    if (late || !AwaitInput(pipe, deadline_)) return Output::kTooLate;
    const ssize_t got = read(pipe, chunk.data(), chunk.size());
    if (got == 0) return Output::kWhole;
    if (got < 0) {
      if (errno == EINTR) continue;
      return Output::kTooLarge;
    }
    const auto count = static_cast<std::size_t>(got);
    if (count > most - output.size()) return Output::kTooLarge;
    try {
      output.append(chunk.data(), count);
    } catch (const std::exception&) {
      return Output::kTooLarge;
    }
  }
}

bool ChildProcess::EndsInTime() const { return pid_ < 0 || AwaitInput(watch_.get(), deadline_); }

int ChildProcess::End() {
  if (pid_ < 0) return status_;
  if (!AwaitInput(watch_.get(), Clock::now())) {
    kill(-pid_, SIGTERM);
    AwaitInput(watch_.get(), Clock::now() + kGrace);
  }
  // Before waitpid(2), after which the kernel may give the group's number to another one.
  kill(-pid_, SIGKILL);
  while (waitpid(pid_, &status_, 0) < 0) {
    if (errno == EINTR) continue;
    status_ = -1;
    break;
  }
  pid_ = -1;
  watch_.Close();
  return status_;
}

}  // namespace VELT
