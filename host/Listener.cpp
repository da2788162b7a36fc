#include "host/Listener.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace VELT::host {
namespace {

[[noreturn]] void Fail(int error, const std::string& path) {
  throw std::system_error(error, std::generic_category(), path);
}

int OpenSocket() { return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); }

sockaddr_un AddressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) Fail(ENAMETOOLONG, path);
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

// Removes the socket file that a killed host has left behind.
void RemoveStale(const std::string& path, const sockaddr* address) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) return;
  if (!S_ISSOCK(status.st_mode)) Fail(EEXIST, path);
  const Descriptor probe(OpenSocket());
  if (connect(probe.get(), address, sizeof(sockaddr_un)) == 0 || errno != ECONNREFUSED) {
    Fail(EADDRINUSE, path);
  }
  unlink(path.c_str());
}

// Sets the umask, so that other users can't connect before the file gets its owner and group.
bool BindPrivately(int fd, const sockaddr* address) {
  const mode_t mask = umask(0117);
  const bool bound = bind(fd, address, sizeof(sockaddr_un)) == 0;
  umask(mask);  // always succeeds, and leaves errno as it is
  return bound;
}

}  // namespace

Listener::Listener(const std::string& path, const Ids& ids) : path_(path), socket_(OpenSocket()) {
  const sockaddr_un address = AddressOf(path);
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);
  if (fd() < 0) Fail(errno, path);
  RemoveStale(path, generic);
  if (!BindPrivately(fd(), generic)) Fail(errno, path);
  const bool own = geteuid() == ids.uid && getegid() == ids.gid;
  if ((!own && chown(path.c_str(), ids.uid, ids.gid) != 0) || listen(fd(), SOMAXCONN) != 0) {
    const int error = errno;
    unlink(path.c_str());
    Fail(error, path);
  }
}

Listener::~Listener() { unlink(path_.c_str()); }

}  // namespace VELT::host
