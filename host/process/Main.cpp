// velt-webapid: serves the web APIs of the registered modules to a web server, over FastCGI.
#include <sys/prctl.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "host/Listener.h"
#include "host/Options.h"
#include "host/Pool.h"
#include "host/process/EventQueue.h"
#include "host/process/EventRecorder.h"
#include "host/process/Handover.h"
#include "host/process/Privileges.h"
#include "host/process/Supervisor.h"
#include "host/process/Worker.h"
#include "host/request/Site.h"
#include "host/watch/MetricsServer.h"
#include "host/watch/MetricsText.h"
#include "host/watch/RequestLog.h"
#include "host/watch/RequestNote.h"
#include "host/watch/Scoreboard.h"
#include "host/watch/Statistics.h"
#include "veltsharing/StoreOptions.h"

namespace VELT::host {
namespace {

// The limit is that of unix(7).
std::string CheckSocketPath(const std::string& path) {
  if (!path.empty() && UploadSocket(path).size() < sizeof(sockaddr_un::sun_path)) return {};
  return "must be a path of 1 to 100 bytes";
}

std::string CheckRequestLog(const std::string& where) {
  if (where == "journal" || where == "syslog" || where == "stderr" || where.starts_with('/')) {
    return {};
  }
  return "must be journal, syslog, stderr or the path of a file, from / on";
}

std::string CheckDatabase(const std::string& text) {
  if (text.starts_with("sqlite3 ") || text.starts_with("postgresql ")) return {};
  return R"(must be "sqlite3 PATH" or "postgresql CONNECTION")";
}

std::string CheckExternalURL(std::string& url) {
  if (url.ends_with('/')) url.pop_back();  // CLI11 stores the text that a check has changed
  if (IsSiteURL(url)) return {};
  return "must be http:// or https://, a host, and a port if it isn't the usual one";
}

// Runs in a child process, because workers must not inherit a database connection. If the store
// can't be used, the host starts all the same, and requests fail until it is repaired.
void PrepareStore(const Options& options) {
  const pid_t pid = fork();
  if (pid == 0) {
    bool created = false;
    try {
      LowerTo(options.ids);
      sharing::ConfigureStore({options.database, {}});
      created = sharing::CreateStore();
    } catch (const std::exception& error) {
      syslog(LOG_ERR, "%s", error.what());
    }
    _exit(created ? 0 : 1);
  }
  int status = -1;
  if (pid < 0 || waitpid(pid, &status, 0) != pid || status != 0) {
    syslog(LOG_ERR, "the sharing database is not usable");
  }
}

constexpr unsigned int kLogPatience = 10;  // seconds

// Runs in a child process, with the workers' ids, so that a slow log can't make the supervisor wait.
void LogLostRequest(const Options& options, const RequestNote& request, const MethodCounts& method,
                    const RequestEnd& end, Statistics& statistics) {
  if (options.request_log.empty()) return;
  const pid_t pid = fork();
  if (pid > 0) return;
  bool written = false;
  if (pid == 0) {
    alarm(kLogPatience);  // ends the child if it hangs
    try {
      LowerTo(options.ids);
      written = RequestLog(options.request_log).Write(request, method, end);
    } catch (const std::exception& error) {
      syslog(LOG_ERR, "%s", error.what());
    }
  }
  if (!written) statistics.CountLostLine();
  if (pid == 0) _exit(0);
}

// Returns an exit status, only when it can't serve the metrics.
int ServeMetrics(const MetricsServer& server, const MetricsSource& source, const Ids& ids,
                 pid_t supervisor) {
  try {
    prctl(PR_SET_NAME, "velt-metrics");  // for ps(1)
    LowerForGood(ids);
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // after the change of ids, which would clear it
    if (getppid() != supervisor) return 1;
    return server.Run([&source] { return MetricsText(source); });
  } catch (const std::exception& error) {
    syslog(LOG_ERR, "%s", error.what());
    return 1;
  }
}

int Serve(const Options& options) {
  const Listener listener(options.socket_path, options.ids);
  const Listener uploads(UploadSocket(options.socket_path), options.ids);
  const Queues queues;
  EventQueue events(options.event_address);
  PrepareStore(options);
  const Scoreboard scoreboard(options.pools);
  Statistics statistics;
  const auto work = [&](const WorkerPlace& place) {
    const Listener& own = place.pool == Pool::kUpload ? uploads : listener;
    return RunWorker(options, own.fd(), queues, events, statistics, place);
  };
  const auto lost = [&](const RequestNote& request, Pool pool, pid_t worker) {
    const auto took = TimeSince(request.taken);
    statistics.Count(request, took);
    LogLostRequest(options, request, statistics.method(request), {took, pool, worker}, statistics);
  };
  Supervisor supervisor(options.pools, scoreboard, statistics, work, lost);
  supervisor.Accompany("writer of what visitors do", [&](pid_t parent) {
    return RecordEvents(options, events, statistics, parent);
  });
  std::optional<MetricsServer> metrics;
  if (!options.metrics.empty()) {
    metrics.emplace(options.metrics, options.ids);
    supervisor.Accompany("metrics server", [&](pid_t parent) {
      const MetricsSource source{options.pools,
                                 [&](Pool pool) { return Length(queues[IndexOf(pool)]); },
                                 scoreboard, statistics};
      return ServeMetrics(*metrics, source, options.ids, parent);
    });
  }
  return supervisor.Run();
}

unsigned int Processors() { return std::thread::hardware_concurrency(); }

// The options with the values that need a look-up or a check after all of them were read.
struct CommandLine {
  Options options;
  std::string user;
  std::string group;
  // More than processors, since some calls wait: for a plugin, a program, the database, a client.
  std::size_t front_workers = std::clamp(4 * Processors(), 8U, 32U);
  std::size_t pool_workers = std::clamp(2 * Processors(), 4U, 16U);
  // Each is one client's for as long as that likes, and hardly needs a processor meanwhile.
  std::size_t transfer_workers = 16;
  std::string owner_login = "own";
  bool log_stderr = false;
  bool check_config = false;
};

void Describe(CLI::App& app, CommandLine& line) {
  Options& options = line.options;
  app.add_option("--socket", options.socket_path,
                 "Unix socket to which the web server connects; for files that are sent by PUT, "
                 "that of this name with .upload at its end")
      ->required()
      ->check(CLI::Validator(CheckSocketPath, "PATH"));
  app.add_option("--registry", options.registry, "Folder of the API modules' *.json files")
      ->required()
      ->check(CLI::ExistingDirectory);
  app.add_option("--database", options.database,
                 R"("sqlite3 PATH" or "postgresql CONNECTION"; created at the first start)")
      ->required()
      ->check(CLI::Validator(CheckDatabase, "DATABASE"));
  app.add_option("--workers", line.front_workers,
                 "Worker processes for pages and short calls; by default four for each processor, "
                 "8 to 32")
      ->check(CLI::Range(1, 1024));
  app.add_option("--pool-workers", line.pool_workers,
                 "Worker processes for each kind of slow calls (logins, calls that start programs, "
                 "lists, pieces of uploads); by default two for each processor, 4 to 16")
      ->check(CLI::Range(1, 1024));
  app.add_option("--transfer-workers", line.transfer_workers,
                 "Worker processes for archives that are being sent, and as many for files sent by "
                 "PUT: no more are under way at once")
      ->check(CLI::Range(1, 1024))
      ->capture_default_str();
  app.add_option("--user", line.user, "Account with whose rights requests are served");
  app.add_option("--group", line.group, "Group instead of the account's own; may use the socket");
  app.add_option(
         "--external-url", options.external_url,
         "Beginning of links (https://nas.example.com); without it, the Host of the request")
      ->check(CLI::Validator(CheckExternalURL, "URL"));
  app.add_option(
         "--owner-login", line.owner_login,
         "Who signs owners in: \"own\", the page /signin/, or \"web-server\", which names them in "
         "REMOTE_USER")
      ->check(CLI::IsMember({"own", "web-server"}))
      ->capture_default_str();
  app.add_flag("--owner-basic", options.owner_basic,
               "Take owners' passwords by HTTP Basic too, for calls of the API");
  app.add_option(
      "--server-name", options.server_name,
      "What owners and visitors with accounts read where they log in; without it, the host's name");
  app.add_option(
         "--event-days", options.event_days,
         "Days for which visits, downloads and the like are kept for links' owners; 0: none")
      ->check(CLI::Range(0, 3650))
      ->capture_default_str();
  app.add_option(
         "--event-address", options.event_address,
         "What is kept of visitors' addresses with that: their network (\"short\": IPv4 /24, "
         "IPv6 /48), \"whole\" or \"none\"")
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, EventAddress>{{"short", EventAddress::kShort},
                                              {"whole", EventAddress::kWhole},
                                              {"none", EventAddress::kNone}}))
      ->default_str("short");
  app.add_option("--request-timeout", options.request_timeout, "Seconds that a request may take")
      ->check(CLI::Range(1, 3600))
      ->capture_default_str();
  app.add_option("--program-timeout", options.program_timeout,
                 "Seconds after which a program that a request has started is ended")
      ->check(CLI::Range(1, 3600))
      ->capture_default_str();
  app.add_option("--login-timeout", options.login_timeout,
                 "Seconds after which a visitor's login fails if PAM has not answered")
      ->check(CLI::Range(1, 3600))
      ->capture_default_str();
  app.add_option(
         "--request-log", options.request_log,
         "Write a line for each request, to the journal (with fields), to syslog, to stderr, or "
         "to a file, which SIGHUP opens anew")
      ->check(CLI::Validator(CheckRequestLog, "WHERE"));
  app.add_option(
         "--metrics", options.metrics,
         "Serve Prometheus metrics at /metrics of a loopback address (127.0.0.1:9464) or of a "
         "Unix socket")
      ->check(CLI::Validator(CheckMetricsAddress, "ADDRESS"));
  app.add_flag("--log-stderr", line.log_stderr, "Log to standard error as well as to syslog");
  app.add_flag("--check-config", line.check_config, "Check the options and exit")
      ->configurable(false);
  app.set_version_flag("--version", "velt-webapid " VELT_VERSION);
  app.set_config("--config", "", "File with options, a line NAME=VALUE each; # begins a comment");
  app.allow_config_extras(CLI::config_extras_mode::error);
}

std::string HostName() {
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

int Main(int argc, char** argv) {
  CommandLine line;
  CLI::App app(
      "Serves the web APIs of the registered modules over FastCGI, in the foreground.\n"
      "SIGTERM ends it after the requests that are being served; SIGHUP replaces the workers one "
      "by one, and the new ones read the registry again.");
  Describe(app, line);
  try {
    app.parse(argc, argv);
  } catch (const CLI::RequiredError& error) {
    const auto unknown = app.remaining();
    return unknown.empty() ? app.exit(error) : app.exit(CLI::ExtrasError(unknown));
  } catch (const CLI::ParseError& error) {  // also --help and --version
    return app.exit(error);
  }
  openlog("velt-webapid", LOG_PID | (line.log_stderr ? LOG_PERROR : 0), LOG_DAEMON);
  line.options.pools.fill(line.pool_workers);
  line.options.pools[IndexOf(Pool::kFront)] = line.front_workers;
  line.options.pools[IndexOf(Pool::kStream)] = line.transfer_workers;
  line.options.pools[IndexOf(Pool::kUpload)] = line.transfer_workers;
  line.options.web_server_names_owners = line.owner_login == "web-server";
  if (line.options.server_name.empty()) line.options.server_name = HostName();
  line.options.ids = FindIds(line.user, line.group);
  const int status = line.check_config ? 0 : Serve(line.options);
  if (status == kBadConfiguration && !line.log_stderr) {
    std::fputs("velt-webapid: workers can't start; the system log (or --log-stderr) says why\n",
               stderr);
  }
  return status;
}

}  // namespace
}  // namespace VELT::host

int main(int argc, char** argv) {
  try {
    return VELT::host::Main(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "velt-webapid: %s\n", error.what());
    return 1;
  }
}
