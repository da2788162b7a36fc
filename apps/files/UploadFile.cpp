#include "apps/files/UploadFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

#include "apps/files/Names.h"
#include "apps/files/Refusal.h"

namespace VELT::files {
namespace {

constexpr int kMostNames = 1000;

[[noreturn]] void TakeBack(int file, std::int64_t offset) {
  const int error = errno;
  if (ftruncate(file, offset) != 0) {
    syslog(LOG_ERR, "files: cannot take a piece back: %s", strerror(errno));
  }
  ThrowFor(error);
}

// What was made in the folder is still there after a crash of the system.
void Sync(const Found& folder) {
  const Descriptor file = files::Open(folder, O_RDONLY | O_DIRECTORY);
  if (fsync(file.get()) != 0) ThrowFor(errno);
}

// Makes `folder` the one of this name in it, which is made if there is none, or when something else has
// the name, of the next that is free. Returns its name.
std::string EnterFolder(Found& folder, const std::string& wanted) {
  for (int number = 1; number <= kMostNames; ++number) {
    std::string name = NumberedName(wanted, number);
    if (mkdirat(folder.handle.get(), name.c_str(), 0770) == 0) {
      Sync(folder);
    } else if (errno != EEXIST) {
      ThrowFor(errno);
    }
    try {
      Found inner = Find(folder, name);
      if (!inner.IsFolder()) continue;
      folder = std::move(inner);
      return name;
    } catch (const Refusal&) {
      // A symbolic link, or a folder that the owner may not read.
    }
  }
  throw Refusal(kNoUploads);
}

}  // namespace

[[noreturn]] void ThrowFor(int error) {
  if (error == ENOSPC || error == EDQUOT || error == EFBIG) throw Refusal(kNoSpace);
  if (error == EACCES || error == EROFS || error == EPERM) throw Refusal(kNoUploads);
  errno = error;
  syslog(LOG_ERR, "files: an upload failed: %s", strerror(errno));
  throw Refusal(kUnavailable);
}

std::string ProcPath(const Descriptor& file) {
  return "/proc/self/fd/" + std::to_string(file.get());
}

bool Write(int file, std::int64_t offset, std::string_view piece) {
  while (!piece.empty()) {
    const ssize_t written = pwrite(file, piece.data(), piece.size(), offset);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    offset += written;
    piece.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

void Append(int file, std::int64_t offset, std::string_view piece) {
  if (!Write(file, offset, piece) || fdatasync(file) != 0) TakeBack(file, offset);
}

// A hard link never replaces a file, so nothing is overwritten.
std::string Publish(const Descriptor& file, Found target, const std::string& path) {
  std::string inside;  // the path of `target`
  std::string_view rest = path;
  for (std::size_t slash = 0; (slash = rest.find('/')) != std::string_view::npos;) {
    inside = Join(inside, EnterFolder(target, std::string(rest.substr(0, slash))));
    rest.remove_prefix(slash + 1);
  }
  const std::string wanted(rest);
  const Descriptor folder = files::Open(target, O_RDONLY | O_DIRECTORY);
  for (int number = 1; number <= kMostNames; ++number) {
    std::string name = NumberedName(wanted, number);
    if (linkat(AT_FDCWD, ProcPath(file).c_str(), folder.get(), name.c_str(), AT_SYMLINK_FOLLOW) ==
        0) {
      fsync(folder.get());
      return Join(inside, name);
    }
    if (errno == ENOENT) throw Refusal(kNoUpload);  // what comes whole may be removed at any time
    if (errno != EEXIST) ThrowFor(errno);
  }
  throw Refusal(kNoUploads);
}

}  // namespace VELT::files
