#include "veltsys/JsonFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "veltsys/Descriptor.h"
#include "veltsys/JsonText.h"
#include "veltsys/Text.h"

namespace VELT {
namespace {

constexpr off_t kLargestFile = off_t{1024} * 1024;

// Reads up to one byte more than `size`, so that it can refuse a file that has grown.
bool ReadAll(int fd, std::size_t size, std::string& text) {
  text.resize(size + 1);
  std::size_t length = 0;
  while (length < text.size()) {
    const ssize_t got = read(fd, &text[length], text.size() - length);
    if (got == 0) break;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    length += static_cast<std::size_t>(got);
  }
  text.resize(length);
  return length <= size;
}

}  // namespace

Json::Value ReadJsonFile(const std::string& folder, const std::string& name) {
  if (!IsFileName(name) || folder.find('\0') != std::string::npos) return {};
  const Descriptor directory(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (directory.get() < 0) return {};
  // O_NONBLOCK: if the file is a FIFO, open(2) must not wait for a writer.
  const Descriptor file(
      openat(directory.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (file.get() < 0 || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  if (status.st_size > kLargestFile) return {};

  std::string text;
  Json::Value value;
  if (ReadAll(file.get(), static_cast<std::size_t>(status.st_size), text))
    ParseJsonText(text, value);
  return value;
}

}  // namespace VELT
