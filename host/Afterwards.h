// What is done some time after an answer was sent.
#pragma once

#include <chrono>
#include <deque>
#include <functional>

namespace VELT::host {

// A web server opens what an answer's header names when it has read the answer, and tells nobody:
// nginx closes the worker's connection first. So clean-up waits for as long as that may take.
class Afterwards {
 public:
  Afterwards() = default;
  // Does what is left a second after the last answer at the latest, since the process is to end.
  ~Afterwards();
  Afterwards(const Afterwards&) = delete;
  Afterwards& operator=(const Afterwards&) = delete;

  // Does the action, which must not throw, some seconds from now, if DoDue is called then.
  void Add(std::function<void()> action);
  void DoDue();
  // Until the next is due, as epoll_wait(2) has it: -1 when there is none.
  int Milliseconds() const;

 private:
  using Clock = std::chrono::steady_clock;
  struct Waiting {
    Clock::time_point due;
    std::function<void()> action;
  };
  std::deque<Waiting> waiting_;  // the next first
};

}  // namespace VELT::host
