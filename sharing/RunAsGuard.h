// Switching the process to other effective ids for a block.
#pragma once

#include <sys/types.h>

#include "sharing/LogPlaces.h"

namespace VELT {

// Switches the effective ids to a target when made and back to what they were when destroyed, on
// every way out of the block. Only effective ids change, so the process must be able to become
// root: its real or saved uid is 0. The ids are the whole process's: every thread runs with them
// meanwhile. A switch that fails is logged at the authorisation facility; one that fails on the way
// back leaves the process with ids that it should not serve another request with.
class RunAsGuard {
 public:
  // `source` and `line` go into the log lines; `source` is borrowed for the guard's life.
  RunAsGuard(uid_t uid, gid_t gid, const char* source, int line);
  ~RunAsGuard();
  RunAsGuard(const RunAsGuard&) = delete;
  RunAsGuard& operator=(const RunAsGuard&) = delete;

 private:
  uid_t saved_euid_;
  gid_t saved_egid_;
  const char* file_;
  int line_;
  const char* name_ = "IF_RUN_AS";

 public:
  // The process has the target ids.
  bool ok_;
};

// Logs that the block of a guard did not run. Log watchers match the text as it is spelt.
void LogPermissionDenied(const LogPlace& place);

}  // namespace VELT

// Runs the statement that follows with the ids `uid` and `gid`, or the one after `else` where the
// switch fails:
//
//   IF_RUN_AS(0, 0, log_place::kLoginGuard) { ... } else { LogPermissionDenied(...); }
#define IF_RUN_AS(uid, gid, place) \
  if (::VELT::RunAsGuard run_as_guard((uid), (gid), (place).source, (place).line); run_as_guard.ok_)
