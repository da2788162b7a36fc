#include "Scoreboard.h"

#include <sys/mman.h>

#include <memory>
#include <new>

namespace VELT::host {
namespace {

static_assert(decltype(Seat::state)::is_always_lock_free &&
                  decltype(Seat::since)::is_always_lock_free,
              "shared between processes");

Seat* MapSeats(std::size_t count) {
  void* memory = mmap(nullptr, count * sizeof(Seat), PROT_READ | PROT_WRITE,
                      MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  auto* seats = static_cast<Seat*>(memory);
  std::uninitialized_default_construct_n(seats, count);
  return seats;
}

}  // namespace

Scoreboard::Scoreboard(std::size_t seats)
    : count_(seats), seats_(MapSeats(seats), Unmap{seats * sizeof(Seat)}) {}

void Scoreboard::Unmap::operator()(Seat* seats) const { munmap(seats, size); }

}  // namespace VELT::host
