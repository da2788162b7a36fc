#include "Worker.h"

#include <fcgiapp.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <exception>
#include <string>

#include "Dispatcher.h"
#include "Limits.h"
#include "OutputCapture.h"
#include "Privileges.h"
#include "Registry.h"
#include "veltsharing/StoreOptions.h"
#include "veltsys/Descriptor.h"

namespace VELT::host {
namespace {

// The descriptor from which the wish to end this worker is read. The signals stay blocked, so that they
// neither disturb a request in hand nor get lost between two.
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

// Waits for a connection. False when it is time to leave, which comes first.
bool WaitForRequest(int listener, int signals, int lifeline) {
  for (;;) {
    pollfd watched[] = {{listener, POLLIN, 0}, {signals, POLLIN, 0}, {lifeline, POLLIN, 0}};
    if (poll(watched, std::size(watched), -1) < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (watched[1].revents != 0 || watched[2].revents != 0) return false;
    if (watched[0].revents != 0) return true;
  }
}

std::size_t AnnouncedLength(const WebRequest& request) {
  const std::string text = request.Variable("CONTENT_LENGTH");
  std::size_t length = 0;
  std::from_chars(text.data(), text.data() + text.size(), length);
  return length;
}

// A body that is too large is still read to its end: the web server has it in hand, and takes an answer
// that comes earlier for a failure.
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

// Serves requests until it is time to leave.
int Serve(const Options& options, Dispatcher& dispatcher, int listener, int signals, int lifeline) {
  FCGX_Request fcgi;
  if (FCGX_Init() != 0 || FCGX_InitRequest(&fcgi, listener, FCGI_FAIL_ACCEPT_ON_INTR) != 0) {
    syslog(LOG_ERR, "cannot set FastCGI up");
    return kBadConfiguration;
  }
  while (WaitForRequest(listener, signals, lifeline)) {
    // When the time is over the process ends, and the parent says so in the log.
    alarm(options.request_timeout);
    const int accepted = FCGX_Accept_r(&fcgi);
    if (accepted == 0) {
      fcntl(fcgi.ipcFd, F_SETFD, FD_CLOEXEC);
      WriteAnswer(fcgi, dispatcher.Answer(ReadRequest(fcgi)));
      FCGX_Finish_r(&fcgi);
      FCGX_Free(&fcgi, 1);
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
  try {
    const Descriptor signals(WatchForTheEnd());
    sharing::ConfigureStore({options.database, {}});
    OutputCapture output;
    const Registry registry = Registry::Load(options.registry);
    LowerTo(options.ids);
    Dispatcher dispatcher(options, registry, output);
    ready();
    return Serve(options, dispatcher, listener, signals.get(), lifeline);
  } catch (const std::exception& error) {
    syslog(LOG_ERR, "%s", error.what());
    return kBadConfiguration;
  }
}

}  // namespace VELT::host
