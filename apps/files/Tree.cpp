#include "apps/files/Tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <memory>
#include <string_view>
#include <tuple>
#include <utility>

#include "apps/files/OpenAt2.h"
#include "apps/files/Refusal.h"

namespace VELT::files {
namespace {

constexpr unsigned long long kNoLinks = RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;

Found FindAt(int folder, const std::string& path, unsigned long long resolve) {
  Found found;
  // The kernel gives up with EAGAIN when something was moved while it looked up the path.
  constexpr int kMostTries = 16;
  for (int tries = 0; tries < kMostTries; ++tries) {
    found.handle = OpenHandle(folder, path, 0, resolve);
    if (found.handle.get() >= 0 || errno != EAGAIN) break;
  }
  if (found.handle.get() < 0 || fstat(found.handle.get(), &found.status) != 0 ||
      (!S_ISREG(found.status.st_mode) && !found.IsFolder())) {
    throw Refusal(kNotFound);
  }
  return found;
}

bool MayRead(int folder, const char* name, bool is_folder, int flags) {
  return faccessat(folder, name, is_folder ? R_OK | X_OK : R_OK, AT_EACCESS | flags) == 0;
}

struct Name {
  std::string text;
  bool is_folder;
  off_t size = 0;
  timespec time{};
};

int CompareTexts(const std::string& a, const std::string& b) {
  const auto lower = [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 'A' && byte <= 'Z' ? byte + 32 : static_cast<int>(byte);
  };
  const std::size_t common = std::min(a.size(), b.size());
  for (std::size_t at = 0; at < common; ++at) {
    if (const int difference = lower(a[at]) - lower(b[at]); difference != 0) return difference;
  }
  if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
  return a.compare(b);
}

std::string_view ExtensionOf(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos ? std::string_view() : std::string_view(name).substr(dot + 1);
}

int Compare(const Name& a, const Name& b, Order::By by) {
  switch (by) {
    case Order::By::kName:
      return 0;
    case Order::By::kSize:
      return a.size < b.size ? -1 : a.size > b.size ? 1 : 0;
    case Order::By::kTime: {
      const auto key = [](const Name& name) {
        return std::tuple(name.time.tv_sec, name.time.tv_nsec);
      };
      return key(a) < key(b) ? -1 : key(a) > key(b) ? 1 : 0;
    }
    case Order::By::kType:
      return CompareTexts(std::string(ExtensionOf(a.text)), std::string(ExtensionOf(b.text)));
  }
  return 0;
}

using Stream = std::unique_ptr<DIR, int (*)(DIR*)>;

Stream OpenStream(const Found& folder) {
  if (!folder.IsFolder()) throw Refusal(kWrongKind);
  Descriptor opened = Open(folder, O_RDONLY | O_DIRECTORY);
  Stream stream(fdopendir(opened.get()), closedir);
  if (!stream) throw Refusal(kNotFound);
  opened.Release();
  return stream;
}

// The files and folders of an open folder. `by` decides whether their status is needed. Ends after
// the first one that is too many.
std::vector<Name> ReadNames(DIR* stream, Order::By by, std::size_t most) {
  const bool with_status = by == Order::By::kSize || by == Order::By::kTime;
  std::vector<Name> names;
  while (const dirent* entry = names.size() <= most ? readdir(stream) : nullptr) {
    const std::string_view text = entry->d_name;
    if (text == "." || text == "..") continue;
    Name name{std::string(text), entry->d_type == DT_DIR};
    if (with_status || entry->d_type == DT_UNKNOWN) {
      struct stat status {};
      if (fstatat(dirfd(stream), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
      name.is_folder = S_ISDIR(status.st_mode);
      if (!name.is_folder && !S_ISREG(status.st_mode)) continue;
      name.size = status.st_size;
      name.time = status.st_mtim;
    } else if (entry->d_type != DT_DIR && entry->d_type != DT_REG) {
      continue;
    }
    names.push_back(std::move(name));
  }
  return names;
}

// Leaves out mount points, since Find opens nothing on another file system.
bool LookAt(int folder, dev_t device, Item& item) {
  return fstatat(folder, item.name.c_str(), &item.status, AT_SYMLINK_NOFOLLOW) == 0 &&
         (S_ISREG(item.status.st_mode) || S_ISDIR(item.status.st_mode)) &&
         item.status.st_dev == device &&
         MayRead(folder, item.name.c_str(), S_ISDIR(item.status.st_mode), AT_SYMLINK_NOFOLLOW);
}

}  // namespace

Found FindRoot(const Root& root) { return FindAt(AT_FDCWD, root.path, kNoLinks); }

Found Find(const Found& folder, const std::string& path) {
  Found found = FindAt(folder.handle.get(), path.empty() ? "." : path,
                       kNoLinks | RESOLVE_BENEATH | RESOLVE_NO_XDEV);
  if (!MayRead(found.handle.get(), "", found.IsFolder(), AT_EMPTY_PATH)) throw Refusal(kNotFound);
  return found;
}

Descriptor Open(const Found& found, int flags) {
  // Opens the handle's own inode, with the rights of the present ids.
  const std::string path = "/proc/self/fd/" + std::to_string(found.handle.get());
  Descriptor opened(open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY));
  if (opened.get() < 0) throw Refusal(kNotFound);
  return opened;
}

std::vector<std::string> NamesIn(const Found& folder, std::size_t most) {
  std::vector<Name> names = ReadNames(OpenStream(folder).get(), Order::By::kName, most);
  if (names.size() > most) throw Refusal(kUnavailable);
  std::vector<std::string> texts;
  texts.reserve(names.size());
  for (Name& name : names) texts.push_back(std::move(name.text));
  return texts;
}

Found ParentOf(const Found& folder, const struct stat& status) {
  Found parent = FindAt(folder.handle.get(), "..", kNoLinks | RESOLVE_NO_XDEV);
  if (parent.status.st_dev != status.st_dev || parent.status.st_ino != status.st_ino) {
    throw Refusal(kNotFound);
  }
  return parent;
}

Listing List(const Found& folder, const Order& order, std::size_t offset, std::size_t limit) {
  const Stream stream = OpenStream(folder);
  std::vector<Name> names =
      ReadNames(stream.get(), order.by, std::numeric_limits<std::size_t>::max());
  Listing listing;
  listing.total = names.size();
  const std::size_t begin = std::min(offset, names.size());
  const std::size_t end = begin + std::min(limit, names.size() - begin);
  const auto at = [&names](std::size_t index) {
    return names.begin() + static_cast<std::ptrdiff_t>(index);
  };
  std::partial_sort(at(0), at(end), names.end(), [&order](const Name& a, const Name& b) {
    if (a.is_folder != b.is_folder) return a.is_folder;
    int difference = Compare(a, b, order.by);
    if (difference == 0) difference = CompareTexts(a.text, b.text);
    return order.descending ? difference > 0 : difference < 0;
  });
  for (std::size_t index = begin; index < end; ++index) {
    Item item{std::move(names[index].text)};
    if (LookAt(dirfd(stream.get()), folder.status.st_dev, item)) {
      listing.shown.push_back(std::move(item));
    }
  }
  return listing;
}

}  // namespace VELT::files
