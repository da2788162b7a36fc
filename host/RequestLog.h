// One line for each request: which method, how it ended, how long it took, and the id that its
// answer carries. No parameter, address, account or whole link id is in it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

#include "Pool.h"
#include "RequestNote.h"
#include "Statistics.h"
#include "veltsys/Descriptor.h"

namespace VELT::host {

// What the line tells beyond the request itself.
struct RequestEnd {
  std::chrono::microseconds took;
  Pool pool;  // where it ended
  pid_t worker;
};

// For one thread of a process. A journal or file that is slow, full or gone never holds a request
// up: the line is lost then.
class RequestLog {
 public:
  // `where`: "journal", "syslog", "stderr", the path of a file, or empty for no log. A file is opened
  // with the effective ids of the moment, and made if need be. What can't be opened loses every line,
  // and syslog tells why.
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
