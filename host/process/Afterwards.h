// Runs clean-up actions some time after an answer was sent.
#pragma once

#include <chrono>
#include <deque>
#include <functional>

namespace VELT::host {

// The web server opens the file that an answer's header names some time after it has read the answer,
// and does not report it: nginx closes the worker's connection before. So the file must be kept for
// some seconds.
class Afterwards {
 public:
  Afterwards() = default;
  // Waits a second, for what the last answers have named, and runs all actions that are left, since
  // the process is to end.
  ~Afterwards();
  Afterwards(const Afterwards&) = delete;
  Afterwards& operator=(const Afterwards&) = delete;

  // The first call of DoDue that is five seconds or more from now runs `action`, which must not throw.
  void Add(std::function<void()> action);
  void DoDue();
  // The time until the next action is due, as a timeout of epoll_wait(2): -1 when there is none.
  int Milliseconds() const;

 private:
  using Clock = std::chrono::steady_clock;
  struct Waiting {
    Clock::time_point due;
    std::function<void()> action;
  };
  std::deque<Waiting> waiting_;  // in the order in which they are due
};

}  // namespace VELT::host
