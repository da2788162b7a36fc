#include "apps/files/OpenAt2.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>

namespace VELT::files {

Descriptor OpenHandle(int folder, const std::string& path, int flags, unsigned long long resolve) {
  open_how how{};
  how.flags = static_cast<unsigned>(flags | O_PATH | O_CLOEXEC);
  how.resolve = resolve;
  Descriptor handle(static_cast<int>(syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how)));
  static bool told = false;
  // A filter of system calls answers with either; a handle is refused with EPERM for nothing else.
  if (handle.get() < 0 && (errno == ENOSYS || errno == EPERM) && !told) {
    const int error = errno;
    told = true;
    syslog(LOG_ERR, "files: %s", kNoOpenAt2);
    errno = error;
  }
  return handle;
}

}  // namespace VELT::files
