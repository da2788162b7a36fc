// Keeps worker processes running.
#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <functional>
#include <span>
#include <utility>
#include <vector>

#include "host/Pool.h"
#include "host/process/ServiceManager.h"
#include "host/watch/Scoreboard.h"
#include "host/watch/Statistics.h"

namespace VELT::host {

// Which worker a process is.
struct WorkerPlace {
  pid_t supervisor;
  Pool pool;
  Slot* slot;  // its own
  const Scoreboard* scoreboard;
};

// One per process, on one thread. It waits for all children of the process.
class Supervisor {
 public:
  // Runs in a child process and returns its exit status. It must keep the state in its slot up to
  // date, send SIGUSR1 to the supervisor when it is ready, and return after SIGTERM.
  using WorkerMain = std::function<int(const WorkerPlace& place)>;
  // Called when a worker has died while it served `request`, whose status is set already.
  using OnLostRequest = std::function<void(const RequestNote& request, Pool pool, pid_t worker)>;

  // The scoreboard is that of `sizes`; it and the statistics must outlive the object.
  Supervisor(const PoolSizes& sizes, const Scoreboard& scoreboard, Statistics& statistics,
             WorkerMain worker, OnLostRequest on_lost_request);

  // Runs in a child process that is not a worker; returns its exit status. It must end with the
  // supervisor (PR_SET_PDEATHSIG of prctl(2)).
  using CompanionMain = std::function<int(pid_t supervisor)>;

  // Keeps a process running beside the workers: starts it again when it ends, and ends it with SIGTERM
  // after the last worker. `name` is for the log. Call it before Run.
  void Accompany(const char* name, CompanionMain main) {
    companions_.push_back({name, std::move(main)});
  }

  // Keeps workers running until SIGTERM or SIGINT, and returns the program's exit status when the
  // last worker and companion has ended.
  // - A worker that dies is replaced at once, or after a pause if it died soon after its start; the
  //   pause grows with every such death.
  // - When all workers of the front are busy, and one of them for ten seconds, the one that has been
  //   busy longest gets SIGALRM.
  // - SIGHUP replaces all workers one by one, each only when the next is ready.
  // - If a worker ends with kBadConfiguration before any was ready, all are stopped and that is
  //   returned.
  // - The service manager gets a message when every pool has its workers, when a replacement begins
  //   and ends, and, if it watches the process, at regular intervals.
  int Run();

 private:
  using Clock = std::chrono::steady_clock;

  struct Worker {
    pid_t pid = -1;
    Clock::time_point start;
    Slot* slot = nullptr;
    bool ready = false;
    bool outdated = false;  // to be replaced
    bool leaving = false;   // was asked to stop
  };

  struct WorkerPool {
    Pool pool;
    std::size_t size;
    std::span<Slot> slots;
    std::vector<Worker> workers;
  };

  struct Companion {
    const char* name;
    CompanionMain main;
    pid_t pid = -1;
    Clock::time_point start{};  // the earliest time of its next start
    bool leaving = false;       // was asked to stop
  };

  void WaitForSignal();
  Clock::duration LongestWait() const;
  void Stop();
  void NoteReady();
  void Reap();
  void OnWorkerEnded(Pool pool, const Worker& worker, int status);
  void ReportRequest(Pool pool, const Worker& worker, int status);
  bool Start(WorkerPool& pool);
  void Adjust(WorkerPool& pool);
  void Replace(WorkerPool& pool);
  static std::size_t CountStaying(const WorkerPool& pool);
  static void EndStuckWorker(const WorkerPool& pool);
  void RequestStop(Worker& worker);
  bool HasWorkers() const;
  void Adjust(Companion& companion);
  bool HasCompanions() const;
  bool IsSettled() const;
  void Report();

  const Scoreboard& scoreboard_;
  Statistics& statistics_;
  const WorkerMain worker_;
  const OnLostRequest on_lost_request_;
  ServiceManager manager_;
  std::vector<WorkerPool> pools_;
  std::vector<Companion> companions_;
  bool stopping_ = false;
  bool ever_ready_ = false;
  int exit_status_ = 0;
  unsigned int early_deaths_ = 0;  // in a row
  Clock::time_point next_start_;
};

}  // namespace VELT::host
