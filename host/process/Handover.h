// The lines in which requests wait for a worker of a pool other than the front.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <optional>

#include "host/Party.h"
#include "host/Pool.h"
#include "host/request/FastCgi.h"
#include "veltsys/Descriptor.h"

namespace VELT::host {

// Constructed before the workers are forked; each uses its copy of the descriptors. The kernel
// keeps the requests that wait, some two hundred with their connections, so the death of a worker
// loses none of them.
class Handover {
 public:
  Handover();  // throws std::system_error

  // Puts a request of `party` and its connection into the line. False, changing nothing, when the
  // line is full or the system lacks descriptors or memory.
  bool Give(const Incoming& incoming, Party party) const;
  // The request that has waited longest; sets `party`. Empty when another worker has taken it or it
  // can't be read.
  std::optional<Incoming> Take(std::atomic<Party>& party) const;

  // How many requests wait.
  std::size_t Length() const;

  // The descriptor that poll(2) reports as readable while requests wait.
  int fd() const { return receiver_.get(); }

 private:
  explicit Handover(const std::array<int, 2>& ends) : sender_(ends[0]), receiver_(ends[1]) {}

  const Descriptor sender_;
  const Descriptor receiver_;
};

// Those of one pool, indexed by LineOf.
using Lines = std::array<Handover, kLines>;
// Of all pools, indexed by Pool; the front's stay empty.
using Queues = std::array<Lines, kPoolCount>;

// How many requests wait in all lines of a pool.
std::size_t Length(const Lines& lines);

}  // namespace VELT::host
