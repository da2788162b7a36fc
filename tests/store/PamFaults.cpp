// A PAM module that fails in the way that an account's name says, and leaves all other accounts to
// the modules after it.
#include <security/pam_ext.h>
#include <security/pam_modules.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
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

// Asks `count` questions, a hidden and a shown one in turn, whose right answers are their numbers.
int Ask(pam_handle_t* handle, int count) {
  for (int number = 2; number < count + 2; ++number) {
    char* answer = nullptr;
    const int style = number % 2 == 0 ? PAM_PROMPT_ECHO_OFF : PAM_PROMPT_ECHO_ON;
    if (pam_prompt(handle, style, &answer, "Question %d: ", number) != PAM_SUCCESS) {
      return PAM_AUTH_ERR;
    }
    const bool right = answer != nullptr && std::to_string(number) == answer;
    std::free(answer);
    if (!right) return PAM_AUTH_ERR;
  }
  return PAM_SUCCESS;
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

// What stands in the file whose path the module's argument is is the account that may not be used.
int Admit(pam_handle_t* handle, const char* path) {
  const char* name = nullptr;
  pam_get_user(handle, &name, nullptr);
  std::string refused;
  std::ifstream(path) >> refused;
  return refused == name ? PAM_ACCT_EXPIRED : PAM_SUCCESS;
}

}  // namespace

extern "C" int pam_sm_acct_mgmt(pam_handle_t* handle, int, int count, const char** arguments) {
  return count == 1 ? Admit(handle, arguments[0]) : PAM_IGNORE;
}

// The argument is how many questions carol is asked after her password.
extern "C" int pam_sm_authenticate(pam_handle_t* handle, int, int count, const char** arguments) {
  const char* name = nullptr;
  pam_get_user(handle, &name, nullptr);
  if (count == 1) {
    return name == std::string("carol") ? Ask(handle, std::atoi(arguments[0])) : PAM_IGNORE;
  }
  const int status = Fail(handle, name);
  return status == PAM_SUCCESS ? PAM_IGNORE : status;
}

extern "C" int pam_sm_setcred(pam_handle_t*, int, int, const char**) { return PAM_IGNORE; }
