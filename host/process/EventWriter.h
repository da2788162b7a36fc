// Writes what visitors did with links some time after their answers, many at once.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "host/Options.h"
#include "veltsharing/LinkEvents.h"

namespace VELT::host {

// The address with as much of it as is to be kept; empty when it is none.
std::string Shortened(const std::string& address, EventAddress how);

class EventWriter {
 public:
  // The options must outlive it.
  explicit EventWriter(const Options& options) : options_(options) {}
  ~EventWriter() { Write(); }
  EventWriter(const EventWriter&) = delete;
  EventWriter& operator=(const EventWriter&) = delete;

  // Keeps an event, whose address is still whole. Equal ones become one.
  void Add(sharing::LinkEvent event);
  // Writes those that have waited long enough.
  void DoDue();
  // The time until some are due, as a timeout of epoll_wait(2): -1 when there are none.
  int Milliseconds() const;
  // Removes old ones, also when no new ones come. To be called now and then by one process at least.
  void RemoveOld() const;

 private:
  using Clock = std::chrono::steady_clock;

  void Write();

  const Options& options_;
  std::vector<sharing::LinkEvent> waiting_;
  Clock::time_point due_;  // of the oldest
};

}  // namespace VELT::host
