#include "apps/files/Inbox.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>

#include "veltsys/Descriptor.h"
#include "veltsys/JsonFile.h"

namespace VELT::files {
namespace {

constexpr const char* kAbout = ".json";
constexpr const char* kOwn = "own-";
constexpr std::size_t kRandomDigits = 32;
constexpr char kInPieces = '-';
constexpr char kAsWhole = '+';
constexpr std::time_t kLongestPause = std::time_t{24} * 60 * 60;  // seconds
constexpr std::time_t kLongestSilence = std::time_t{60} * 60;     // before the first piece

std::vector<std::string> NamesBelow(int spool, const std::string& path) {
  std::vector<std::string> names;
  const int folder = openat(spool, path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(folder < 0 ? nullptr : fdopendir(folder),
                                                   closedir);
  while (const dirent* entry = stream ? readdir(stream.get()) : nullptr) {
    if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
  }
  return names;
}

// The size that an id announces; nothing when the text is no id.
std::optional<std::int64_t> SizeIn(std::string_view id) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  if (id.size() < kRandomDigits + 2 ||
      (id[kRandomDigits] != kInPieces && id[kRandomDigits] != kAsWhole) ||
      id.substr(0, kRandomDigits).find_first_not_of(kDigits) != std::string_view::npos) {
    return std::nullopt;
  }
  std::int64_t size = 0;
  const auto [end, error] =
      std::from_chars(id.data() + kRandomDigits + 1, id.data() + id.size(), size, 16);
  if (error != std::errc() || end != id.data() + id.size() || size < 0) return std::nullopt;
  return size;
}

bool IsGivenUp(const Unfinished& upload, std::time_t now) {
  if (ArrivalOf(upload.id) == Arrival::kWhole) return true;  // unless it is locked
  return upload.changed < now - (upload.received > 0 ? kLongestPause : kLongestSilence);
}

enum class When { kIdle, kLocked, kNow };

// Removes an upload that nobody has locked, or after waiting for the lock, or at once. Whether it is gone.
bool Remove(int spool, const Unfinished& upload, When when) {
  const std::string path = FileOf(upload.link, upload.id);
  const Descriptor file(openat(spool, path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (file.get() < 0) return true;
  if (when != When::kNow && flock(file.get(), LOCK_EX | (when == When::kIdle ? LOCK_NB : 0)) != 0) {
    return false;
  }
  if (unlinkat(spool, path.c_str(), 0) == 0) {
    unlinkat(spool, AboutOf(upload.link, upload.id).c_str(), 0);
  }
  return true;
}

}  // namespace

// No link's id has a hyphen.
std::string OwnKey(uid_t owner) { return kOwn + std::to_string(owner); }

bool IsOwnKey(const std::string& link) { return link.starts_with(kOwn); }

std::string FolderOf(const std::string& link) { return std::string(kIn) + "/" + link; }

std::string FileOf(const std::string& link, const std::string& id) {
  return std::string(kOpen) + "/" + link + "." + id;
}

std::string AboutOf(const std::string& link, const std::string& id) {
  return FolderOf(link) + "/" + id + kAbout;
}

std::string DoneOf(const std::string& link) { return FolderOf(link) + "/done"; }

std::string NewUploadId(std::int64_t size, Arrival arrival) {
  std::array<char, 16> digits{};
  char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), size, 16).ptr;
  return RandomName() + (arrival == Arrival::kWhole ? kAsWhole : kInPieces) +
         std::string(digits.data(), end);
}

Arrival ArrivalOf(const std::string& id) {
  return id.find(kAsWhole) == std::string::npos ? Arrival::kPieces : Arrival::kWhole;
}

bool IsUploadId(const std::string& text) { return SizeIn(text).has_value(); }

std::vector<Unfinished> ReadUnfinished(int spool) {
  std::vector<Unfinished> uploads;
  const std::time_t now = std::time(nullptr);
  for (const std::string& name : NamesBelow(spool, kOpen)) {
    const std::size_t dot = name.find('.');
    const std::string id = name.substr(dot + 1);
    const auto size = SizeIn(id);
    struct stat status {};
    if (dot == std::string::npos || !size ||
        fstatat(spool, (std::string(kOpen) + "/" + name).c_str(), &status, AT_SYMLINK_NOFOLLOW) !=
            0) {
      continue;
    }
    uploads.push_back(
        {name.substr(0, dot), id, status.st_uid, *size, status.st_size, status.st_mtim.tv_sec});
    if (IsGivenUp(uploads.back(), now) && Remove(spool, uploads.back(), When::kIdle)) {
      uploads.pop_back();
    }
  }
  return uploads;
}

Json::Value ReadAbout(const Spool& spool, const std::string& link, const std::string& id) {
  return ReadJsonFile(spool.PathOf(FolderOf(link)), id + kAbout);
}

void RemoveUnfinished(int spool, const Unfinished& upload) {
  Remove(spool, upload, ArrivalOf(upload.id) == Arrival::kWhole ? When::kNow : When::kLocked);
}

bool RemoveUnfinishedOf(int spool, const std::string& link, const std::string& id) {
  bool found = false;
  for (const Unfinished& upload : ReadUnfinished(spool)) {
    if (upload.link != link || (!id.empty() && upload.id != id)) continue;
    RemoveUnfinished(spool, upload);
    found = true;
  }
  return found;
}

void RemoveReceipts(int spool, const std::string& link, std::time_t oldest) {
  for (const std::string& name : NamesBelow(spool, FolderOf(link))) {
    if (!name.ends_with(kAbout)) continue;
    const std::string id = name.substr(0, name.size() - std::strlen(kAbout));
    const std::string path = AboutOf(link, id);
    struct stat status {};
    if (faccessat(spool, FileOf(link, id).c_str(), F_OK, 0) != 0 &&
        fstatat(spool, path.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        status.st_mtime < oldest) {
      unlinkat(spool, path.c_str(), 0);
    }
  }
}

void RemoveLink(int spool, const std::string& link) {
  const std::string folder = FolderOf(link);
  for (const std::string& name : NamesBelow(spool, folder)) {
    unlinkat(spool, (folder + "/" + name).c_str(), 0);
  }
  unlinkat(spool, folder.c_str(), AT_REMOVEDIR);
}

std::vector<std::string> LinksIn(int spool) { return NamesBelow(spool, kIn); }

std::int64_t RoomOn(int folder, const Configuration& configuration) {
  struct statvfs space {};
  if (fstatvfs(folder, &space) != 0) return 0;
  // Files take entries in a table as well, where the file system has one of a fixed size.
  if (space.f_favail < space.f_files / 20) return 0;
  const auto bytes = [&space](fsblkcnt_t blocks) {
    return static_cast<std::int64_t>(blocks * space.f_frsize);
  };
  return bytes(space.f_bavail) - configuration.ReserveOf(bytes(space.f_blocks));
}

}  // namespace VELT::files
