// Starts a program with its own ids and limits.
#pragma once

#include <sys/types.h>

#include <chrono>

namespace VELT {

struct ProgramStart {
  const char* path = nullptr;
  char* const* argv = nullptr;
  int output = -1;  // becomes standard output
  uid_t uid = 0;
  gid_t gid = 0;
  std::chrono::seconds processor_time{};
};

// Returns the process id, or -1 with errno set when the program could not be started; no child is
// left then. The caller's ids and signal mask do not change.
pid_t StartProgram(const ProgramStart& start);

}  // namespace VELT
