// Running a function that may hang or crash, for the other platform libraries.
#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace VELT {

enum class ForkedCall { kReturned, kNotStarted, kTooLate, kDied };

// Runs `work` in a forked child and returns the text that it gives in `result`, which is meaningful
// with kReturned only. kTooLate: `work` had not returned after `limit`. kDied: it threw, ended its
// process, or gave more than 64 KiB. In every case the child and its process group have ended when
// the call returns.
//
// The child has the caller's ids, memory and standard error. Standard input and output are
// /dev/null; its only other descriptor is the pipe to the caller. Signals have their default
// actions and none is blocked. It dumps no core, and is killed when the calling thread ends. No
// other thread of the caller may hold a lock that `work` needs.
ForkedCall CallInFork(const std::function<std::string()>& work, std::chrono::milliseconds limit,
                      std::string& result);

}  // namespace VELT
