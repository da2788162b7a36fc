// Starting a program with the ids and the limits of its own.
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

// Returns the process id, -1 with errno set when the program could not be started; no child is left
// then. The caller's ids and signals are what they were before.
pid_t StartProgram(const ProgramStart& start);

}  // namespace VELT
