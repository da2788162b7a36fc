#include "host/watch/Scoreboard.h"

#include <cstddef>
#include <functional>
#include <numeric>

namespace VELT::host {
namespace {

static_assert(decltype(Slot::state)::is_always_lock_free &&
                  decltype(Slot::since)::is_always_lock_free &&
                  std::atomic<bool>::is_always_lock_free,
              "shared between processes, where locks of the C++ library do not work");

std::size_t SlotsOf(const PoolLimits& limits) { return limits.max + 1; }

}  // namespace

Scoreboard::Scoreboard(const std::array<PoolLimits, kPoolCount>& limits)
    : slots_(std::transform_reduce(limits.begin(), limits.end(), std::size_t{0}, std::plus<>(),
                                   SlotsOf)) {
  std::span<Slot> rest = slots_.items();
  for (std::size_t index = 0; index < kPoolCount; ++index) {
    const std::size_t count = SlotsOf(limits.at(index));
    pools_.at(index) = rest.first(count);
    rest = rest.subspan(count);
  }
}

}  // namespace VELT::host
