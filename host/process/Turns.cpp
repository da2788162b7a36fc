#include "host/process/Turns.h"

#include <poll.h>

#include <algorithm>
#include <array>

namespace VELT::host {

// A pool has a slot more than workers.
std::size_t ShareOf(std::span<const Slot> pool) {
  return std::max<std::size_t>((pool.size() - 1) / 2, 1);
}

std::optional<Incoming> Turns::Next() {
  passed_over_ = false;
  std::array<pollfd, kLines> waiting{};
  for (std::size_t line = 0; line < kLines; ++line) waiting[line] = {lines_[line].fd(), POLLIN, 0};
  if (poll(waiting.data(), waiting.size(), 0) <= 0) return std::nullopt;
  for (std::size_t count = 0; count < kLines; ++count) {
    last_ = (last_ + 1) % kLines;
    if (waiting[last_].revents == 0) continue;
    if (!Claim(last_)) {
      passed_over_ = true;
    } else if (auto incoming = lines_[last_].Take(own_.party)) {
      return incoming;
    }
  }
  own_.party = 0;
  return std::nullopt;
}

bool Turns::Claim(std::size_t line) {
  // Before the look, so that of two workers that look at once at least one sees the other.
  own_.party = ClaimOf(line);
  const auto count = std::ranges::count_if(pool_, [line](const Slot& slot) {
    const Party party = slot.party;
    return party != 0 && LineOf(party) == line;
  });
  return static_cast<std::size_t>(count) <= ShareOf(pool_);
}

}  // namespace VELT::host
