#include "host/watch/RequestLog.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>
#include <utility>

namespace VELT::host {
namespace {

constexpr char kJournal[] = "/run/systemd/journal/socket";

struct Field {
  std::string_view name;
  std::string value;
};
using Fields = std::array<Field, 10>;

std::string Milliseconds(std::chrono::microseconds took) {
  std::array<char, 32> text;
  const auto count = static_cast<long long>(took.count());
  std::snprintf(text.data(), text.size(), "%lld.%03lld", count / 1000, count % 1000);
  return text.data();
}

// No value contains a space or a line break: Statistics::RowOf and SetLink replace these.
Fields FieldsOf(const RequestNote& request, const MethodCounts& method, const RequestEnd& end) {
  return {{{"request", std::string(TextOf(request.id))},
           {"api", method.api.data()},
           {"version", std::to_string(method.version)},
           {"method", method.method.data()},
           {"status", std::to_string(request.status)},
           {"code", std::to_string(request.code)},
           {"ms", Milliseconds(end.took)},
           {"pool", NameOf(end.pool)},
           {"worker", std::to_string(end.worker)},
           {"link", request.link.front() == '\0' ? "-" : request.link.data()}}};
}

std::string Line(const Fields& fields) {
  std::string line;
  for (const Field& field : fields) {
    if (!line.empty()) line += ' ';
    line.append(field.name).append("=").append(field.value);
  }
  return line;
}

// https://systemd.io/JOURNAL_NATIVE_PROTOCOL
std::string JournalEntry(const Fields& fields) {
  std::string entry =
      "PRIORITY=6\nSYSLOG_FACILITY=3\nSYSLOG_IDENTIFIER=velt-webapid\nMESSAGE=" + Line(fields) +
      "\n";
  for (const Field& field : fields) {
    entry += "VELT_";
    for (const char character : field.name) {
      entry += static_cast<char>(std::toupper(static_cast<unsigned char>(character)));
    }
    entry.append("=").append(field.value).append("\n");
  }
  return entry;
}

// The current time in the format of RFC 5424.
std::string TimeStamp() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm parts{};
  gmtime_r(&now.tv_sec, &parts);
  std::array<char, 64> text;
  const std::size_t length = std::strftime(text.data(), text.size(), "%FT%T", &parts);
  std::snprintf(text.data() + length, text.size() - length, ".%03ldZ", now.tv_nsec / 1'000'000);
  return text.data();
}

}  // namespace

RequestLog::RequestLog(const std::string& where) {
  if (where.empty()) return;
  if (where == "syslog") {
    kind_ = Kind::kSyslog;
    return;
  }
  if (where == "journal") {
    OpenJournal();
  } else if (where == "stderr") {
    kind_ = Kind::kFile;
    output_ = Descriptor(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0));
  } else {
    OpenFile(where);
  }
  if (output_.get() < 0) syslog(LOG_ERR, "request log %s: %s", where.c_str(), strerror(errno));
}

void RequestLog::OpenJournal() {
  kind_ = Kind::kJournal;
  Descriptor output(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, kJournal, sizeof kJournal);
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);
  if (connect(output.get(), generic, sizeof address) == 0) output_ = std::move(output);
}

void RequestLog::OpenFile(const std::string& path) {
  kind_ = Kind::kFile;
  constexpr mode_t kMode = 0640;
  output_ = Descriptor(
      open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, kMode));
}

bool RequestLog::Write(const RequestNote& request, const MethodCounts& method,
                       const RequestEnd& end) const {
  if (kind_ == Kind::kNone) return true;
  const Fields fields = FieldsOf(request, method, end);
  std::string text;
  switch (kind_) {
    case Kind::kNone:
      return true;
    case Kind::kSyslog:
      syslog(LOG_INFO, "%s", Line(fields).c_str());
      return true;
    case Kind::kJournal:
      text = JournalEntry(fields);
      return send(output_.get(), text.data(), text.size(), MSG_NOSIGNAL) >= 0;
    case Kind::kFile:
      // In one write(2), so that lines of several workers don't mix.
      text = "time=" + TimeStamp() + " " + Line(fields) + "\n";
      return write(output_.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
  }
  return true;
}

}  // namespace VELT::host
