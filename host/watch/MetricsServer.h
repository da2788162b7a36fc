// The HTTP server of the metrics, on a loopback address or a Unix socket.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "host/Listener.h"
#include "host/Options.h"
#include "veltsys/Descriptor.h"

namespace VELT::host {

// What is wrong with `address`, which must be the path of a Unix socket or a loopback address with a
// port ("127.0.0.1:9464", "[::1]:9464"); empty if nothing is.
std::string CheckMetricsAddress(const std::string& address);

// Listens from construction to destruction.
class MetricsServer {
 public:
  // A Unix socket is for the user and group of `ids`. Throws std::system_error.
  MetricsServer(const std::string& address, const Ids& ids);

  // Answers GET /metrics with what `text` returns, until a signal ends the process. Returns an exit
  // status only when the socket fails. A client gets two seconds, so that a slow one can't make
  // others wait for long. Throws what `text` throws.
  int Run(const std::function<std::string()>& text) const;

 private:
  std::optional<Listener> local_;
  Descriptor network_;
};

}  // namespace VELT::host
