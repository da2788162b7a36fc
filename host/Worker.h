#pragma once

#include <functional>

#include "Options.h"

namespace VELT::host {

// What a worker process does, from just after the fork on: loads the API modules, lowers its
// effective ids, calls `ready`, and answers requests that arrive at `listener` (a socket that
// doesn't block), one at a time. It leaves when it is told to (SIGTERM, SIGINT), when `lifeline`
// (the reading end of a pipe whose other end the parent holds) says that the parent is gone, and
// when a handler left it with other ids. Returns the exit status of the process: kBadConfiguration
// when it could not start.
int RunWorker(const Options& options, int listener, int lifeline,
              const std::function<void()>& ready);

constexpr int kBadConfiguration = 78;  // EX_CONFIG of sysexits.h

}  // namespace VELT::host
