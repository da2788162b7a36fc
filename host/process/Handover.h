// The queue in which requests wait for a worker of a pool other than the front.
#pragma once

#include <array>
#include <cstddef>
#include <optional>

#include "host/request/FastCgi.h"
#include "veltsys/Descriptor.h"

namespace VELT::host {

// Constructed before the workers are forked; each uses its copy of the descriptors. The kernel
// keeps the requests that wait, some two hundred with their connections, so the death of a worker
// loses none of them.
class Handover {
 public:
  Handover();  // throws std::system_error

  // Puts a request and its connection into the queue. False, changing nothing, when the queue is
  // full or the system lacks descriptors or memory.
  bool Give(const Incoming& incoming) const;
  // The request that has waited longest. Empty when another worker has taken it or it can't be
  // read.
  std::optional<Incoming> Take() const;

  // How many requests wait.
  std::size_t Length() const;

  // The descriptor that poll(2) reports as readable while requests wait.
  int fd() const { return receiver_.get(); }

 private:
  explicit Handover(const std::array<int, 2>& ends) : sender_(ends[0]), receiver_(ends[1]) {}

  const Descriptor sender_;
  const Descriptor receiver_;
};

}  // namespace VELT::host
