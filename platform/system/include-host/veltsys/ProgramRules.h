// What the host sets for programs (Process.h): their ids, their time limit, and when to start none.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>

namespace VELT {

struct ProgramRules {
  // The real, effective and saved ids of every program, whatever ids the process has when it starts
  // one. A program that can't get them is not started. User 0 means the process's effective ids at
  // that time. If these are root's, as in a user namespace that maps nobody else, the program keeps
  // them, but has no capabilities, and no supplementary groups if the system lets it drop them.
  uid_t uid = 0;
  gid_t gid = 0;
  // How long a program may run, counted from its start.
  std::chrono::milliseconds time_limit{5000};
};

// Sets the rules of the whole process for programs that start later. Several threads may call both
// functions at once.
void SetProgramRules(const ProgramRules& rules);

// To be called when a request begins. `wanted` returns whether the client still waits for the
// answer. It is called before each start of a program and must start none itself; an empty function
// means always. After it has returned false, VLIBCPopen starts no more programs for the request
// but returns empty streams; after a program of the request had to be ended, it fails. In a process
// that never calls this, programs are always started.
void BeginProgramsOfRequest(std::function<bool()> wanted);

}  // namespace VELT
