#include "apps/files/UploadStore.h"

#include <dirent.h>
#include <fcntl.h>
#include <json/value.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <ctime>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "apps/files/Ids.h"
#include "apps/files/Names.h"
#include "apps/files/Refusal.h"
#include "apps/files/Tree.h"
#include "veltsys/Descriptor.h"
#include "veltsys/JsonText.h"

namespace VELT::files {
namespace {

constexpr const char* kIn = "in";
constexpr const char* kDone = "/done";  // its size counts complete files; locked for that
constexpr const char* kAbout = ".json";
constexpr std::time_t kLongestPause =
    std::time_t{24} * 60 * 60;                              // seconds until an upload is given up
constexpr std::time_t kReceiptLife = std::time_t{60} * 60;  // seconds
constexpr std::time_t kShortReceiptLife = 60;               // seconds, when there are more than ...
constexpr std::uint64_t kMostReceipts = 1000;               // ... so many of one link
constexpr std::chrono::hours kSweepEvery{1};
constexpr int kMostNames = 1000;
constexpr std::uint64_t kMostOpen = 1000;  // unfinished uploads of one link

bool IsId(const std::string& text) {
  return text.size() == 32 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

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

// "a.txt", "a (2).txt", "a (3).txt"; no longer than a name may be, whole characters only.
std::string NumberedName(const std::string& name, int number) {
  if (number == 1) return name;
  const std::size_t dot = name.rfind('.');
  const bool has_extension = dot != std::string::npos && dot > 0 && name.size() - dot <= 32;
  const std::string extension = has_extension ? name.substr(dot) : std::string();
  std::string stem = name.substr(0, name.size() - extension.size());
  const std::string tail = " (" + std::to_string(number) + ")" + extension;
  while (stem.size() + tail.size() > NAME_MAX) {
    while (stem.size() > 1 && (static_cast<unsigned char>(stem.back()) & 0xC0) == 0x80) {
      stem.pop_back();
    }
    stem.pop_back();
  }
  return stem + tail;
}

using Folder = std::unique_ptr<DIR, int (*)(DIR*)>;

Folder Reread(int folder) {
  const int copy = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  return {copy < 0 ? nullptr : fdopendir(copy), closedir};
}

// Removes what is left of uploads that were complete before `oldest`, for clients that did not get
// the last answer.
void SweepReceipts(int folder, std::time_t oldest) {
  const Folder stream = Reread(folder);
  while (const dirent* entry = stream ? readdir(stream.get()) : nullptr) {
    const std::string name = entry->d_name;
    if (!name.ends_with(kAbout)) continue;
    const std::string id = name.substr(0, name.size() - std::strlen(kAbout));
    struct stat status {};
    if (faccessat(folder, id.c_str(), F_OK, 0) != 0 &&
        fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        status.st_mtime < oldest) {
      unlinkat(folder, name.c_str(), 0);
    }
  }
}

// Counts the unfinished uploads in a link's folder, and removes those that were given up.
std::uint64_t CountOpen(int folder) {
  const Folder stream = Reread(folder);
  const std::time_t now = std::time(nullptr);
  std::uint64_t count = 0;
  std::uint64_t known = 0;
  while (const dirent* entry = stream ? readdir(stream.get()) : nullptr) {
    const std::string name = entry->d_name;
    if (name.ends_with(kAbout)) ++known;
    if (!IsId(name)) continue;
    struct stat status {};
    if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (status.st_mtime >= now - kLongestPause) {
      ++count;
    } else {
      unlinkat(folder, name.c_str(), 0);
      unlinkat(folder, (name + kAbout).c_str(), 0);
    }
  }
  if (known > count + kMostReceipts) SweepReceipts(folder, now - kShortReceiptLife);
  return count;
}

// What is known of an upload, or with `done` of a complete one.
void WriteAbout(int spool, const std::string& path, const std::string& name, std::int64_t size,
                bool done) {
  Json::Value about;
  about["done"] = done;
  about["name"] = ToText(name);
  about["size"] = static_cast<Json::Int64>(size);
  const std::string text = about.toStyledString();
  const Descriptor file(openat(spool, path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (file.get() < 0) ThrowFor(errno);
  if (write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    const int error = errno;
    unlinkat(spool, path.c_str(), 0);
    ThrowFor(error);
  }
}

// Removes the uploads that were given up, of all links and of deleted ones. Needs root's ids.
void SweepAll(int spool) {
  using Clock = std::chrono::steady_clock;
  static Clock::time_point next;
  if (Clock::now() < next) return;
  next = Clock::now() + kSweepEvery;
  const int all = openat(spool, kIn, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(all < 0 ? nullptr : fdopendir(all), closedir);
  while (const dirent* entry = stream ? readdir(stream.get()) : nullptr) {
    if (entry->d_name[0] == '.') continue;
    const Descriptor folder(openat(all, entry->d_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.get() < 0) continue;
    CountOpen(folder.get());
    SweepReceipts(folder.get(), std::time(nullptr) - kReceiptLife);
  }
}

std::string ReadAll(int file) {
  std::string text(4096, '\0');
  const ssize_t got = pread(file, text.data(), text.size(), 0);
  text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  return text;
}

[[noreturn]] void TakeBack(int file, std::int64_t offset) {
  const int error = errno;
  if (ftruncate(file, offset) != 0) {
    syslog(LOG_ERR, "files: cannot take a piece back: %s", strerror(errno));
  }
  ThrowFor(error);
}

// Writes the whole piece or none of it.
void Append(int file, std::int64_t offset, std::string_view piece) {
  std::int64_t at = offset;
  while (!piece.empty()) {
    const ssize_t written = pwrite(file, piece.data(), piece.size(), at);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) TakeBack(file, offset);
    at += written;
    piece.remove_prefix(static_cast<std::size_t>(written));
  }
  if (fdatasync(file) != 0) TakeBack(file, offset);
}

}  // namespace

// The file is locked as long as this object lives; of a complete upload there is none.
struct UploadStore::Upload {
  Descriptor file;
  std::string name;
  State state;
};

UploadStore::UploadStore(const Share& share, std::int64_t link)
    : share_(share),
      spool_(share.configuration()),
      folder_(std::string(kIn) + "/" + std::to_string(link)) {
  if (!share.upload().allowed || share.items().size() != 1) throw Refusal(kNoUploads);
  spool_.MakeFolder(kIn, Spool::For::kRoot);
  spool_.MakeFolder(folder_, Spool::For::kRoot);
}

std::string UploadStore::Begin(const std::string& name, std::int64_t size) {
  if (static_cast<std::uint64_t>(size) > share_.upload().max_size) throw Refusal(kUploadLimit);
  Descriptor file;
  {
    const IdsGuard owner(share_.owner());
    const Found target = share_.Find(share_.items().front());
    if (!target.IsFolder()) throw Refusal(kNoUploads);
    // Made in the folder, so that it gets the folder's group, default rights and file system.
    file = Descriptor(open(ProcPath(target.handle).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0660));
    if (file.get() < 0) ThrowFor(errno);
  }
  const IdsGuard root = IdsGuard::Root();
  SweepAll(spool_.folder());
  const Descriptor done(openat(spool_.folder(), (folder_ + kDone).c_str(),
                               O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  const Descriptor folder(
      openat(spool_.folder(), folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat status {};
  if (done.get() < 0 || folder.get() < 0 || flock(done.get(), LOCK_EX) != 0 ||
      fstat(done.get(), &status) != 0) {
    ThrowFor(errno);
  }
  const auto whole = static_cast<std::uint64_t>(status.st_size);
  const std::uint64_t unfinished = CountOpen(folder.get());
  if (unfinished >= kMostOpen || whole + unfinished >= share_.upload().max_files)
    throw Refusal(kUploadLimit);
  std::string id = RandomName();
  const std::string path = folder_ + "/" + id;
  WriteAbout(spool_.folder(), path + kAbout, name, size, false);
  if (linkat(AT_FDCWD, ProcPath(file).c_str(), spool_.folder(), path.c_str(), AT_SYMLINK_FOLLOW) !=
      0) {
    const int error = errno;
    unlinkat(spool_.folder(), (path + kAbout).c_str(), 0);
    ThrowFor(error);
  }
  return id;
}

UploadStore::Upload UploadStore::Open(const std::string& id) {
  if (!IsId(id)) throw Refusal(kNoUpload);
  const IdsGuard root = IdsGuard::Root();
  const std::string path = folder_ + "/" + id;
  Descriptor file(openat(spool_.folder(), path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
  // The lock waits for a piece that is still being written although its connection was cut. If that
  // was the last one, the upload's name in the spool is gone afterwards, and what is known of it says
  // that it is complete.
  struct stat status {};
  Json::Value content;
  const bool open = file.get() >= 0 && flock(file.get(), LOCK_EX) == 0 &&
                    fstatat(spool_.folder(), path.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  const Descriptor about(
      openat(spool_.folder(), (path + kAbout).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (about.get() < 0 || !ParseJsonText(ReadAll(about.get()), content)) throw Refusal(kNoUpload);
  const auto name = ToPath(content["name"].asString());
  const std::int64_t size = content["size"].asInt64();
  if (name && content["done"].asBool()) return {Descriptor(), "", {size, size, *name}};
  if (!name || !open) throw Refusal(kNoUpload);
  return {std::move(file), *name, {status.st_size, size}};
}

UploadStore::State UploadStore::StateOf(const std::string& id) { return Open(id).state; }

std::optional<std::string> UploadStore::Add(const std::string& id, std::int64_t offset,
                                            const std::string& piece) {
  const Upload upload = Open(id);
  if (!upload.state.name.empty()) throw Refusal(kNoUpload);
  if (offset != upload.state.offset) {
    Json::Value detail;
    detail["offset"] = static_cast<Json::Int64>(upload.state.offset);
    throw Refusal(kWrongOffset, detail);
  }
  if (static_cast<std::int64_t>(piece.size()) > upload.state.size - offset) {
    throw Refusal(kUploadLimit);
  }
  std::string name;
  {
    const IdsGuard owner(share_.owner());  // whose disk quota it is
    if (!piece.empty()) Append(upload.file.get(), offset, piece);
    if (offset + static_cast<std::int64_t>(piece.size()) < upload.state.size) return std::nullopt;
    name = Publish(upload);
  }
  Finish(id, {upload.state.size, upload.state.size, name});
  return name;
}

// A hard link never replaces a file, so nothing is overwritten.
std::string UploadStore::Publish(const Upload& upload) {
  const Found target = share_.Find(share_.items().front());
  const Descriptor folder = files::Open(target, O_RDONLY | O_DIRECTORY);
  for (int number = 1; number <= kMostNames; ++number) {
    std::string name = NumberedName(upload.name, number);
    if (linkat(AT_FDCWD, ProcPath(upload.file).c_str(), folder.get(), name.c_str(),
               AT_SYMLINK_FOLLOW) == 0) {
      fsync(folder.get());
      return name;
    }
    if (errno != EEXIST) ThrowFor(errno);
  }
  throw Refusal(kNoUploads);
}

void UploadStore::Finish(const std::string& id, const State& state) {
  const IdsGuard root = IdsGuard::Root();
  const std::string path = folder_ + "/" + id;
  unlinkat(spool_.folder(), (path + kAbout).c_str(), 0);
  try {
    // The client does not know the id of an empty upload, which is complete when it begins.
    if (state.size > 0) WriteAbout(spool_.folder(), path + kAbout, state.name, state.size, true);
  } catch (const Refusal&) {
    // The file is complete all the same. Only a client that lost the answer does not learn it.
  }
  const Descriptor count(
      openat(spool_.folder(), (folder_ + kDone).c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW));
  struct stat status {};
  if (count.get() >= 0 && flock(count.get(), LOCK_EX) == 0 && fstat(count.get(), &status) == 0 &&
      ftruncate(count.get(), status.st_size + 1) != 0) {
    syslog(LOG_ERR, "files: an upload could not be counted: %s", strerror(errno));
  }
  unlinkat(spool_.folder(), path.c_str(), 0);
}

}  // namespace VELT::files
