// Keeps worker processes running, as many in each pool as its work needs.
#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <functional>
#include <span>
#include <vector>

#include "Pool.h"
#include "Scoreboard.h"

namespace VELT::host {

// Where a worker belongs.
struct WorkerPlace {
  pid_t supervisor;
  Pool pool;
  PoolLimits limits;
  Seat* seat;                   // its own
  std::span<const Seat> seats;  // those of its pool
};

// One per process, whose only children are the workers; one thread.
class Supervisor {
 public:
  // Run in a child process; returns its exit status. It keeps the state of its seat, sends SIGUSR1
  // when it has become ready or when its pool lacks idle workers, and leaves at SIGTERM.
  using WorkerMain = std::function<int(const WorkerPlace& place)>;

  Supervisor(const std::array<PoolLimits, kPoolCount>& limits, WorkerMain worker);

  // Keeps workers running until SIGTERM or SIGINT, and returns the exit status of the program when
  // the last has left. A worker that dies is replaced: at once, or after a pause that grows when
  // they die young. Surplus workers are told to leave, one a second, when a pool has had some for
  // ten seconds. When all of the front's are busy and it may have no more, the one that has been
  // busy longest is sent SIGALRM once that is ten seconds. SIGHUP replaces all of them one by one,
  // each only when the next is ready. When a first worker ends with kBadConfiguration before any
  // was ready, all are ended and that is returned.
  int Run();

 private:
  using Clock = std::chrono::steady_clock;

  struct Worker {
    pid_t pid = -1;
    Clock::time_point start;
    Seat* seat = nullptr;
    bool ready = false;
    bool outdated = false;  // to be replaced
    bool leaving = false;   // told to leave
  };

  struct WorkerPool {
    Pool pool;
    PoolLimits limits;
    std::span<Seat> seats;
    std::vector<Worker> workers;
    Clock::time_point shrink_at;  // when a surplus worker may be told to leave
  };

  void WaitForSignal();
  Clock::duration LongestWait() const;
  void Stop();
  void NoteReady();
  void Reap();
  void Bury(const Worker& worker, int status);
  bool Start(WorkerPool& pool);
  void Adjust(WorkerPool& pool);
  void Replace(WorkerPool& pool);
  void Grow(WorkerPool& pool);
  void Shrink(WorkerPool& pool);
  static bool IsBusy(const Worker& worker);
  static bool IsFull(const WorkerPool& pool);
  static void Relieve(const WorkerPool& pool);
  void TellToLeave(Worker& worker);
  bool HasWorkers() const;

  const Scoreboard scoreboard_;
  const WorkerMain worker_;
  std::vector<WorkerPool> pools_;
  bool stopping_ = false;
  bool ever_ready_ = false;
  int exit_status_ = 0;
  unsigned int early_deaths_ = 0;  // in a row
  Clock::time_point next_start_;
};

}  // namespace VELT::host
