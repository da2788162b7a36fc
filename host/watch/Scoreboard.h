// The state of every worker, in memory that the supervisor and all workers share.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <span>

#include "host/Party.h"
#include "host/Pool.h"
#include "host/watch/RequestNote.h"
#include "host/watch/SharedArray.h"

namespace VELT::host {

// The state of one worker. Only the worker writes to it while it lives, and the supervisor before
// and after.
struct Slot {
  enum class State : std::uint8_t { kEmpty, kStarting, kIdle, kBusy };

  std::atomic<State> state{State::kEmpty};
  // When it last became busy.
  std::atomic<std::chrono::steady_clock::time_point> since{};
  // Whose call it serves; 0: not known, or nobody's. While it looks for one, any party of the line
  // that it looks into.
  std::atomic<Party> party{0};
  // The library that was running when the time limit ended the worker, a C string; empty: unknown.
  std::array<char, 256> stuck_in{};
  // The request that it serves, for the case that it dies.
  RequestNote request;
};

// Constructed before the workers are forked: their copies of the object refer to the same slots.
class Scoreboard {
 public:
  // A pool has one slot more than workers, because there is one worker more while workers are
  // replaced. Throws std::bad_alloc.
  explicit Scoreboard(const PoolSizes& sizes);

  std::span<Slot> slots(Pool pool) const { return pools_.at(IndexOf(pool)); }

 private:
  SharedArray<Slot> slots_;
  std::array<std::span<Slot>, kPoolCount> pools_;
};

}  // namespace VELT::host
