#include "veltsys/Counters.h"

namespace VELT {
namespace {

static_assert(Counters::value_type::is_always_lock_free, "shared between processes");

std::atomic<Counters*>& Current() {
  static constinit Counters own{};
  static constinit std::atomic<Counters*> current{&own};
  return current;
}

}  // namespace

void CountInto(Counters& counters) { Current() = &counters; }

void Count(Event event) noexcept {
  (*Current().load(std::memory_order_relaxed))[static_cast<std::size_t>(event)].fetch_add(
      1, std::memory_order_relaxed);
}

}  // namespace VELT
