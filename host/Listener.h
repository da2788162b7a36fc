// The socket to which the web server connects.
#pragma once

#include <string>

#include "host/Options.h"
#include "veltsys/Descriptor.h"

namespace VELT::host {

// Listens on a Unix socket that its user and group may connect to; the destructor removes it. The
// socket does not block: a worker must not hang in accept(2) when another one took the connection.
class Listener {
 public:
  // Replaces a socket file on which nobody listens any more. Throws std::system_error.
  Listener(const std::string& path, const Ids& ids);
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  int fd() const { return socket_.get(); }

 private:
  const std::string path_;
  const Descriptor socket_;
};

}  // namespace VELT::host
