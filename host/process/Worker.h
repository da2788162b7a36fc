// The worker process.
#pragma once

#include <array>

#include "host/Options.h"
#include "host/Pool.h"
#include "host/process/EventQueue.h"
#include "host/process/Handover.h"
#include "host/process/Supervisor.h"
#include "host/watch/Statistics.h"

namespace VELT::host {

// Called in a new child process. Loads the API modules, lowers the effective ids and answers
// requests, one at a time. Workers of the front and of "upload" take them from `listener`, a socket
// that must not block. Those of the front put those for another pool into that pool's queue; the
// other workers take them from there. Returns after SIGTERM or SIGINT, or when a handler has
// changed the process's ids. What visitors did goes to `events`. The process is killed when its supervisor ends. Returns the exit
// status: kBadConfiguration when the worker could not start.
int RunWorker(const Options& options, int listener, const Queues& queues, const EventQueue& events,
              Statistics& statistics, const WorkerPlace& place);

constexpr int kBadConfiguration = 78;  // EX_CONFIG of sysexits.h

}  // namespace VELT::host
