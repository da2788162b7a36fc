// Whether the client of a body that goes piece by piece, in either direction, is fast enough.
#pragma once

#include <chrono>
#include <cstddef>

#include "host/Limits.h"
#include "host/process/Deadline.h"

namespace VELT::host {

class Progress {
 public:
  explicit Progress(const Deadline& deadline) : deadline_(deadline) {}

  // Call it after each piece. Each kStreamProgress starts the request's time again. False when the
  // client has not moved as much in kStreamPatience.
  bool Note(std::size_t bytes) {
    moved_ += bytes;
    const auto now = Clock::now();
    if (moved_ < kStreamProgress) return now - since_ <= kStreamPatience;
    moved_ = 0;
    since_ = now;
    deadline_.Extend();
    return true;
  }

 private:
  using Clock = std::chrono::steady_clock;

  const Deadline& deadline_;
  std::size_t moved_ = 0;
  Clock::time_point since_ = Clock::now();
};

}  // namespace VELT::host
