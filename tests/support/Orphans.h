// Finds processes that others have left behind.
#pragma once

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

namespace VELT {

// While it lives, the test program inherits the children of its children.
class Orphans {
 public:
  Orphans() { prctl(PR_SET_CHILD_SUBREAPER, 1); }
  ~Orphans() { prctl(PR_SET_CHILD_SUBREAPER, 0); }
  Orphans(const Orphans&) = delete;
  Orphans& operator=(const Orphans&) = delete;

  // Waits until no child or orphan is left; false after 30 seconds. `status` is the last one's.
  bool AreGone(int* status = nullptr) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < end) {
      const pid_t pid = waitpid(-1, status, WNOHANG);
      if (pid < 0) return errno == ECHILD;
      if (pid == 0) usleep(1000);
    }
    return false;
  }
};

}  // namespace VELT
