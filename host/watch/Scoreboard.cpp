#include "host/watch/Scoreboard.h"

#include <cstddef>
#include <numeric>

namespace VELT::host {
namespace {

static_assert(decltype(Slot::state)::is_always_lock_free &&
                  decltype(Slot::since)::is_always_lock_free &&
                  decltype(Slot::party)::is_always_lock_free,
              "shared between processes, where locks of the C++ library do not work");

}  // namespace

Scoreboard::Scoreboard(const PoolSizes& sizes)
    : slots_(std::accumulate(sizes.begin(), sizes.end(), kPoolCount)) {
  std::span<Slot> rest = slots_.items();
  for (std::size_t index = 0; index < kPoolCount; ++index) {
    const std::size_t count = sizes.at(index) + 1;
    pools_.at(index) = rest.first(count);
    rest = rest.subspan(count);
  }
}

}  // namespace VELT::host
