// The host's half of running programs (Process.h): with which ids, for how long, and for whom.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>

namespace VELT {

struct ProgramRules {
  // The real, effective and saved ids of every program, whatever ids the process has at the time; a
  // program that can't get them is not started. User 0 stands for the effective ids of the moment:
  // where these are root's, as in a user namespace that maps nobody else, the program keeps them,
  // but no capability, and no supplementary group where the system lets it drop them.
  uid_t uid = 0;
  gid_t gid = 0;
  // How long a program may run, counted from its start.
  std::chrono::milliseconds time_limit{5000};
};

// For the whole process, from the next start on. Several threads may call both functions.
void SetProgramRules(const ProgramRules& rules);

// A new request begins. As soon as one of its programs has had to be ended, or `wanted` (whether
// somebody still waits for the answer; asked before each start, must start no program itself) has
// said no, no further one is started for it: VLIBCPopen then gives streams that are empty. An empty
// function means always wanted. In a process that never calls this, every start is tried.
void BeginProgramsOfRequest(std::function<bool()> wanted);

}  // namespace VELT
