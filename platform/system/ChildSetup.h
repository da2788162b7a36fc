// What a new child process does before its work. Everything here only makes system calls, without
// the C library's wrappers, because it also runs in a child that shares its parent's memory.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace VELT {

// Blocks every signal, even those that the C library uses itself, during its life, so that no
// handler of the parent runs in a child.
class SignalsBlocked {
 public:
  SignalsBlocked();
  ~SignalsBlocked();
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  std::uint64_t before_ = 0;
};

// Gives every signal its default action, then unblocks all.
void ResetSignals();

// Has the kernel kill the calling child when the thread that started it ends. False when that fails
// or `parent` has ended already. A later change of ids cancels it.
bool EndWithParent(pid_t parent);

}  // namespace VELT
