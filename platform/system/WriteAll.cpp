#include "veltsys/WriteAll.h"

#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace VELT {

bool WriteAll(int file, std::string_view text) noexcept {
  while (!text.empty()) {
    const ssize_t written = write(file, text.data(), text.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace VELT
