#include "platform/system/ChildSetup.h"

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>

namespace VELT {
namespace {

void SetMask(std::uint64_t mask, std::uint64_t* before) {
  syscall(SYS_rt_sigprocmask, SIG_SETMASK, &mask, before, sizeof mask);
}

}  // namespace

SignalsBlocked::SignalsBlocked() { SetMask(~std::uint64_t{0}, &before_); }

SignalsBlocked::~SignalsBlocked() { SetMask(before_, nullptr); }

void ResetSignals() {
  // The kernel's structure for an action. All zeros mean the default.
  const std::uint64_t action[4] = {};
  for (int signal = 1; signal < _NSIG; ++signal) {
    syscall(SYS_rt_sigaction, signal, action, nullptr, sizeof(std::uint64_t));
  }
  SetMask(0, nullptr);
}

bool EndWithParent(pid_t parent) {
  return syscall(SYS_prctl, PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0) == 0 &&
         syscall(SYS_getppid) == parent;
}

}  // namespace VELT
