// What each worker is doing, in memory that the supervisor and all workers share.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace VELT::host {

// One worker's place. It alone writes there while it lives, and the supervisor before and after.
struct Seat {
  enum class State : std::uint8_t { kEmpty, kStarting, kIdle, kBusy };

  std::atomic<State> state{State::kEmpty};
  // Since when it is busy.
  std::atomic<std::chrono::steady_clock::time_point> since{};
  // Where the request was stuck that the worker ended itself over; empty: unknown.
  std::array<char, 256> stuck_in{};
};

// Made before the first worker, whose copy of the object shows the same seats.
class Scoreboard {
 public:
  explicit Scoreboard(std::size_t seats);  // throws std::bad_alloc

  std::span<Seat> seats() const { return {seats_.get(), count_}; }

 private:
  struct Unmap {
    std::size_t size;
    void operator()(Seat* seats) const;
  };

  std::size_t count_;
  std::unique_ptr<Seat[], Unmap> seats_;
};

}  // namespace VELT::host
