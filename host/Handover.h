// The queue in which requests wait for a worker of a pool other than the front.
#pragma once

#include <array>
#include <optional>

#include "FastCgi.h"
#include "veltsys/Descriptor.h"

namespace VELT::host {

// Made before the first worker; every worker may use its copy at any time. The kernel holds what
// waits, some two hundred requests with their connections, so no worker's death loses any of them.
class Handover {
 public:
  Handover();  // throws std::system_error

  // Gives a request and its connection away. False, giving nothing, when too many wait already or
  // the system lacks descriptors or memory.
  bool Give(const Incoming& incoming) const;
  // The request that has waited longest; nothing when another worker was faster.
  std::optional<Incoming> Take() const;

  // Readable, as poll(2) has it, while requests wait.
  int fd() const { return receiver_.get(); }

 private:
  explicit Handover(const std::array<int, 2>& ends) : sender_(ends[0]), receiver_(ends[1]) {}

  const Descriptor sender_;
  const Descriptor receiver_;
};

}  // namespace VELT::host
