// The socket at which the web server finds the workers.
#pragma once

#include <string>

#include "Options.h"
#include "veltsys/Descriptor.h"

namespace VELT::host {

// Listens at a unix socket, which its user and group may use, from construction to destruction. The
// socket doesn't block, so that a worker that comes too late for a connection can go on waiting.
class Listener {
 public:
  // Takes the place of a socket at which nobody listens any more. Throws std::system_error.
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
