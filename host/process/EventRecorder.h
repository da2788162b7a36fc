// The process that writes down what visitors did with links.
#pragma once

#include <sys/types.h>

#include "host/Options.h"
#include "host/process/EventQueue.h"
#include "host/watch/Statistics.h"

namespace VELT::host {

// Writes what comes through the queue, that of two seconds in one transaction, however many workers
// there are, and now and then removes what is old. While the database can't be used it keeps some
// thousands. Returns an exit status: after SIGTERM, when all that
// waits is written, or when it can't begin. `supervisor` is the parent, with which it ends.
int RecordEvents(const Options& options, EventQueue& queue, Statistics& statistics,
                 pid_t supervisor);

}  // namespace VELT::host
