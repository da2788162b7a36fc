// What a new child process does before its work. Everything here makes system calls only, past the
// C library: it also runs in a child that shares the memory of its parent.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace VELT {

// Blocks every signal, the C library's own included, while it lives, so that no handler of the
// parent's runs in a child.
class SignalsBlocked {
 public:
  SignalsBlocked();
  ~SignalsBlocked();
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  std::uint64_t before_ = 0;
};

// Default actions, then an empty mask.
void ResetSignals();

// The calling child is killed when the thread that started it ends. False: `parent` is gone
// already. A later change of ids undoes it.
bool EndWithParent(pid_t parent);

}  // namespace VELT
