#include "veltsys/ForkedCall.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/system/ChildSetup.h"
#include "veltsys/ChildProcess.h"
#include "veltsys/Descriptor.h"
#include "veltsys/WriteAll.h"

namespace VELT {
namespace {

constexpr std::size_t kLargestResult = 65536;

// Closes all descriptors but the standard ones and `output`, and returns the new number of
// `output`; -1 on failure.
int KeepOnly(int output) {
  // syslog(3) would not know that its descriptor is closed, and would write to what gets its
  // number.
  closelog();
  const int kept = fcntl(output, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  if (kept < 0 || null < 0 || dup2(null, STDIN_FILENO) < 0 || dup2(null, STDOUT_FILENO) < 0) {
    return -1;
  }
  const auto number = static_cast<unsigned int>(kept);
  if (number > STDERR_FILENO + 1 && close_range(STDERR_FILENO + 1, number - 1, 0) != 0) return -1;
  return close_range(number + 1, ~0U, 0) == 0 ? kept : -1;
}

bool RunChild(const std::function<std::string()>& work, int output, pid_t parent) {
  ResetSignals();
  const rlimit no_core{0, 0};
  if (setpgid(0, 0) != 0 || setrlimit(RLIMIT_CORE, &no_core) != 0 ||
      prctl(PR_SET_DUMPABLE, 0) != 0 || !EndWithParent(parent)) {
    return false;
  }
  const int kept = KeepOnly(output);
  try {
    return kept >= 0 && WriteAll(kept, work());
  } catch (...) {
    return false;
  }
}

}  // namespace

ForkedCall CallInFork(const std::function<std::string()>& work, std::chrono::milliseconds limit,
                      std::string& result) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return ForkedCall::kNotStarted;
  const Descriptor input(ends[0]);
  Descriptor output(ends[1]);
  const auto deadline = ChildProcess::Clock::now() + limit;
  const pid_t parent = getpid();
  pid_t pid = -1;
  {
    const SignalsBlocked blocked;
    pid = fork();
    // _exit(2), since the child must not run the parent's destructors or write its buffers.
    if (pid == 0) _exit(RunChild(work, output.get(), parent) ? 0 : 1);
  }
  if (pid < 0) return ForkedCall::kNotStarted;
  setpgid(pid, pid);  // in both processes, so that it is done whichever runs first
  output.Close();
  ChildProcess child(pid, deadline);
  if (!child.IsWatched()) return ForkedCall::kNotStarted;
  switch (child.Read(input.get(), kLargestResult, result)) {
    case ChildProcess::Output::kWhole:
      break;
    case ChildProcess::Output::kTooLate:
      return ForkedCall::kTooLate;
    case ChildProcess::Output::kTooLarge:
      return ForkedCall::kDied;
  }
  if (!child.EndsInTime()) return ForkedCall::kTooLate;
  const int status = child.End();
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? ForkedCall::kReturned : ForkedCall::kDied;
}

}  // namespace VELT
