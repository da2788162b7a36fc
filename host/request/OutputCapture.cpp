#include "host/request/OutputCapture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iostream>
#include <system_error>

#include "host/Limits.h"

namespace VELT::host {
namespace {

// The file has its largest size from the start and can't grow, so that a handler that prints
// without end doesn't fill the memory. Pages that were never written take none.
constexpr off_t kFileSize = kLargestOutput + 4096;

}  // namespace

OutputCapture::OutputCapture() : file_(memfd_create("stdout", MFD_CLOEXEC | MFD_ALLOW_SEALING)) {
  if (file_.get() < 0 || ftruncate(file_.get(), kFileSize) != 0 ||
      fcntl(file_.get(), F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL) != 0 ||
      dup2(file_.get(), STDOUT_FILENO) < 0) {
    throw std::system_error(errno, std::generic_category(), "standard output");
  }
}

void OutputCapture::Begin() {
  std::cout.flush();
  std::fflush(stdout);
  // A handler whose output met the limit leaves both in a failed state.
  std::cout.clear();
  std::clearerr(stdout);
  lseek(file_.get(), 0, SEEK_SET);
}

std::optional<std::string> OutputCapture::End() {
  std::cout.flush();
  std::fflush(stdout);
  const off_t length = lseek(file_.get(), 0, SEEK_CUR);
  if (length == 0) return std::string();
  if (length < 0 || length > static_cast<off_t>(kLargestOutput)) return std::nullopt;
  std::string printed(static_cast<std::size_t>(length), '\0');
  if (pread(file_.get(), printed.data(), printed.size(), 0) != length) return std::nullopt;
  return printed;
}

}  // namespace VELT::host
