// The request log: a line for each request, with its method, result, duration and id. Lines contain
// no parameters, addresses, accounts or whole link ids.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

#include "host/Pool.h"
#include "host/watch/RequestNote.h"
#include "host/watch/Statistics.h"
#include "veltsys/Descriptor.h"

namespace VELT::host {

// What a line has besides the request's note.
struct RequestEnd {
  std::chrono::microseconds took;
  Pool pool;  // of the worker that ended it
  pid_t worker;
};

// Not thread-safe. Writing to the journal or a file never waits: if it is slow, full or gone, the line
// is lost. Syslog and standard error may make the caller wait.
class RequestLog {
 public:
  // `where`: "journal", "syslog", "stderr", the path of a file, or empty for no log. A file is opened
  // with the current effective ids, and created if missing. If the log can't be opened, the reason
  // is written to syslog, and every line is lost.
  explicit RequestLog(const std::string& where);

  // False when the line was lost.
  bool Write(const RequestNote& request, const MethodCounts& method, const RequestEnd& end) const;

 private:
  enum class Kind { kNone, kSyslog, kJournal, kFile };

  void OpenJournal();
  void OpenFile(const std::string& path);

  Kind kind_ = Kind::kNone;
  Descriptor output_;
};

}  // namespace VELT::host
