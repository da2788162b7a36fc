// The state of every worker, in memory that the supervisor and all workers share.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace VELT::host {

// The state of one worker. Only the worker writes to it while it lives, and the supervisor before
// and after.
struct Slot {
  enum class State : std::uint8_t { kEmpty, kStarting, kIdle, kBusy };

  std::atomic<State> state{State::kEmpty};
  // When it last became busy.
  std::atomic<std::chrono::steady_clock::time_point> since{};
  // The library that was running when the time limit ended the worker, a C string; empty: unknown.
  std::array<char, 256> stuck_in{};
};

// Constructed before the workers are forked: their copies of the object refer to the same slots.
class Scoreboard {
 public:
  explicit Scoreboard(std::size_t slots);  // throws std::bad_alloc

  std::span<Slot> slots() const { return {slots_.get(), count_}; }

 private:
  struct Unmap {
    std::size_t size;
    void operator()(Slot* slots) const;
  };

  std::size_t count_;
  std::unique_ptr<Slot[], Unmap> slots_;
};

}  // namespace VELT::host
