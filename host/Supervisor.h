// Keeps worker processes running.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <vector>

namespace VELT::host {

// One per process, whose only children are the workers; one thread.
class Supervisor {
 public:
  // Run in a child process; returns its exit status. It calls `ready` once it can work, and leaves
  // at SIGTERM.
  using WorkerMain = std::function<int(const std::function<void()>& ready)>;

  Supervisor(std::size_t count, WorkerMain worker);

  // Keeps `count` workers running until SIGTERM or SIGINT, and returns the exit status of the
  // program when the last has left. A worker that dies is replaced: at once, or after a pause that
  // grows when they die young. SIGHUP replaces all of them one by one, each only when the next is
  // ready. When a first worker ends with kBadConfiguration before any was ready, all are ended and
  // that is returned.
  int Run();

 private:
  using Clock = std::chrono::steady_clock;

  struct Worker {
    pid_t pid = -1;
    Clock::time_point start;
    bool ready = false;
    bool outdated = false;  // to be replaced
    bool leaving = false;   // told to leave
  };

  void WaitForSignal();
  void Stop();
  void Reap();
  void Bury(const Worker& worker, int status);
  void Start();
  void Adjust();
  void TellToLeave(Worker& worker);

  const std::size_t count_;
  const WorkerMain worker_;
  std::vector<Worker> workers_;
  bool stopping_ = false;
  bool ever_ready_ = false;
  int exit_status_ = 0;
  unsigned int early_deaths_ = 0;  // in a row
  Clock::time_point next_start_;
};

}  // namespace VELT::host
