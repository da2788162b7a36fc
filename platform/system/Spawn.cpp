// posix_spawn(3) can't change ids, and a fork copies the page tables of a large process. So this
// makes the child as posix_spawn does: it borrows our memory, on a stack of its own, while we
// stand still until it runs the program. Until then it may make system calls only, and these not
// through the C library, which would carry a change of ids over to all threads of the parent.
#include "Spawn.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

#include "ChildSetup.h"

namespace VELT {
namespace {

constexpr rlim_t kMemory = rlim_t{1} << 30;
constexpr rlim_t kFileSize = rlim_t{16} << 20;
constexpr rlim_t kOpenFiles = 64;

struct Child {
  const ProgramStart& start;
  pid_t parent;
  int error;  // an errno value: what kept the program from running
};

bool SetDescriptors(int output) {
  // The output first: it may be 0, when the caller runs without standard input.
  const bool moved = output == STDOUT_FILENO
                         ? syscall(SYS_fcntl, output, F_SETFD, 0) == 0
                         : syscall(SYS_dup3, output, STDOUT_FILENO, 0) == STDOUT_FILENO;
  if (!moved) return false;
  const long null = syscall(SYS_openat, AT_FDCWD, "/dev/null", O_RDONLY);
  if (null < 0) return false;
  if (null != STDIN_FILENO && syscall(SYS_dup3, null, STDIN_FILENO, 0) < 0) return false;
  return syscall(SYS_close_range, STDERR_FILENO + 1, ~0U, 0) == 0;
}

bool Limit(int resource, rlim_t most) {
  rlimit limit{};
  if (syscall(SYS_prlimit64, 0, resource, nullptr, &limit) != 0) return false;
  limit.rlim_cur = std::min(limit.rlim_cur, most);
  limit.rlim_max = std::min(limit.rlim_max, most);
  return syscall(SYS_prlimit64, 0, resource, &limit, nullptr) == 0;
}

bool SetLimits(const ProgramStart& start) {
  return Limit(RLIMIT_CPU, static_cast<rlim_t>(start.processor_time.count())) &&
         Limit(RLIMIT_AS, kMemory) && Limit(RLIMIT_NOFILE, kOpenFiles) &&
         Limit(RLIMIT_FSIZE, kFileSize) && Limit(RLIMIT_CORE, 0);
}

bool DropRights(uid_t uid, gid_t gid) {
  constexpr auto kKeep = static_cast<uid_t>(-1);
  // Root's rights, which lie in the real and the saved id, serve to give all of them up.
  const bool is_root = syscall(SYS_setresuid, kKeep, 0, kKeep) == 0;
  if (syscall(SYS_setgroups, 0, nullptr) != 0 && is_root && uid != 0) return false;
  if (syscall(SYS_setresgid, gid, gid, gid) != 0) return false;
  if (syscall(SYS_setresuid, uid, uid, uid) != 0) return false;
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
  // Without the second a program of root's would have them back.
  return syscall(SYS_capset, &header, none) == 0 &&
         syscall(SYS_prctl, PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
}

int RunChild(void* argument) {
  auto& child = *static_cast<Child*>(argument);
  const ProgramStart& start = child.start;
  ResetSignals();
  if (syscall(SYS_setpgid, 0, 0) == 0 && SetDescriptors(start.output) && SetLimits(start) &&
      DropRights(start.uid, start.gid) && EndWithParent(child.parent)) {
    syscall(SYS_execve, start.path, start.argv, environ);
  }
  child.error = errno;
  return 127;
}

}  // namespace

pid_t StartProgram(const ProgramStart& start) {
  alignas(16) std::array<char, 16384> stack;
  Child child{start, getpid(), 0};
  // The child's new ids bar others that have them from its memory, which is ours: a flag of the
  // memory's, to be put back when the child has left it and not before.
  const int dumpable = prctl(PR_GET_DUMPABLE);
  pid_t pid = -1;
  {
    const SignalsBlocked blocked;
    pid = clone(RunChild, stack.data() + stack.size(), CLONE_VM | CLONE_VFORK | SIGCHLD, &child);
    if (pid < 0) child.error = errno;
    if (dumpable == 1) prctl(PR_SET_DUMPABLE, 1);
  }
  if (child.error == 0) return pid;
  while (pid > 0 && waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
  }
  errno = child.error;
  return -1;
}

}  // namespace VELT
