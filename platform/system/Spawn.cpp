// posix_spawn(3) can't change ids, and fork(2) copies the page tables, which is slow in a large
// process. So this creates the child as posix_spawn does: it shares the parent's memory, on its own
// stack, and the parent is suspended until the child runs the program. Until then the child may
// only make system calls, and without the C library, which would change the ids of all the parent's
// threads.
#include "platform/system/Spawn.h"

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

#include "platform/system/ChildSetup.h"

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
  // The output first, since it may be descriptor 0 if the caller has no standard input.
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
  // The real or saved id may be root's. Only root can give up all rights, groups for instance.
  const bool is_root = syscall(SYS_setresuid, kKeep, 0, kKeep) == 0;
  if (syscall(SYS_setgroups, 0, nullptr) != 0 && is_root && uid != 0) return false;
  if (syscall(SYS_setresgid, gid, gid, gid) != 0) return false;
  if (syscall(SYS_setresuid, uid, uid, uid) != 0) return false;
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
  // Without the second, execve(2) would give a program of root all capabilities again.
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
  // When the child changes its ids, the kernel clears the dumpable flag of the memory, which is
  // ours too. The flag is set again when the child no longer uses the memory.
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
