// Carries what visitors did with links from the workers to the process that writes it down.
#pragma once

#include <string>
#include <vector>

#include "host/Options.h"
#include "veltsharing/LinkEvents.h"
#include "veltsys/Descriptor.h"

namespace VELT::host {

// The address with as much of it as is to be kept; empty when it is none.
std::string Shortened(const std::string& address, EventAddress how);

// Constructed before the processes are forked; each uses its copy of the descriptors. The kernel keeps
// what waits, so that the death of a process loses none of it.
class EventQueue {
 public:
  explicit EventQueue(EventAddress address);  // throws std::system_error

  // Sets the event's time, and shortens its address, which is still whole. Never waits: when thousands
  // wait already, it is lost, which is logged.
  void Give(sharing::LinkEvent event) const;
  // All that have come, in their order; equal ones became one. Doesn't wait for any. For one process
  // at a time.
  std::vector<sharing::LinkEvent> Take();

  // The descriptor that poll(2) reports as readable while events wait.
  int fd() const { return reader_.get(); }

 private:
  const EventAddress address_;
  Descriptor reader_;
  Descriptor writer_;
  std::string rest_;  // of what was read: the beginning of an event
};

}  // namespace VELT::host
