// Thumbnails of pictures. A confined program makes one when a page first shows the picture; the
// spool keeps it.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "Ids.h"
#include "Methods.h"
#include "Names.h"
#include "Refusal.h"
#include "Share.h"
#include "Spool.h"
#include "Tree.h"
#include "Visit.h"
#include "veltsys/Descriptor.h"
#include "veltsys/Process.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"

namespace VELT::files {
namespace {

constexpr const char* kFolder = "thumbs";
constexpr const char* kProgram = "/usr/bin/vipsthumbnail";
constexpr const char* kSize = "320x320>";
constexpr const char* kFormat = ".jpg[Q=75,strip]";
constexpr off_t kLargestSource = off_t{256} * 1024 * 1024;
constexpr std::size_t kLargest = std::size_t{256} * 1024;
constexpr off_t kLargestCache = off_t{256} * 1024 * 1024;
constexpr unsigned int kTrimEvery = 64;  // pictures made by one process

// Another content gets another name.
std::string NameOf(const struct stat& status) {
  std::array<char, 128> text{};
  std::snprintf(text.data(), text.size(), "%s/%llx-%llx-%llx-%llx.%lx.jpg", kFolder,
                static_cast<unsigned long long>(status.st_dev),
                static_cast<unsigned long long>(status.st_ino),
                static_cast<unsigned long long>(status.st_size),
                static_cast<unsigned long long>(status.st_mtim.tv_sec), status.st_mtim.tv_nsec);
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
    sum += status.st_size;
    kept.emplace_back(status.st_mtime, status.st_size, entry->d_name);
  }
  if (sum <= kLargestCache) return;
  std::sort(kept.begin(), kept.end());
  for (const auto& [time, size, name] : kept) {
    if (sum <= kLargestCache / 2) break;
    unlinkat(copy, name.c_str(), 0);
    sum -= size;
  }
}

// Empty when the program makes none.
std::string MakePicture(const std::string& source) {
  // Keeps out the loaders that are not hardened against hostile files.
  setenv("VIPS_BLOCK_UNTRUSTED", "1", 1);
  FILE* stream = VLIBCPopen(kProgram, "r", source.c_str(), "--size", kSize, "-o", kFormat, nullptr);
  if (stream == nullptr) return {};
  std::string picture(kLargest + 1, '\0');
  picture.resize(std::fread(picture.data(), 1, picture.size(), stream));
  const bool good = VLIBCPclose(stream) == 0 && picture.size() <= kLargest;
  return good ? picture : std::string();
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

}  // namespace

void GetThumbnail(const APIRequest& request, APIResponse& response) {
  const Share share(Admit(request, response, false));
  MustShow(share);
  const std::string path = share.PathOf(request.GetParam("path", "").asString());
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
  const std::string name = NameOf(found.status);
  if (faccessat(spool.folder(), name.c_str(), R_OK, AT_EACCESS) != 0) {
    const std::string handed = spool.Offer(file, response);
    const std::string picture = MakePicture(handed);
    if (picture.empty()) throw Refusal(kNoPicture);
    if (!Keep(spool.folder(), name, picture)) throw Refusal(kUnavailable);
  }
  const std::string header = spool.HeaderFor(name) +
                             "Content-Type: image/jpeg\r\nX-Content-Type-Options: nosniff\r\n"
                             "Content-Security-Policy: default-src 'none'; sandbox\r\n"
                             "Cache-Control: no-store\r\n\r\n";
  response.SetEnableOutput(false);
  std::fwrite(header.data(), 1, header.size(), stdout);
}

}  // namespace VELT::files
