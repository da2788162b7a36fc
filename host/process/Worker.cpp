#include "host/process/Worker.h"

#include <malloc.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
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
#include "host/process/EventQueue.h"
#include "host/process/Privileges.h"
#include "host/process/Progress.h"
#include "host/process/Turns.h"
#include "host/request/Answer.h"
#include "host/request/Caller.h"
#include "host/request/Dispatcher.h"
#include "host/request/FastCgi.h"
#include "host/request/OutputCapture.h"
#include "host/request/Registry.h"
#include "host/request/Scgi.h"
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
constexpr int kLookAgain = 50;             // milliseconds
constexpr std::int64_t kStreamRetry = 30;  // seconds
constexpr int kLinger = 1000;              // milliseconds

// Whose workers tell the modules that time passes, and how often, in milliseconds.
constexpr Pool kTellers = Pool::kBulk;
constexpr int kTellEvery = 10000;

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
  explicit RequestWaiter(int signals) : signals_(signals), epoll_(epoll_create1(EPOLL_CLOEXEC)) {
    Add(signals, EPOLLIN);
  }

  // `how`: 0, or EPOLLET for a source that may be left unread; it is told of once then.
  void Watch(int source, std::uint32_t how) { Add(source, EPOLLIN | EPOLLEXCLUSIVE | how); }

  // Returns after so many milliseconds at the latest; -1 waits without end. False when the worker is
  // to stop. A request that came at the same time is served first, because no other worker was woken
  // for it.
  bool Wait(int milliseconds) {
    if (leaving_) return false;
    epoll_event events[2];
    const int count = epoll_wait(epoll_.get(), events, std::size(events), milliseconds);
    bool requested = count <= 0;
    for (int i = 0; i < count; ++i) {
      (events[i].data.fd == signals_ ? leaving_ : requested) = true;
    }
    return requested;
  }

 private:
  void Add(int descriptor, std::uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = descriptor;
    if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, descriptor, &event) != 0) {
      throw std::system_error(errno, std::generic_category(), "epoll");
    }
  }

  int signals_;
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
  Worker(const Options& options, const Queues& queues, const EventQueue& events,
         Statistics& statistics, const WorkerPlace& place, const Registry& registry,
         Dispatcher& dispatcher)
      : options_(options),
        registry_(registry),
        queues_(queues),
        statistics_(statistics),
        place_(place),
        dispatcher_(dispatcher),
        deadline_(options.request_timeout, *place.slot),
        log_(options.request_log),
        events_(events) {}

  // Serves requests until the worker is to stop.
  void Serve(int listener, int signals) {
    RequestWaiter waiter(signals);
    if (place_.pool == Pool::kFront) {
      FastCgiListener front(listener, registry_.LargestBody());
      waiter.Watch(listener, 0);
      return ServeFrom(waiter, [&]() -> std::optional<Incoming> {
        if (!front.Accept()) return std::nullopt;
        BecomeBusy(place_);
        return front.Take();
      });
    }
    if (place_.pool == Pool::kUpload) {
      waiter.Watch(listener, 0);
      return ServeFrom(waiter, [&]() -> std::optional<Incoming> {
        Descriptor connection = AcceptScgi(listener);
        if (connection.get() < 0) return std::nullopt;
        BecomeBusy(place_);
        return TakeScgi(std::move(connection));
      });
    }
    const Lines& lines = queues_[IndexOf(place_.pool)];
    for (const Handover& line : lines) waiter.Watch(line.fd(), EPOLLET);
    Turns turns(lines, *place_.slot, Slots(place_.pool));
    ServeFrom(waiter, [&] {
      auto incoming = turns.Next();
      if (incoming) BecomeBusy(place_);
      // The kernel tells only once of calls that this worker has left in their line.
      pause_ = incoming ? 0 : turns.passed_over() ? kLookAgain : -1;
      return incoming;
    });
  }

 private:
  std::span<const Slot> Slots(Pool pool) const { return place_.scoreboard->slots(pool); }

  template <typename Next>
  void ServeFrom(RequestWaiter& waiter, Next next) {
    while (EndWithSupervisor(place_)) {
      deadline_.Start();
      if (std::optional<Incoming> incoming = next()) Answer(*incoming);
      place_.slot->party = 0;  // what is left to do is nobody's, and short
      afterwards_.DoDue();
      TellThatTimePasses();
      deadline_.Stop();
      if (!IsLoweredTo(options_.ids)) {
        syslog(LOG_CRIT, "a request left effective ids %u:%u behind; leaving", geteuid(),
               getegid());
        return;
      }
      BecomeIdle(place_);
      if (!waiter.Wait(Patience())) return;
    }
  }

  // The milliseconds until something is due without a new request; -1: nothing is.
  int Patience() const {
    int least = place_.pool == kTellers ? kTellEvery : -1;
    for (const int due : {afterwards_.Milliseconds(), pause_}) {
      if (due >= 0 && (least < 0 || due < least)) least = due;
    }
    return least;
  }

  void TellThatTimePasses() {
    const auto now = std::chrono::steady_clock::now();
    if (place_.pool != kTellers || now < tell_) return;
    tell_ = now + std::chrono::milliseconds(kTellEvery);
    dispatcher_.TellOfLinks(nullptr);
  }

  void Answer(Incoming& incoming) {
    RequestNote& note = place_.slot->request;
    note = {incoming.id, incoming.taken};
    if (incoming.reply.ClientHasLeft()) return Finish(kClientLeft, 0);
    deadline_.SetClient(&incoming);
    const ProgramsOfRequest programs(incoming.reply);
    if (place_.pool == Pool::kStream) {
      incoming.reply.SetPatience(kStreamSilence);
      incoming.reply.SendLittleAtOnce();
    }
    WebRequest& request = incoming.request;
    Stream stream{incoming, Progress(deadline_), request.AnnouncedLength()};
    if (request.read_body) {
      if (!TakesUpload(VisitorParty(request.Variable("REMOTE_ADDR"))))
        return RefuseUpload(incoming);
      request.read_body = [&, read = std::move(request.read_body)](std::span<char> buffer) {
        const std::size_t length = read(buffer);
        stream.unread -= static_cast<std::int64_t>(length);
        return stream.progress.Note(length) ? length : 0;
      };
    }
    Dispatcher::Outcome outcome = dispatcher_.Answer(
        request, [&](std::string_view piece) { return Send(stream, piece); }, note);
    // From here on the answer may be partly sent, so the deadline must not send another one.
    deadline_.SetClient(nullptr);
    if (outcome.other_pool) {
      if (HandOver(incoming, outcome)) {
        note = {};  // the worker that takes it reports it
        return;
      }
      outcome.code = kErrorUnexpected;
    }
    Reply(incoming, stream, outcome);
    for (sharing::LinkEvent& event : outcome.events) {
      if (stream.left || outcome.broken_off) event.result = "incomplete";
      events_.Give(std::move(event));
    }
    if (outcome.at_once) outcome.at_once();
    if (outcome.afterwards) afterwards_.Add(std::move(outcome.afterwards));
    // Parsed JSON can take a hundred times the memory of its text. It is given back to the system.
    if (incoming.request.body.size() > kLargestVisitorBody) malloc_trim(0);
  }

  // False after setting the answer that refuses the call.
  bool HandOver(Incoming& incoming, Dispatcher::Outcome& outcome) {
    incoming.request.judged = outcome.judged;
    if (!outcome.judged_owner.empty()) {
      incoming.request.variables[kJudgedOwner] = outcome.judged_owner;
    }
    const Pool pool = *outcome.other_pool;
    const Lines& lines = queues_[IndexOf(pool)];
    const bool has_room = pool != Pool::kStream || HasRoom(outcome.party, lines);
    if (has_room && lines[LineOf(outcome.party)].Give(incoming, outcome.party)) return true;
    ++statistics_.pool(pool).refused;
    if (!has_room) {
      outcome.answer = ErrorAnswer(kErrorUnexpected, "too many archives are being sent",
                                   "503 Service Unavailable", kStreamRetry);
      return false;
    }
    syslog(LOG_WARNING, "too many calls wait for the workers of pool %s", NameOf(pool));
    outcome.answer = ErrorAnswer(kErrorUnexpected, "too many calls wait; try again later");
    return false;
  }

  // Whether a stream would find a worker at once. It takes as long as its client likes, so none waits
  // for another to end.
  bool HasRoom(Party party, const Lines& lines) const {
    const auto slots = Slots(Pool::kStream);
    const auto count = [slots](auto is) {
      return static_cast<std::size_t>(std::ranges::count_if(slots, is));
    };
    // All idle workers wake for one call and claim it for a moment.
    return count([](const Slot& slot) { return !IsClaim(slot.party); }) + Length(lines) <
               slots.size() - 1 &&
           count([party](const Slot& slot) { return slot.party == party; }) +
                   lines[LineOf(party)].Length() <
               ShareOf(slots);
  }

  // The same for a file whose body this worker is to read, as none waits for another's end.
  bool TakesUpload(Party party) {
    const auto slots = Slots(Pool::kUpload);
    const std::size_t workers = slots.size() - 1;
    // Before the look, so that of two workers that look at once at least one sees the other.
    place_.slot->party = party;
    const auto own =
        std::ranges::count_if(slots, [&](const Slot& slot) { return slot.party == party; });
    const auto busy =
        std::ranges::count_if(slots, [](const Slot& slot) { return slot.party != 0; });
    return static_cast<std::size_t>(own) <= ShareOf(slots) &&
           (workers == 1 || static_cast<std::size_t>(busy) < workers);
  }

  void RefuseUpload(const Incoming& incoming) {
    ++statistics_.pool(Pool::kUpload).refused;
    Dispatcher::Outcome outcome(
        PlainAnswer("503 Service Unavailable", "Too many files are being sent; try again later.",
                    "Retry-After: " + std::to_string(kStreamRetry) + "\r\n"));
    outcome.code = kErrorUnexpected;
    deadline_.SetClient(nullptr);
    Reply(incoming, Stream{incoming, Progress(deadline_), 1}, outcome);
  }

  // What goes piece by piece: the answer, or the request's body.
  struct Stream {
    const Incoming& incoming;
    Progress progress;
    std::int64_t unread;  // bytes of a body that is read here
    bool begun = false;
    bool left = false;  // whether the client has left
  };

  // False when the client has left or is too slow.
  bool Send(Stream& stream, std::string_view piece) {
    deadline_.SetClient(nullptr);
    const ReplyChannel& reply = stream.incoming.reply;
    stream.left =
        reply.ClientHasLeft() ||
        (!std::exchange(stream.begun, true) && !reply.SendPiece(IdLine(stream.incoming.id))) ||
        !reply.SendPiece(piece);
    stream.left = !stream.progress.Note(piece.size()) || stream.left;
    return !stream.left;
  }

  void Reply(const Incoming& incoming, const Stream& stream, const Dispatcher::Outcome& outcome) {
    // Before the client knows it and sends the next file.
    if (place_.pool == Pool::kUpload) place_.slot->party = 0;
    if (stream.left) return Finish(kClientLeft, 0);
    if (outcome.broken_off) return Finish(kWorkerFailed, kErrorUnexpected);
    const std::string rest = (stream.begun ? std::string() : IdLine(incoming.id)) + outcome.answer;
    const int status = stream.begun ? place_.slot->request.status : StatusOf(rest);
    if (incoming.request.read_body && stream.unread > 0) {
      if (!EndEarly(incoming, rest)) return Finish(kClientLeft, 0);
      return Finish(status, outcome.code);
    }
    if (!incoming.reply.Send(rest)) return Finish(kClientLeft, 0);
    Finish(status, outcome.code);
  }

  // Answers a client that still sends. False when it has left.
  static bool EndEarly(const Incoming& incoming, const std::string& answer) {
    if (!incoming.reply.SendPiece(answer)) return false;
    // Over HTTP/2, curl 7.88 loses an answer that ends before it has stopped sending.
    if (incoming.request.Variable("SERVER_PROTOCOL").starts_with("HTTP/2"))
      Drop(incoming, kLookAgain);
    // The web server takes an end with bytes that nobody has read for an error, and leaves after this one.
    shutdown(incoming.reply.connection(), SHUT_WR);
    Drop(incoming, kLinger);
    return true;
  }

  // Reads what still comes, until nothing does for so many milliseconds, or for kLinger.
  static void Drop(const Incoming& incoming, int pause) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kLinger);
    std::array<char, 16384> unwanted{};
    pollfd watched{incoming.reply.connection(), POLLIN, 0};
    while (std::chrono::steady_clock::now() < end && poll(&watched, 1, pause) > 0 &&
           incoming.request.read_body(unwanted) > 0) {
    }
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
  const Queues& queues_;
  Statistics& statistics_;
  const WorkerPlace& place_;
  Dispatcher& dispatcher_;
  Deadline deadline_;
  const RequestLog log_;
  Afterwards afterwards_;
  const EventQueue& events_;
  int pause_ = -1;                                // the longest time to wait for the next request
  std::chrono::steady_clock::time_point tell_{};  // when modules are told again
};

}  // namespace

int RunWorker(const Options& options, int listener, const Queues& queues, const EventQueue& events,
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
    Worker worker(options, queues, events, statistics, place, registry, dispatcher);
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
