// What the platform counts for the host: events that whoever watches the service wants to see.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace VELT {

enum class Event {
  kProgramRun,      // a program was started (Process.h)
  kProgramTimeout,  // and had to be ended
  kPamRun,          // PAM was asked about a visitor's account
  kPamTimeout,      // and had to be ended
  kGuessBraked,     // a visitor's login was refused, for too many had failed
  kStoreFailure,    // the database failed an operation
};
inline constexpr std::size_t kEventCount = 6;

// Each at the place of its number, since the start.
using Counters = std::array<std::atomic<std::uint64_t>, kEventCount>;

// From now on the whole process counts there, in memory that may be shared with other processes. It
// must outlive the process. Before, a process counts for itself.
void CountInto(Counters& counters);

// Costs one atomic addition. Any thread may call it.
void Count(Event event) noexcept;

}  // namespace VELT
