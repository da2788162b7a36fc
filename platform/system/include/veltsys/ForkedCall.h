// Running a function that may hang or crash, for the other platform libraries.
#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace VELT {

enum class ForkedCall { kReturned, kNotStarted, kTooLate, kDied };

// Runs `work` in a forked child and hands the text that it returns back in `result`, which is of use
// with kReturned only. After `limit` the child and all of its process group are ended (kTooLate); a
// `work` that throws or ends its process is one that died. In any case nothing of it is left.
//
// The child has the caller's ids, memory and standard error, /dev/null as the other two standard
// descriptors, no further one but the pipe to the caller, default signal actions, an empty mask, and
// dumps no core. It is killed when the calling thread ends. No other thread may run meanwhile that
// could hold a lock which `work` needs.
ForkedCall CallInFork(const std::function<std::string()>& work, std::chrono::milliseconds limit,
                      std::string& result);

}  // namespace VELT
