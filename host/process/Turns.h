// Which of the calls that wait for a pool a worker serves next.
#pragma once

#include <cstddef>
#include <optional>
#include <span>

#include "host/process/Handover.h"
#include "host/request/FastCgi.h"
#include "host/watch/Scoreboard.h"

namespace VELT::host {

// How many workers of a pool one party's calls may occupy: half of them.
std::size_t ShareOf(std::span<const Slot> pool);

// Takes calls from the lines of a pool in turn, so that a party that has many waiting holds up no
// other. One per worker.
class Turns {
 public:
  // `own` is this worker's slot, `pool` all of its pool's. All must outlive the object.
  Turns(const Lines& lines, Slot& own, std::span<const Slot> pool)
      : lines_(lines), own_(own), pool_(pool) {}

  // A call of a line that does not have its share of workers yet. Empty when there is none; then
  // `passed_over` is whether others wait.
  std::optional<Incoming> Next();
  bool passed_over() const { return passed_over_; }

 private:
  bool Claim(std::size_t line);

  const Lines& lines_;
  Slot& own_;
  const std::span<const Slot> pool_;
  std::size_t last_ = 0;
  bool passed_over_ = false;
};

}  // namespace VELT::host
