#include "host/process/Worker.h"

#include <malloc.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iterator>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "host/Limits.h"
#include "host/process/Afterwards.h"
#include "host/process/Deadline.h"
#include "host/process/Privileges.h"
#include "host/request/Answer.h"
#include "host/request/Caller.h"
#include "host/request/Dispatcher.h"
#include "host/request/FastCgi.h"
#include "host/request/OutputCapture.h"
#include "host/request/Registry.h"
#include "host/request/WebRequest.h"
#include "host/watch/RequestLog.h"
#include "host/watch/RequestNote.h"
#include "veltsharing/StoreOptions.h"
#include "veltsys/Counters.h"
#include "veltsys/Descriptor.h"
#include "veltsys/ProgramRules.h"

namespace VELT::host {
namespace {

// On a busy machine, pages have priority over slow calls and the programs that these start.
constexpr int kNiceness = 10;

// A descriptor that becomes readable when the worker is to stop. The signals stay blocked, so that
// they neither interrupt a request nor get lost between two.
int WatchSignals() {
  std::signal(SIGPIPE, SIG_IGN);  // a client that is gone must not end the worker
  std::signal(SIGHUP, SIG_IGN);   // for the supervisor only
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  sigprocmask(SIG_SETMASK, &signals, nullptr);
  return signalfd(-1, &signals, SFD_CLOEXEC);
}

// Waits for a request; of several workers that wait, the kernel wakes one.
class RequestWaiter {
 public:
  RequestWaiter(int source, int signals) : source_(source), epoll_(epoll_create1(EPOLL_CLOEXEC)) {
    Watch(source, EPOLLIN | EPOLLEXCLUSIVE);
    Watch(signals, EPOLLIN);
  }

  enum class Event { kRequest, kTimeout, kStop };

  // kTimeout after so many milliseconds; -1 waits without end. When the worker is to stop, a request
  // that came at the same time is served first, because no other worker was woken for it.
  Event Wait(int milliseconds) {
    while (!leaving_) {
      epoll_event events[2];
      const int count = epoll_wait(epoll_.get(), events, std::size(events), milliseconds);
      if (count == 0) return Event::kTimeout;
      if (count < 0 && errno != EINTR) break;
      bool requested = false;
      for (int i = 0; i < count; ++i) {
        (events[i].data.fd == source_ ? requested : leaving_) = true;
      }
      if (requested) return Event::kRequest;
    }
    return Event::kStop;
  }

 private:
  void Watch(int descriptor, std::uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = descriptor;
    if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, descriptor, &event) != 0) {
      throw std::system_error(errno, std::generic_category(), "epoll");
    }
  }

  int source_;
  Descriptor epoll_;
  bool leaving_ = false;
};

// Asks the kernel to kill this process when the supervisor ends. A change of the effective ids,
// which handlers make, cancels that (prctl(2)), so this is called for every request. False when the
// supervisor has ended already.
bool EndWithSupervisor(const WorkerPlace& place) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  return getppid() == place.supervisor;
}

void BecomeIdle(const WorkerPlace& place) { place.slot->state = Slot::State::kIdle; }

void BecomeBusy(const WorkerPlace& place) {
  place.slot->since = std::chrono::steady_clock::now();
  place.slot->state = Slot::State::kBusy;
}

// While it exists, programs belong to the request and are started only as long as its client waits.
class ProgramsOfRequest {
 public:
  explicit ProgramsOfRequest(const ReplyChannel& reply) {
    BeginProgramsOfRequest([&reply] { return !reply.ClientHasLeft(); });
  }
  ~ProgramsOfRequest() { BeginProgramsOfRequest({}); }
  ProgramsOfRequest(const ProgramsOfRequest&) = delete;
  ProgramsOfRequest& operator=(const ProgramsOfRequest&) = delete;
};

class Worker {
 public:
  Worker(const Options& options, const std::array<Handover, kPoolCount>& queues,
         Statistics& statistics, const WorkerPlace& place, const Registry& registry,
         Dispatcher& dispatcher)
      : options_(options),
        registry_(registry),
        queues_(queues),
        statistics_(statistics),
        place_(place),
        dispatcher_(dispatcher),
        deadline_(options.request_timeout, *place.slot),
        log_(options.request_log) {}

  // Serves requests until the worker is to stop.
  void Serve(int listener, int signals) {
    if (place_.pool == Pool::kFront) {
      FastCgiListener front(listener, registry_.LargestBody());
      ServeFrom(
          listener, signals, [&front] { return front.Accept(); },
          [&front] { return front.Take(); });
    } else {
      const Handover& queue = queues_[IndexOf(place_.pool)];
      ServeFrom(
          queue.fd(), signals, [] { return true; }, [&queue] { return queue.Take(); });
    }
  }

 private:
  // `arrived` is asked for each event and says whether there is something to `take`.
  template <typename Arrived, typename Take>
  void ServeFrom(int source, int signals, Arrived arrived, Take take) {
    RequestWaiter waiter(source, signals);
    while (EndWithSupervisor(place_)) {
      RequestWaiter::Event event{};
      do {
        event = waiter.Wait(afterwards_.Milliseconds());
        if (event == RequestWaiter::Event::kStop) return;
      } while (event == RequestWaiter::Event::kRequest && !arrived());
      BecomeBusy(place_);
      deadline_.Start();
      if (event == RequestWaiter::Event::kRequest) {
        if (std::optional<Incoming> incoming = take()) Answer(*incoming);
      }
      afterwards_.DoDue();
      deadline_.Stop();
      if (!IsLoweredTo(options_.ids)) {
        syslog(LOG_CRIT, "a request left effective ids %u:%u behind; leaving", geteuid(),
               getegid());
        return;
      }
      BecomeIdle(place_);
    }
  }

  void Answer(Incoming& incoming) {
    RequestNote& note = place_.slot->request;
    note = {incoming.id, incoming.taken};
    if (incoming.reply.ClientHasLeft()) return Finish(kClientLeft, 0);
    deadline_.SetClient(&incoming);
    const ProgramsOfRequest programs(incoming.reply);
    Stream stream{incoming};
    Dispatcher::Outcome outcome = dispatcher_.Answer(
        incoming.request, [&](std::string_view piece) { return Send(stream, piece); }, note);
    // From here on the answer may be partly sent, so the deadline must not send another one.
    deadline_.SetClient(nullptr);
    if (outcome.other_pool) {
      const Pool pool = *outcome.other_pool;
      if (!outcome.judged_owner.empty()) {
        incoming.request.variables[kJudgedOwner] = outcome.judged_owner;
      }
      if (queues_[IndexOf(pool)].Give(incoming)) {
        note = {};  // the worker that takes it reports it
        return;
      }
      syslog(LOG_WARNING, "too many calls wait for the workers of pool %s", NameOf(pool));
      ++statistics_.pool(pool).refused;
      outcome.answer = ErrorAnswer(kUnexpectedFailure, "too many calls wait; try again later");
      outcome.code = kUnexpectedFailure;
    }
    Reply(incoming, stream, outcome);
    if (outcome.note) outcome.note();
    if (outcome.afterwards) afterwards_.Add(std::move(outcome.afterwards));
    // Parsed JSON can take a hundred times the memory of its text. It is given back to the system.
    if (incoming.request.body.size() > kLargestVisitorBody) malloc_trim(0);
  }

  // An answer that is sent in pieces.
  struct Stream {
    const Incoming& incoming;
    bool begun = false;
    bool left = false;  // whether the client has left
    std::size_t moved = 0;
  };

  // False when the client has left.
  bool Send(Stream& stream, std::string_view piece) {
    deadline_.SetClient(nullptr);
    const ReplyChannel& reply = stream.incoming.reply;
    stream.left =
        reply.ClientHasLeft() ||
        (!std::exchange(stream.begun, true) && !reply.SendPiece(IdLine(stream.incoming.id))) ||
        !reply.SendPiece(piece);
    if (stream.left) return false;
    stream.moved += piece.size();
    if (stream.moved >= kStreamProgress) {
      stream.moved = 0;
      deadline_.Extend();
    }
    return true;
  }

  void Reply(const Incoming& incoming, const Stream& stream, const Dispatcher::Outcome& outcome) {
    if (outcome.broken_off) {
      if (stream.left) return Finish(kClientLeft, 0);
      return Finish(kWorkerFailed, kUnexpectedFailure);
    }
    if (stream.begun || stream.left) {
      incoming.reply.Send(outcome.answer);
      return Finish(stream.left ? kClientLeft : place_.slot->request.status, outcome.code);
    }
    incoming.reply.Send(IdLine(incoming.id) + outcome.answer);
    Finish(StatusOf(outcome.answer), outcome.code);
  }

  // Counts and logs a request whose client has been answered or has left.
  void Finish(int status, int code) {
    // Cleared first, so that the supervisor does not report the request again if this worker dies now.
    RequestNote note = std::exchange(place_.slot->request, {});
    note.status = status;
    note.code = code;
    const auto took = TimeSince(note.taken);
    statistics_.Count(note, took);
    const RequestEnd end{took, place_.pool, getpid()};
    if (!log_.Write(note, statistics_.method(note), end)) statistics_.CountLostLine();
  }

  const Options& options_;
  const Registry& registry_;
  const std::array<Handover, kPoolCount>& queues_;
  Statistics& statistics_;
  const WorkerPlace& place_;
  Dispatcher& dispatcher_;
  Deadline deadline_;
  const RequestLog log_;
  Afterwards afterwards_;
};

}  // namespace

int RunWorker(const Options& options, int listener, const std::array<Handover, kPoolCount>& queues,
              Statistics& statistics, const WorkerPlace& place) {
  bool started = false;
  try {
    const Descriptor signals(WatchSignals());
    if (place.pool != Pool::kFront) setpriority(PRIO_PROCESS, 0, kNiceness);
    sharing::ConfigureStore({options.database, {}, std::chrono::seconds(options.login_timeout)});
    SetProgramRules(
        {options.ids.uid, options.ids.gid, std::chrono::seconds(options.program_timeout)});
    OutputCapture output;
    CountInto(statistics.platform());
    Registry registry = Registry::Load(options.registry);
    registry.Number([&statistics](const std::string& api, int version, const std::string& name) {
      return statistics.RowOf(api, version, name);
    });
    LowerTo(options.ids);
    Dispatcher dispatcher(options, registry, output, place.pool);
    Worker worker(options, queues, statistics, place, registry, dispatcher);
    BecomeIdle(place);
    kill(place.supervisor, SIGUSR1);
    started = true;
    worker.Serve(listener, signals.get());
    return 0;
  } catch (const std::exception& error) {
    syslog(LOG_ERR, "%s", error.what());
    return started ? 1 : kBadConfiguration;
  }
}

}  // namespace VELT::host
