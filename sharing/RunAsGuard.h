// Switching the process to other effective ids for a block.
#pragma once

#include <sys/types.h>

#include "sharing/LogPlaces.h"

namespace VELT {

// The constructor switches the effective ids to a target, the destructor back. Only effective ids
// change, so the process must be able to become root: its real or saved uid is 0. Ids belong to the
// whole process, so every thread runs with them meanwhile. A switch that fails is logged at the
// authorisation facility. After a failed switch back the process must not serve another request.
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
  // True when the process got the target ids.
  bool ok_;
};

// Logs that the block of a guard did not run. Log watchers match the text as it is spelt.
void LogPermissionDenied(const LogPlace& place);

}  // namespace VELT

// Runs the statement that follows with the effective ids `uid` and `gid`, or the one after `else`
// when the switch fails:
//
//   IF_RUN_AS(0, 0, log_place::kLoginGuard) { ... } else { LogPermissionDenied(...); }
#define IF_RUN_AS(uid, gid, place) \
  if (::VELT::RunAsGuard run_as_guard((uid), (gid), (place).source, (place).line); run_as_guard.ok_)
