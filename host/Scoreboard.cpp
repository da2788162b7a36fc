#include "Scoreboard.h"

#include <sys/mman.h>

#include <memory>
#include <new>

namespace VELT::host {
namespace {

static_assert(decltype(Slot::state)::is_always_lock_free &&
                  decltype(Slot::since)::is_always_lock_free,
              "shared between processes, where locks of the C++ library do not work");

Slot* MapSlots(std::size_t count) {
  void* memory = mmap(nullptr, count * sizeof(Slot), PROT_READ | PROT_WRITE,
                      MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  auto* slots = static_cast<Slot*>(memory);
  std::uninitialized_default_construct_n(slots, count);
  return slots;
}

}  // namespace

Scoreboard::Scoreboard(std::size_t slots)
    : count_(slots), slots_(MapSlots(slots), Unmap{slots * sizeof(Slot)}) {}

void Scoreboard::Unmap::operator()(Slot* slots) const { munmap(slots, size); }

}  // namespace VELT::host
