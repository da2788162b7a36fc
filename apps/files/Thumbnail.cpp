// Thumbnails of pictures. A confined program makes one when a page first shows the picture; the
// spool keeps it. An empty file in the spool means that none could be made, so that a picture on
// which the program works in vain can't keep it busy.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "apps/files/Ids.h"
#include "apps/files/Methods.h"
#include "apps/files/Names.h"
#include "apps/files/Refusal.h"
#include "apps/files/Share.h"
#include "apps/files/Spool.h"
#include "apps/files/Tree.h"
#include "apps/files/Visit.h"
#include "declared/VELT.Files.h"
#include "veltsys/Descriptor.h"
#include "veltsys/Process.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"

namespace VELT::files {
namespace {

constexpr const char* kFolder = "thumbs";
constexpr const char* kProgram = "/usr/bin/vipsthumbnail";
constexpr const char* kOnlyHardened = "VIPS_BLOCK_UNTRUSTED=1";  // keeps other loaders out
constexpr int kNoProgram = 127;                                  // env(1)
constexpr const char* kSmall = "320x320>";
constexpr const char* kLarge = "640x640>";  // for screens of twice the points
constexpr const char* kFormat = ".jpg[Q=75,strip]";
constexpr off_t kLargestSource = off_t{256} * 1024 * 1024;
constexpr std::size_t kLargest = std::size_t{256} * 1024;
constexpr off_t kLargestCache = off_t{256} * 1024 * 1024;
constexpr off_t kLeastOnDisk = 4096;
constexpr std::time_t kFailureKept = 3600;  // seconds
constexpr unsigned int kTrimEvery = 64;     // pictures made by one process

// Another content gets another name.
std::string NameOf(const struct stat& status, bool large) {
  std::array<char, 128> text{};
  std::snprintf(text.data(), text.size(), "%s/%llx-%llx-%llx-%llx.%lx%s.jpg", kFolder,
                static_cast<unsigned long long>(status.st_dev),
                static_cast<unsigned long long>(status.st_ino),
                static_cast<unsigned long long>(status.st_size),
                static_cast<unsigned long long>(status.st_mtim.tv_sec), status.st_mtim.tv_nsec,
                large ? "L" : "");
  return text.data();
}

// Removes the oldest half when the cache has outgrown its bound.
void Trim(int folder) {
  const int copy = openat(folder, kFolder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(copy < 0 ? nullptr : fdopendir(copy), closedir);
  std::vector<std::tuple<time_t, off_t, std::string>> kept;
  off_t sum = 0;
  while (const dirent* entry = stream ? readdir(stream.get()) : nullptr) {
    struct stat status {};
    if (fstatat(copy, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISREG(status.st_mode)) {
      continue;
    }
    const off_t size = std::max(status.st_size, kLeastOnDisk);
    sum += size;
    kept.emplace_back(status.st_mtime, size, entry->d_name);
  }
  if (sum <= kLargestCache) return;
  std::sort(kept.begin(), kept.end());
  for (const auto& [time, size, name] : kept) {
    if (sum <= kLargestCache / 2) break;
    unlinkat(copy, name.c_str(), 0);
    sum -= size;
  }
}

// False when the program did not run, for instance because the client has left. The picture is
// empty when the program makes none.
bool MakePicture(const std::string& source, const char* size, std::string& picture) {
  FILE* stream = VLIBCPopen("/usr/bin/env", "r", kOnlyHardened, kProgram, source.c_str(), "--size",
                            size, "-o", kFormat, nullptr);
  if (stream == nullptr) return false;
  picture.resize(kLargest + 1);
  picture.resize(std::fread(picture.data(), 1, picture.size(), stream));
  const int status = VLIBCPclose(stream);
  if (status != 0 || picture.size() > kLargest) picture.clear();
  return status != -1 && (!WIFEXITED(status) || WEXITSTATUS(status) != kNoProgram);
}

// Readers see the whole file or none.
bool Keep(int folder, const std::string& name, const std::string& picture) {
  static unsigned int made = 0;
  if (made++ % kTrimEvery == 0) Trim(folder);
  const std::string fresh = std::string(kFolder) + "/" + RandomName();
  const Descriptor file(
      openat(folder, fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0640));
  const bool written = file.get() >= 0 && write(file.get(), picture.data(), picture.size()) ==
                                              static_cast<ssize_t>(picture.size());
  if (written && renameat(folder, fresh.c_str(), folder, name.c_str()) == 0) return true;
  unlinkat(folder, fresh.c_str(), 0);
  return false;
}

// Whether the spool has a picture. Throws when it has the mark that none could be made.
bool IsKept(int folder, const std::string& name) {
  struct stat status {};
  if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return false;
  if (status.st_size > 0) return true;
  if (std::time(nullptr) - status.st_mtime < kFailureKept) throw Refusal(kNoPicture);
  return false;
}

}  // namespace

void GetThumbnail(const APIRequest& request, APIResponse& response) {
  const Share share(Admit(request));
  MustShow(share);
  const std::string path = share.PathOf(Read(request, params::FilesLinkThumbnail::kPath));
  if (std::string_view(MediaTypeOf(share.NameOf(path)).kind) != "image") throw Refusal(kNoPicture);
  Found found;
  Descriptor file;
  {
    const IdsGuard owner(share.owner());
    found = share.Find(path);
    if (found.IsFolder() || found.status.st_size > kLargestSource) throw Refusal(kNoPicture);
    file = Open(found, O_RDONLY | O_NONBLOCK);
  }
  const Spool spool(share.configuration());
  spool.MakeFolder(kFolder, Spool::For::kService);
  const bool large = Read(request, params::FilesLinkThumbnail::kSize) == "large";
  const std::string name = NameOf(found.status, large);
  if (!IsKept(spool.folder(), name)) {
    const std::string handed = spool.Offer(file, response);
    std::string picture;
    const bool ran = MakePicture(handed, large ? kLarge : kSmall, picture);
    if (ran && !Keep(spool.folder(), name, picture)) throw Refusal(kUnavailable);
    if (picture.empty()) throw Refusal(kNoPicture);
  }
  const std::string header = spool.HeaderFor(name) +
                             "Content-Type: image/jpeg\r\n"
                             "Content-Security-Policy: default-src 'none'; sandbox\r\n\r\n";
  response.SetEnableOutput(false);
  std::fwrite(header.data(), 1, header.size(), stdout);
}

}  // namespace VELT::files
