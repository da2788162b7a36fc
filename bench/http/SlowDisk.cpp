// Preloaded into the service: each fdatasync(2) takes VELT_SYNC_US microseconds, and waits while the
// file VELT_STALL exists, as on a disk that stalls.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>

extern "C" int fdatasync(int file) {
  using Function = int (*)(int);
  static const auto kReal = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "fdatasync"));
  const char* microseconds = std::getenv("VELT_SYNC_US");
  if (microseconds != nullptr) usleep(static_cast<useconds_t>(std::atoi(microseconds)));
  const char* stall = std::getenv("VELT_STALL");
  while (stall != nullptr && access(stall, F_OK) == 0) usleep(10'000);
  return kReal(file);
}
