#include "Supervisor.h"

#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

#include "Worker.h"

namespace VELT::host {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kYoung{1};
constexpr milliseconds kShortestPause{100};
constexpr milliseconds kLongestPause{10000};

// A real-time signal: every worker's is delivered, with its sender.
int ReadySignal() { return SIGRTMIN; }

sigset_t Signals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD, ReadySignal()}) {
    sigaddset(&signals, signal);
  }
  return signals;
}

void LogDeath(pid_t pid, int status) {
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) {
    syslog(LOG_ERR, "worker %d took too long over a request and was ended", pid);
  } else if (WIFSIGNALED(status)) {
    syslog(LOG_ERR, "worker %d died: %s", pid, strsignal(WTERMSIG(status)));
  } else if (WEXITSTATUS(status) != 0) {
    syslog(LOG_ERR, "worker %d left with status %d", pid, WEXITSTATUS(status));
  }
}

}  // namespace

Supervisor::Supervisor(std::size_t count, WorkerMain worker)
    : count_(count), worker_(std::move(worker)) {}

int Supervisor::Run() {
  const sigset_t signals = Signals();
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  while (!stopping_ || !workers_.empty()) {
    Adjust();
    WaitForSignal();
    Reap();
  }
  return exit_status_;
}

// Brings the workers nearer to what they should be. While some are outdated, there is one more than
// usual: an old one leaves only when its successor is ready.
void Supervisor::Adjust() {
  if (stopping_) return;
  const auto stays = [](const Worker& worker) { return !worker.leaving; };
  const auto is_outdated = [&](const Worker& worker) { return stays(worker) && worker.outdated; };
  const auto is_new = [&](const Worker& worker) { return stays(worker) && !worker.ready; };
  const auto staying = [&] {
    return static_cast<std::size_t>(std::count_if(workers_.begin(), workers_.end(), stays));
  };
  const auto oldest = std::find_if(workers_.begin(), workers_.end(), is_outdated);
  const bool all_ready = std::none_of(workers_.begin(), workers_.end(), is_new);
  if (staying() > count_ && all_ready && oldest != workers_.end()) TellToLeave(*oldest);
  const bool replacing = std::any_of(workers_.begin(), workers_.end(), is_outdated);
  while (staying() < count_ + (replacing ? 1 : 0) && Clock::now() >= next_start_) Start();
}

void Supervisor::WaitForSignal() {
  const sigset_t signals = Signals();
  siginfo_t info{};
  // Long enough to cost nothing, when nothing is due.
  Clock::duration pause = seconds(60);
  if (!stopping_) {
    const auto due = next_start_ - Clock::now();
    if (due > Clock::duration::zero()) pause = std::min(pause, due);
  }
  const auto whole = std::chrono::duration_cast<seconds>(pause);
  const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(pause - whole);
  const timespec timeout{whole.count(), rest.count()};
  const int signal = sigtimedwait(&signals, &info, &timeout);
  if (signal == SIGTERM || signal == SIGINT) {
    Stop();
  } else if (signal == SIGHUP) {
    for (Worker& worker : workers_) worker.outdated = true;
  } else if (signal == ReadySignal()) {
    for (Worker& worker : workers_) {
      if (worker.pid == info.si_pid) worker.ready = ever_ready_ = true;
    }
  }
}

void Supervisor::Stop() {
  stopping_ = true;
  for (Worker& worker : workers_) TellToLeave(worker);
}

void Supervisor::TellToLeave(Worker& worker) {
  worker.leaving = true;
  kill(worker.pid, SIGTERM);
}

void Supervisor::Reap() {
  int status = 0;
  for (;;) {
    const pid_t pid = waitpid(-1, &status, WNOHANG);
    if (pid <= 0) return;
    const auto worker = std::find_if(workers_.begin(), workers_.end(),
                                     [pid](const Worker& one) { return one.pid == pid; });
    if (worker == workers_.end()) continue;
    const Worker dead = *worker;
    workers_.erase(worker);
    Bury(dead, status);
  }
}

void Supervisor::Bury(const Worker& worker, int status) {
  LogDeath(worker.pid, status);
  if (!ever_ready_ && WIFEXITED(status) && WEXITSTATUS(status) == kBadConfiguration) {
    exit_status_ = kBadConfiguration;
    if (!stopping_) Stop();
  }
  if (worker.leaving) return;
  const auto now = Clock::now();
  if (worker.ready && now - worker.start >= kYoung) {
    early_deaths_ = 0;
    return;
  }
  if (now - next_start_ > kLongestPause) early_deaths_ = 0;
  const auto pause = std::min(kLongestPause, kShortestPause * (1 << std::min(early_deaths_, 10U)));
  ++early_deaths_;
  next_start_ = now + pause;
}

void Supervisor::Start() {
  const pid_t supervisor = getpid();
  const pid_t pid = fork();
  if (pid < 0) {
    syslog(LOG_ERR, "cannot start a worker: %s", strerror(errno));
    next_start_ = Clock::now() + kLongestPause;
  } else if (pid == 0) {
    // A parent that is gone has no successor who would want to know.
    std::exit(worker_([supervisor] {
      if (getppid() == supervisor) sigqueue(supervisor, ReadySignal(), {});
    }));
  } else {
    workers_.push_back({pid, Clock::now()});
  }
}

}  // namespace VELT::host
