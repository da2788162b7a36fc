// A PAM module that fails in the way that an account's name says, and leaves all other accounts to
// the modules after it.
#include <security/pam_modules.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <iterator>
#include <string>

namespace {

// Whether the process is isolated as a process for PAM must be.
bool IsApart() {
  sigset_t blocked;
  sigprocmask(SIG_SETMASK, nullptr, &blocked);
  rlimit core{};
  getrlimit(RLIMIT_CORE, &core);
  int with_parent = 0;
  prctl(PR_GET_PDEATHSIG, &with_parent);
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return getpgrp() == getpid() && sigisemptyset(&blocked) == 1 && core.rlim_max == 0 &&
         prctl(PR_GET_DUMPABLE) == 0 && with_parent == SIGKILL &&
         std::signal(SIGPIPE, SIG_DFL) == SIG_DFL &&
         // Three, the pipe for the result, and the folder itself.
         std::distance(begin(descriptors), end(descriptors)) == 5;
}

int Fail(pam_handle_t* handle, const std::string& name) {
  if (name == "hangs" || name == "ignores SIGTERM") {
    if (name != "hangs") std::signal(SIGTERM, SIG_IGN);
    if (fork() >= 0) pause();  // parent and child
  }
  if (name == "crashes") raise(SIGSEGV);
  if (name == "exits") _exit(0);
  if (name == "renames" && IsApart()) return pam_set_item(handle, PAM_USER, "alice");
  return PAM_IGNORE;
}

}  // namespace

extern "C" int pam_sm_authenticate(pam_handle_t* handle, int, int, const char**) {
  const char* name = nullptr;
  pam_get_user(handle, &name, nullptr);
  const int status = Fail(handle, name);
  return status == PAM_SUCCESS ? PAM_IGNORE : status;
}

extern "C" int pam_sm_setcred(pam_handle_t*, int, int, const char**) { return PAM_IGNORE; }
