#include "apps/files/UploadStore.h"

#include <fcntl.h>
#include <json/value.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string_view>
#include <utility>
#include <vector>

#include "apps/files/Ids.h"
#include "apps/files/Inbox.h"
#include "apps/files/Names.h"
#include "apps/files/Refusal.h"
#include "apps/files/Tree.h"
#include "apps/files/UploadFile.h"
#include "veltsys/Descriptor.h"

namespace VELT::files {
namespace {

constexpr std::time_t kReceiptLife = 60;     // seconds, at least, when there are more than ...
constexpr std::size_t kMostReceipts = 1000;  // ... so many of one link
// Of a file that comes whole.
constexpr std::size_t kBuffer = std::size_t{256} * 1024;
constexpr std::int64_t kUnsynced = std::int64_t{32} * 1024 * 1024;
// Unfinished uploads.
constexpr std::uint64_t kMostOfLink = 200;
constexpr std::uint64_t kMostOfOwner = 1000;

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

}  // namespace

// The file is locked as long as this object lives; of a complete upload there is none.
struct UploadStore::Upload {
  Descriptor file;
  std::string name;
  State state;
};

UploadStore::UploadStore(const Share& share, std::string link)
    : share_(share), spool_(share.configuration()), link_(std::move(link)) {
  if (!share.upload().allowed || share.items().size() != 1) throw Refusal(kNoUploads);
  for (const std::string& folder : {std::string(kIn), std::string(kOpen), FolderOf(link_)}) {
    spool_.MakeFolder(folder, Spool::For::kRoot);
  }
}

void UploadStore::MustHaveRoom(int folder, std::int64_t bytes) const {
  const Configuration& configuration = share_.configuration();
  if (std::min(RoomOn(folder, configuration), RoomOn(spool_.folder(), configuration)) < bytes) {
    throw Refusal(kNoSpace);
  }
}

std::string UploadStore::Begin(const std::string& name, std::int64_t size) {
  Descriptor file;
  return Begin(name, size, Arrival::kPieces, file);
}

// Sets `file` to the upload's, which is locked when it comes whole.
std::string UploadStore::Begin(const std::string& name, std::int64_t size, Arrival arrival,
                               Descriptor& file) {
  if (static_cast<std::uint64_t>(size) > share_.upload().max_size) throw Refusal(kUploadLimit);
  std::int64_t room = 0;
  {
    const IdsGuard owner(share_.owner());
    const Found target = share_.Find(share_.items().front());
    if (!target.IsFolder()) throw Refusal(kNoUploads);
    room = RoomOn(target.handle.get(), share_.configuration());
    // Made in the folder, so that it gets the folder's group, default rights and file system.
    file = Descriptor(open(ProcPath(target.handle).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0660));
    if (file.get() < 0) ThrowFor(errno);
  }
  const IdsGuard root = IdsGuard::Root();
  const int spool = spool_.folder();
  const Descriptor all(openat(spool, kOpen, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const Descriptor done(
      openat(spool, DoneOf(link_).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (all.get() < 0 || done.get() < 0 || flock(all.get(), LOCK_EX) != 0 ||
      flock(done.get(), LOCK_EX) != 0) {
    ThrowFor(errno);
  }
  MustFit(size, std::min(room, RoomOn(spool, share_.configuration())), done.get());
  std::string id = NewUploadId(size, arrival);
  if (arrival == Arrival::kWhole && flock(file.get(), LOCK_EX) != 0) ThrowFor(errno);
  WriteAbout(spool, AboutOf(link_, id), name, size, false);
  if (linkat(AT_FDCWD, ProcPath(file).c_str(), spool, FileOf(link_, id).c_str(),
             AT_SYMLINK_FOLLOW) != 0) {
    const int error = errno;
    unlinkat(spool, AboutOf(link_, id).c_str(), 0);
    ThrowFor(error);
  }
  return id;
}

// Throws unless one more upload of this size keeps within all limits.
void UploadStore::MustFit(std::int64_t size, std::int64_t room, int done) const {
  struct Sum {
    std::uint64_t count = 0;
    std::int64_t bytes = 0;
  };
  Sum all;
  Sum links;
  Sum owners;
  std::int64_t received = 0;
  for (const Unfinished& each : ReadUnfinished(spool_.folder())) {
    received += each.received;
    for (const auto& [sum, is_of] : {std::pair(&all, true), std::pair(&links, each.link == link_),
                                     std::pair(&owners, each.owner == share_.owner().uid)}) {
      if (!is_of) continue;
      ++sum->count;
      sum->bytes += each.size;
    }
  }
  struct stat status {};
  if (fstat(done, &status) != 0) ThrowFor(errno);
  const auto complete = static_cast<std::uint64_t>(status.st_size);
  if (links.count >= kMostOfLink || owners.count >= kMostOfOwner ||
      complete + links.count >= share_.upload().max_files) {
    throw Refusal(kUploadLimit);
  }
  // What has arrived is no longer free.
  room += received;
  if (room <= 0 || size > room - all.bytes || size > room / 2 - links.bytes ||
      size > room / 4 * 3 - owners.bytes) {
    throw Refusal(kNoSpace);
  }
}

UploadStore::Upload UploadStore::Open(const std::string& id) {
  if (!IsUploadId(id)) throw Refusal(kNoUpload);
  const IdsGuard root = IdsGuard::Root();
  const std::string path = FileOf(link_, id);
  Descriptor file(openat(spool_.folder(), path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
  // The lock waits for a piece that is still being written although its connection was cut. If that
  // was the last one, the upload's name in the spool is gone afterwards, and what is known of it says
  // that it is complete.
  struct stat status {};
  const bool open = file.get() >= 0 && flock(file.get(), LOCK_EX) == 0 &&
                    fstatat(spool_.folder(), path.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  const Json::Value content = ReadAbout(spool_, link_, id);
  if (!content.isObject()) throw Refusal(kNoUpload);
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
    MustHaveRoom(upload.file.get(), static_cast<std::int64_t>(piece.size()));
    if (!piece.empty()) Append(upload.file.get(), offset, piece);
    if (offset + static_cast<std::int64_t>(piece.size()) < upload.state.size) return std::nullopt;
    name = Publish(upload.file, share_.Find(share_.items().front()), upload.name);
  }
  Finish(id, {upload.state.size, upload.state.size, name});
  return name;
}

std::optional<std::string> UploadStore::Store(const std::string& name, std::int64_t size,
                                              const Source& source) {
  Descriptor file;
  const std::string id = Begin(name, size, Arrival::kWhole, file);
  std::string given;
  try {
    if (Fill(file.get(), size, source)) {
      const IdsGuard owner(share_.owner());
      given = Publish(file, share_.Find(share_.items().front()), name);
    }
  } catch (const Refusal&) {
    Drop(id);
    throw;
  }
  if (given.empty()) {
    Drop(id);
    return std::nullopt;
  }
  Finish(id, {size, size, given});
  return given;
}

// False when the source ends before.
bool UploadStore::Fill(int file, std::int64_t size, const Source& source) const {
  std::vector<char> buffer(kBuffer);
  std::int64_t unsynced = 0;
  for (std::int64_t offset = 0; offset < size;) {
    const auto wanted = std::min(static_cast<std::int64_t>(buffer.size()), size - offset);
    const std::size_t got = source(buffer.data(), static_cast<std::size_t>(wanted));
    if (got == 0) return false;
    const IdsGuard owner(share_.owner());
    struct stat status {};
    if (fstat(file, &status) != 0 || status.st_nlink == 0) throw Refusal(kNoUpload);
    MustHaveRoom(file, static_cast<std::int64_t>(got));
    if (!Write(file, offset, {buffer.data(), got})) ThrowFor(errno);
    offset += static_cast<std::int64_t>(got);
    unsynced += static_cast<std::int64_t>(got);
    // Often enough for the rest to be on the disk soon after the last byte.
    if (unsynced < kUnsynced && offset < size) continue;
    if (fdatasync(file) != 0) ThrowFor(errno);
    unsynced = 0;
  }
  return true;
}

void UploadStore::Drop(const std::string& id) const {
  const IdsGuard root = IdsGuard::Root();
  RemoveUnfinished(spool_.folder(), {link_, id, {}, {}, {}, {}});
}

void UploadStore::Finish(const std::string& id, const State& state) {
  const IdsGuard root = IdsGuard::Root();
  const int spool = spool_.folder();
  unlinkat(spool, AboutOf(link_, id).c_str(), 0);
  try {
    // The client does not know the id of what was complete with one call.
    if (state.size > 0 && ArrivalOf(id) == Arrival::kPieces)
      WriteAbout(spool, AboutOf(link_, id), state.name, state.size, true);
  } catch (const Refusal&) {
    // The file is complete all the same. Only a client that lost the answer does not learn it.
  }
  const Descriptor count(openat(spool, DoneOf(link_).c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW));
  struct stat status {};
  if (count.get() < 0 || flock(count.get(), LOCK_EX) != 0 || fstat(count.get(), &status) != 0 ||
      ftruncate(count.get(), status.st_size + 1) != 0) {
    syslog(LOG_ERR, "files: an upload could not be counted: %s", strerror(errno));
  }
  unlinkat(spool, FileOf(link_, id).c_str(), 0);
  if (status.st_size % kMostReceipts == kMostReceipts - 1) {
    RemoveReceipts(spool, link_, std::time(nullptr) - kReceiptLife);
  }
}

}  // namespace VELT::files
