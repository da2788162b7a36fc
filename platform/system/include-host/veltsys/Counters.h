// Events that the platform counts for the host's metrics.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace VELT {

enum class Event {
  kProgramRun,      // a program was started (Process.h)
  kProgramTimeout,  // a program was ended because it took too long
  kPamRun,          // PAM was asked about a visitor's account
  kPamTimeout,      // PAM's process was ended because it took too long
  kLoginLockedOut,  // a visitor's login was refused because too many had failed
  kStoreFailure,    // a database operation failed
  kEnd              // stays the last
};

// Indexed by Event.
using Counters = std::array<std::atomic<std::uint64_t>, static_cast<std::size_t>(Event::kEnd)>;

// Makes the process count in `counters`, which may be shared with other processes and must live until
// the process ends. Before the first call, it counts in memory of its own.
void CountInto(Counters& counters);

// Costs one atomic addition. Any thread may call it.
void Count(Event event) noexcept;

}  // namespace VELT
