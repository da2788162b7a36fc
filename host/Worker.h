#pragma once

#include <array>

#include "Handover.h"
#include "Options.h"
#include "Pool.h"
#include "Supervisor.h"

namespace VELT::host {

// What a worker process does, from just after the fork on: loads the API modules, lowers its
// effective ids, and answers requests, one at a time. Those of the front arrive at `listener` (a
// socket that doesn't block); what another pool is for goes into that pool's queue. It leaves when
// it is told to (SIGTERM, SIGINT) and when a handler left it with other ids; it ends with its
// supervisor. Returns the exit status of the process: kBadConfiguration when it could not start.
int RunWorker(const Options& options, int listener, const std::array<Handover, kPoolCount>& queues,
              const WorkerPlace& place);

constexpr int kBadConfiguration = 78;  // EX_CONFIG of sysexits.h

}  // namespace VELT::host
