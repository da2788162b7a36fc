#include "host/process/EventRecorder.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>
#include <exception>
#include <iterator>
#include <vector>

#include "host/process/Privileges.h"
#include "veltsharing/RecordLinkEvents.h"
#include "veltsharing/StoreOptions.h"
#include "veltsys/Counters.h"
#include "veltsys/Descriptor.h"

namespace VELT::host {
namespace {

constexpr int kGather = 2000;  // milliseconds from the first event to its transaction
constexpr int kLookForOld = 10'000;
constexpr std::size_t kMostWaiting = 10'000;  // while the database is away

int WatchTermination() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGINT, SIG_IGN);  // of a terminal; the workers still answer
  return signalfd(-1, &signals, SFD_CLOEXEC);
}

// False when the process is to end.
bool Wait(int termination, int queue, int milliseconds) {
  std::array<pollfd, 2> sources{{{termination, POLLIN, 0}, {queue, POLLIN, 0}}};
  poll(sources.data(), queue < 0 ? 1 : 2, milliseconds);
  return sources[0].revents == 0;
}

}  // namespace

int RecordEvents(const Options& options, EventQueue& queue, Statistics& statistics,
                 pid_t supervisor) {
  try {
    prctl(PR_SET_NAME, "velt-events");  // for ps(1)
    LowerTo(options.ids);  // so that a supervisor without CAP_KILL may end it (kill(2))
    const Descriptor termination(WatchTermination());
    // After the change of ids, which would clear it.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != supervisor) return 1;
    CountInto(statistics.platform());
    sharing::ConfigureStore({options.database, {}});
    std::vector<sharing::LinkEvent> waiting;
    for (bool goes_on = true; goes_on;) {
      goes_on =
          Wait(termination.get(), queue.fd(), kLookForOld) && Wait(termination.get(), -1, kGather);
      std::ranges::move(queue.Take(), std::back_inserter(waiting));
      if (sharing::RecordLinkEvents(waiting, options.event_days)) {
        waiting.clear();
      } else if (waiting.size() > kMostWaiting) {
        syslog(LOG_ERR, "what visitors did %zu times is not written down", waiting.size());
        waiting.clear();
      }
    }
    return 0;
  } catch (const std::exception& error) {
    syslog(LOG_ERR, "%s", error.what());
    return 1;
  }
}

}  // namespace VELT::host
