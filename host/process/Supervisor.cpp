#include "host/process/Supervisor.h"

#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

#include "host/process/Worker.h"

namespace VELT::host {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kEarlyDeath{1};
constexpr milliseconds kShortestPause{100};
constexpr milliseconds kLongestPause{10000};
// Nothing tells the supervisor of a worker that stays busy.
constexpr seconds kLook{1};
constexpr seconds kBusyTooLong{10};
constexpr seconds kCompanionPause{1};

sigset_t Signals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD, SIGUSR1}) sigaddset(&signals, signal);
  return signals;
}

void LogDeath(pid_t pid, int status, const Slot& slot) {
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) {
    const char* place = slot.stuck_in.data();
    syslog(LOG_ERR, "worker %d took too long over a request%s%s and was ended", pid,
           *place == '\0' ? "" : " in ", place);
  } else if (WIFSIGNALED(status)) {
    syslog(LOG_ERR, "worker %d died: %s", pid, strsignal(WTERMSIG(status)));
  } else if (WEXITSTATUS(status) != 0) {
    syslog(LOG_ERR, "worker %d left with status %d", pid, WEXITSTATUS(status));
  }
}

void CountDeath(int status, PoolCounts& counts) {
  if (WIFSIGNALED(status)) {
    ++(WTERMSIG(status) == SIGALRM ? counts.ended : counts.killed);
  } else if (WEXITSTATUS(status) != 0) {
    ++counts.failed;
  }
}

template <typename Workers, typename Condition>
std::size_t Count(const Workers& workers, Condition condition) {
  return static_cast<std::size_t>(std::count_if(workers.begin(), workers.end(), condition));
}

}  // namespace

Supervisor::Supervisor(const PoolSizes& sizes, const Scoreboard& scoreboard, Statistics& statistics,
                       WorkerMain worker, OnLostRequest on_lost_request)
    : scoreboard_(scoreboard),
      statistics_(statistics),
      worker_(std::move(worker)),
      on_lost_request_(std::move(on_lost_request)) {
  for (std::size_t index = 0; index < kPoolCount; ++index) {
    const auto pool = static_cast<Pool>(index);
    pools_.push_back({pool, sizes[index], scoreboard.slots(pool), {}});
  }
}

int Supervisor::Run() {
  const sigset_t signals = Signals();
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  while (!stopping_ || HasWorkers() || HasCompanions()) {
    for (WorkerPool& pool : pools_) Adjust(pool);
    for (Companion& companion : companions_) Adjust(companion);
    WaitForSignal();
    NoteReady();
    Reap();
    Report();
  }
  return exit_status_;
}

bool Supervisor::HasWorkers() const {
  return std::ranges::any_of(pools_, [](const WorkerPool& pool) { return !pool.workers.empty(); });
}

bool Supervisor::HasCompanions() const {
  return std::ranges::any_of(companions_, [](const Companion& each) { return each.pid > 0; });
}

// Whether every pool has its minimum of workers, none of them from before a reload.
bool Supervisor::IsSettled() const {
  return std::ranges::all_of(pools_, [](const WorkerPool& pool) {
    const auto stays = [](const Worker& worker) { return worker.ready && !worker.leaving; };
    return Count(pool.workers, stays) >= pool.size &&
           std::ranges::none_of(pool.workers, [](const Worker& worker) {
             return worker.outdated && !worker.leaving;
           });
  });
}

void Supervisor::Report() {
  if (!stopping_ && IsSettled()) manager_.Ready();
  manager_.Alive();
}

void Supervisor::Adjust(WorkerPool& pool) {
  if (stopping_) return;
  Replace(pool);
  while (Clock::now() >= next_start_ && CountStaying(pool) < pool.size && Start(pool)) {
  }
  if (pool.pool == Pool::kFront) EndStuckWorker(pool);
}

// An outdated worker leaves only when its successor is ready. Those that are busy, perhaps for hours, come
// last: until they have ended they keep their slots, which others need.
void Supervisor::Replace(WorkerPool& pool) {
  const auto is_new = [](const Worker& worker) { return !worker.leaving && !worker.ready; };
  const auto is_outdated = [](const Worker& worker) { return !worker.leaving && worker.outdated; };
  auto oldest = std::ranges::find_if(pool.workers, [&](const Worker& worker) {
    return is_outdated(worker) && worker.slot->state != Slot::State::kBusy;
  });
  if (oldest == pool.workers.end()) oldest = std::ranges::find_if(pool.workers, is_outdated);
  if (oldest == pool.workers.end()) return;
  const std::size_t current =
      Count(pool.workers, [](const Worker& worker) { return !worker.leaving && !worker.outdated; });
  if (std::ranges::any_of(pool.workers, is_new)) return;
  if (current > 0 && CountStaying(pool) > pool.size) {
    RequestStop(*oldest);
  } else if (Clock::now() >= next_start_) {
    Start(pool);
  }
}

std::size_t Supervisor::CountStaying(const WorkerPool& pool) {
  return Count(pool.workers, [](const Worker& worker) { return !worker.leaving; });
}

// A short call that takes this long hangs, in a plugin for instance. When all workers hang, no page
// is served any more, so the request that has run longest then gets its deadline early.
void Supervisor::EndStuckWorker(const WorkerPool& pool) {
  const auto is_busy = [](const Worker& worker) {
    return worker.ready && worker.slot->state == Slot::State::kBusy;
  };
  if (pool.workers.size() < pool.size || !std::ranges::all_of(pool.workers, is_busy)) return;
  const auto longest = std::ranges::min_element(
      pool.workers, {}, [](const Worker& worker) { return worker.slot->since.load(); });
  if (Clock::now() - longest->slot->since.load() >= kBusyTooLong) kill(longest->pid, SIGALRM);
}

Supervisor::Clock::duration Supervisor::LongestWait() const {
  const auto due = next_start_ - Clock::now();
  return due > Clock::duration::zero() ? std::min<Clock::duration>(kLook, due) : kLook;
}

void Supervisor::WaitForSignal() {
  const sigset_t signals = Signals();
  const auto wait = std::min<Clock::duration>(LongestWait(), manager_.watchdog_pause());
  const auto whole = std::chrono::duration_cast<seconds>(wait);
  const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(wait - whole);
  const timespec timeout{whole.count(), rest.count()};
  const int signal = sigtimedwait(&signals, nullptr, &timeout);
  if (signal == SIGTERM || signal == SIGINT) {
    Stop();
  } else if (signal == SIGHUP && !stopping_) {
    manager_.Reloading();
    for (WorkerPool& pool : pools_) {
      for (Worker& worker : pool.workers) worker.outdated = true;
    }
  }
}

void Supervisor::NoteReady() {
  for (WorkerPool& pool : pools_) {
    for (Worker& worker : pool.workers) {
      if (worker.slot->state != Slot::State::kStarting) worker.ready = ever_ready_ = true;
    }
  }
}

void Supervisor::Stop() {
  stopping_ = true;
  manager_.Stopping();
  for (WorkerPool& pool : pools_) {
    for (Worker& worker : pool.workers) RequestStop(worker);
  }
}

void Supervisor::RequestStop(Worker& worker) {
  worker.leaving = true;
  kill(worker.pid, SIGTERM);
}

void Supervisor::Reap() {
  int status = 0;
  for (;;) {
    const pid_t pid = waitpid(-1, &status, WNOHANG);
    if (pid <= 0) return;
    const auto companion = std::ranges::find(companions_, pid, &Companion::pid);
    if (companion != companions_.end()) {
      companion->pid = -1;
      if (!stopping_) syslog(LOG_ERR, "the %s ended and is started again", companion->name);
    }
    for (WorkerPool& pool : pools_) {
      const auto worker = std::ranges::find(pool.workers, pid, &Worker::pid);
      if (worker == pool.workers.end()) continue;
      const Worker dead = *worker;
      pool.workers.erase(worker);
      OnWorkerEnded(pool.pool, dead, status);
    }
  }
}

// A worker that was ended by its time limit has answered its client with 504 (Deadline). Otherwise the
// web server answers the client with an error of its own.
void Supervisor::ReportRequest(Pool pool, const Worker& worker, int status) {
  RequestNote request = std::exchange(worker.slot->request, {});
  if (!request.HasRequest()) return;
  const bool too_late = WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM;
  request.status = too_late ? kTookTooLong : kWorkerFailed;
  request.link.back() = '\0';  // the plugin that crashed may have overwritten it
  on_lost_request_(request, pool, worker.pid);
}

void Supervisor::OnWorkerEnded(Pool pool, const Worker& worker, int status) {
  LogDeath(worker.pid, status, *worker.slot);
  CountDeath(status, statistics_.pool(pool));
  ReportRequest(pool, worker, status);
  worker.slot->stuck_in.front() = '\0';
  worker.slot->party = 0;
  worker.slot->state = Slot::State::kEmpty;
  if (!ever_ready_ && WIFEXITED(status) && WEXITSTATUS(status) == kBadConfiguration) {
    exit_status_ = kBadConfiguration;
    if (!stopping_) Stop();
  }
  if (worker.leaving) return;
  const auto now = Clock::now();
  if (worker.ready && now - worker.start >= kEarlyDeath) {
    early_deaths_ = 0;
    return;
  }
  if (now - next_start_ > kLongestPause) early_deaths_ = 0;
  const auto pause = std::min(kLongestPause, kShortestPause * (1 << std::min(early_deaths_, 10U)));
  ++early_deaths_;
  next_start_ = now + pause;
}

void Supervisor::Adjust(Companion& companion) {
  if (stopping_) {
    if (HasWorkers() || companion.pid <= 0 || std::exchange(companion.leaving, true)) return;
    // One that has given root's ids up for good can't be ended by a supervisor without CAP_KILL.
    if (kill(companion.pid, SIGTERM) != 0) companion.pid = -1;
    return;
  }
  if (companion.pid > 0 || Clock::now() < companion.start) return;
  companion.start = Clock::now() + kCompanionPause;
  const pid_t supervisor = getpid();
  companion.pid = fork();
  if (companion.pid != 0) return;
  std::signal(SIGHUP, SIG_IGN);  // for the supervisor only
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  std::_Exit(companion.main(supervisor));
}

bool Supervisor::Start(WorkerPool& pool) {
  const auto slot = std::ranges::find(pool.slots, Slot::State::kEmpty,
                                      [](const Slot& each) { return each.state.load(); });
  // Workers that were asked to stop keep their slots until they have ended.
  if (slot == pool.slots.end()) return false;
  const WorkerPlace place{getpid(), pool.pool, &*slot, &scoreboard_};
  slot->state = Slot::State::kStarting;
  const pid_t pid = fork();
  if (pid == 0) std::exit(worker_(place));
  if (pid < 0) {
    syslog(LOG_ERR, "cannot start a worker: %s", strerror(errno));
    slot->state = Slot::State::kEmpty;
    next_start_ = Clock::now() + kLongestPause;
    return false;
  }
  ++statistics_.pool(pool.pool).starts;
  pool.workers.push_back({pid, Clock::now(), &*slot});
  return true;
}

}  // namespace VELT::host
