#include "tools/CheckModules.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <exception>
#include <filesystem>

#include "host/process/Privileges.h"
#include "host/request/Registry.h"
#include "tools/Finding.h"
#include "veltsys/Descriptor.h"
#include "veltwebapi/ServiceCheck.h"

namespace VELT::tools {
namespace {

class Collector : public ServiceCheck {
 public:
  explicit Collector(Json::Value& checks) : checks_(checks) {}
  void Add(State state, const std::string& subject, const std::string& text) override {
    tools::Add(checks_, subject, {state, text});
  }

 private:
  Json::Value& checks_;
};

// Takes the mount namespace of the process that listens at the socket: a unit may hide folders from
// the service, or write-protect them. Without such a process, or the right to do so, all stays.
void SeeFilesAsListenerOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
  const Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  ucred peer{};
  socklen_t size = sizeof peer;
  if (connect(connection.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      getsockopt(connection.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
    return;
  }
  const std::string mounts = "/proc/" + std::to_string(peer.pid) + "/ns/mnt";
  const Descriptor handle(open(mounts.c_str(), O_RDONLY | O_CLOEXEC));
  if (handle.get() >= 0) setns(handle.get(), CLONE_NEWNS);
}

}  // namespace

void CheckModules(const HostOptions& options, const host::Ids& ids, Json::Value& checks) {
  const std::string registry = std::filesystem::absolute(options.registry);
  SeeFilesAsListenerOf(options.socket);
  const auto found = host::Registry::Load(registry).Symbols("CheckService");
  Add(checks, "registry", {State::kOk, registry + " and the modules that it names"});
  if (found.empty()) return;
  try {
    host::LowerTo(ids);
  } catch (const std::exception&) {
    Add(checks, "applications", {State::kWarning, "can't be checked: run this as root"});
    return;
  }
  Collector collector(checks);
  for (void* check : found) reinterpret_cast<CheckServiceFunc>(check)(collector);
}

}  // namespace VELT::tools
