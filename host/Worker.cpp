#include "Worker.h"

#include <fcgiapp.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <exception>
#include <iterator>
#include <string>
#include <system_error>

#include "Dispatcher.h"
#include "Limits.h"
#include "OutputCapture.h"
#include "Privileges.h"
#include "Registry.h"
#include "veltsharing/StoreOptions.h"
#include "veltsys/Descriptor.h"

namespace VELT::host {
namespace {

// The descriptor from which the wish to end this worker is read. The signals stay blocked, so that
// they neither disturb a request in hand nor get lost between two.
int WatchForTheEnd() {
  std::signal(SIGPIPE, SIG_IGN);  // a client that went away is no reason to end
  std::signal(SIGHUP, SIG_IGN);   // the parent's business
  std::signal(SIGALRM, SIG_DFL);  // the time limit of a request
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  sigprocmask(SIG_SETMASK, &signals, nullptr);
  return signalfd(-1, &signals, SFD_CLOEXEC);
}

// Waits for connections without waking other workers that wait for the same one.
class RequestWaiter {
 public:
  RequestWaiter(int listener, int signals, int lifeline)
      : listener_(listener), epoll_(epoll_create1(EPOLL_CLOEXEC)) {
    Watch(listener, EPOLLIN | EPOLLEXCLUSIVE);
    Watch(signals, EPOLLIN);
    Watch(lifeline, EPOLLIN);
  }

  // False when it is time to leave. A connection that came at the same moment is served first, for
  // this worker alone was woken for it.
  bool Wait() {
    while (!leaving_) {
      epoll_event events[3];
      const int count = epoll_wait(epoll_.get(), events, std::size(events), -1);
      if (count < 0 && errno != EINTR) return false;
      bool connected = false;
      for (int i = 0; i < count; ++i) {
        if (events[i].data.fd == listener_) {
          connected = true;
        } else {
          leaving_ = true;
        }
      }
      if (connected) return true;
    }
    return false;
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

  int listener_;
  Descriptor epoll_;
  bool leaving_ = false;
};

std::size_t AnnouncedLength(const WebRequest& request) {
  const std::string text = request.Variable("CONTENT_LENGTH");
  std::size_t length = 0;
  std::from_chars(text.data(), text.data() + text.size(), length);
  return length;
}

// A body that is too large is still read to its end: the web server has it in hand, and takes an
// answer that comes earlier for a failure.
void ReadBody(FCGX_Stream* input, WebRequest& request) {
  char chunk[16384];
  std::size_t length = 0;
  for (;;) {
    const int got = FCGX_GetStr(chunk, sizeof chunk, input);
    if (got <= 0) break;
    length += static_cast<std::size_t>(got);
    if (request.body.size() <= kLargestBody) {
      request.body.append(chunk, static_cast<std::size_t>(got));
    }
  }
  request.body_complete = length == AnnouncedLength(request);
}

WebRequest ReadRequest(const FCGX_Request& fcgi) {
  WebRequest request;
  for (char** variable = fcgi.envp; variable != nullptr && *variable != nullptr; ++variable) {
    const std::string_view text = *variable;
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos) continue;
    request.variables.emplace(text.substr(0, equals), text.substr(equals + 1));
  }
  ReadBody(fcgi.in, request);
  return request;
}

void WriteAnswer(const FCGX_Request& fcgi, const std::string& answer) {
  FCGX_PutStr(answer.data(), static_cast<int>(answer.size()), fcgi.out);
}

// Sends what is left of the answer and ends the connection. The library would wait for the web
// server to close it first, which matters only where bytes of the request are still unread: ours is
// read to its end.
void FinishRequest(FCGX_Request& fcgi) {
  fcgi.keepConnection = 1;
  FCGX_Finish_r(&fcgi);
  // Gone already when the answer could not be sent.
  if (fcgi.ipcFd >= 0) close(fcgi.ipcFd);
  fcgi.ipcFd = -1;
}

// Serves requests until it is time to leave.
int Serve(const Options& options, Dispatcher& dispatcher, int listener, int signals, int lifeline) {
  FCGX_Request fcgi;
  if (FCGX_Init() != 0 || FCGX_InitRequest(&fcgi, listener, FCGI_FAIL_ACCEPT_ON_INTR) != 0) {
    syslog(LOG_ERR, "cannot set FastCGI up");
    return kBadConfiguration;
  }
  RequestWaiter waiter(listener, signals, lifeline);
  while (waiter.Wait()) {
    // When the time is over the process ends, and the parent says so in the log.
    alarm(options.request_timeout);
    const int accepted = FCGX_Accept_r(&fcgi);
    if (accepted == 0) {
      fcntl(fcgi.ipcFd, F_SETFD, FD_CLOEXEC);
      const WebRequest request = ReadRequest(fcgi);
      WriteAnswer(fcgi, dispatcher.Answer(request));
      FinishRequest(fcgi);
      // JSON takes a hundred times its text, and nobody may leave a worker that large.
      if (request.body.size() > kLargestVisitorBody) malloc_trim(0);
    } else if (accepted != -EAGAIN) {  // that is: another worker was faster, or the client is gone
      syslog(LOG_ERR, "cannot take a connection: %d; leaving", accepted);
      return 1;
    }
    alarm(0);
    if (!IsLoweredTo(options.ids)) {
      syslog(LOG_CRIT, "a request left effective ids %u:%u behind; leaving", geteuid(), getegid());
      break;
    }
  }
  return 0;
}

}  // namespace

int RunWorker(const Options& options, int listener, int lifeline,
              const std::function<void()>& ready) {
  bool started = false;
  try {
    const Descriptor signals(WatchForTheEnd());
    sharing::ConfigureStore({options.database, {}});
    OutputCapture output;
    const Registry registry = Registry::Load(options.registry);
    LowerTo(options.ids);
    Dispatcher dispatcher(options, registry, output);
    ready();
    started = true;
    return Serve(options, dispatcher, listener, signals.get(), lifeline);
  } catch (const std::exception& error) {
    syslog(LOG_ERR, "%s", error.what());
    return started ? 1 : kBadConfiguration;
  }
}

}  // namespace VELT::host
