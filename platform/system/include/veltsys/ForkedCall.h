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
// The child has the caller's ids, memory and standard error, /dev/null as standard input and output,
// no other descriptor but the pipe to the caller, default signal actions and an empty signal mask,
// and dumps no core. It is killed when the calling thread ends. No other thread of the caller may
// hold a lock that `work` needs.
ForkedCall CallInFork(const std::function<std::string()>& work, std::chrono::milliseconds limit,
                      std::string& result);

}  // namespace VELT
