// A folder, a selection or all that a link shares as one ZIP archive, made while it is sent.
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "apps/files/Ids.h"
#include "apps/files/Methods.h"
#include "apps/files/Names.h"
#include "apps/files/Refusal.h"
#include "apps/files/Share.h"
#include "apps/files/Tree.h"
#include "apps/files/Visit.h"
#include "apps/files/ZipWriter.h"
#include "declared/VELT.Files.h"
#include "veltsharing/Entry.h"
#include "veltsys/Descriptor.h"
#include "veltsys/Text.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"

namespace VELT::files {
namespace {

constexpr std::size_t kMostMemory = std::size_t{256} * 1024 * 1024;  // for the names of an archive

// Archives hold names in UTF-8, and some programs take a backslash for a slash.
std::string NameInArchive(const std::string& name) {
  std::string text = IsCleanText(name) ? name : ToText(name);
  for (char& c : text) {
    if (c == '\\' || static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '_';
  }
  return text;
}

// Gives each of the names in one folder of an archive a text of its own.
class UniqueNames {
 public:
  std::string Make(const std::string& name) {
    const auto [row, is_new] = numbers_.try_emplace(name, 1);
    std::string unique = name;
    if (is_new) return unique;
    do {
      unique = name + " (" + std::to_string(++row->second) + ")";
    } while (!numbers_.try_emplace(unique, 1).second);
    return unique;
  }

 private:
  std::map<std::string, int> numbers_;  // the number that each name had last
};

// A folder on the way of a walk. Its handle is not kept, so that depth costs no descriptors.
struct Level {
  struct stat status {};
  std::size_t path_size;  // of the folder's path in the archive
  // Names in the folder and in the archive, the next one last.
  std::vector<std::pair<std::string, std::string>> waiting;
};

class ZipStream {
 public:
  ZipStream(const Share& share, APIResponse& response)
      : share_(share), writer_([this, &response](std::string_view bytes) {
          as_owner_.reset();
          return response.Send(bytes);
        }) {}

  // Adds what is at `path` and beneath it. What is gone or can't be read by now is left out, as a
  // listing leaves it out. False when nothing more can be sent. Throws Refusal when the archive can't
  // become whole.
  bool Add(const std::string& path) {
    std::string name = tops_.Make(NameInArchive(share_.NameOf(path)));
    Found found;
    std::vector<Level> levels;
    if (AddOne([&] { return share_.Find(path); }, name, found, levels)) Walk(found, name, levels);
    return good_;
  }

  // False when the archive isn't whole.
  bool Close() { return good_ && writer_.Finish(); }

 private:
  // Adds what is in `folder`, the last of `levels`, whose path in the archive is `path`.
  void Walk(Found& folder, std::string& path, std::vector<Level>& levels) {
    while (good_) {
      Level& level = levels.back();
      path.resize(level.path_size);
      if (level.waiting.empty()) {
        levels.pop_back();
        if (levels.empty()) return;
        // Fails when the folder was moved meanwhile: nothing leads out of what is shared.
        TakeOwnersIds();
        folder = ParentOf(folder, levels.back().status);
        continue;
      }
      const auto [name, shown] = std::move(level.waiting.back());
      level.waiting.pop_back();
      path.append("/").append(shown);
      Found found;
      if (AddOne([&, &child = name] { return Find(folder, child); }, path, found, levels)) {
        folder = std::move(found);
      }
    }
  }

  // Adds what `find` finds. True when it is a folder, which is a new level then.
  template <typename Finder>
  bool AddOne(Finder find, const std::string& path, Found& found, std::vector<Level>& levels) {
    Descriptor file;
    Level level;
    level.path_size = path.size();
    try {
      TakeOwnersIds();
      found = find();
      if (found.IsFolder()) {
        level.waiting = NamesOf(found);
      } else {
        file = Open(found, O_RDONLY | O_NONBLOCK);
      }
    } catch (const Refusal& refusal) {
      if (refusal.code == kNotFound) return false;
      throw;
    }
    if (!found.IsFolder()) {
      good_ = HasRoom(path) && AddFile(path, found.status, file);
      return false;
    }
    level.status = found.status;
    levels.push_back(std::move(level));
    good_ = HasRoom(path) && writer_.AddFolder(path, found.status);
    return true;
  }

  // Until something is sent: changing ids for each file would cost more than reading a small one.
  void TakeOwnersIds() {
    if (!as_owner_) as_owner_.emplace(share_.owner());
  }

  // The names in a folder, the next one last, with those that they have in the archive.
  std::vector<std::pair<std::string, std::string>> NamesOf(const Found& folder) {
    std::vector<std::string> names = NamesIn(folder, memory_ / ZipWriter::kMemberMemory);
    memory_ -= names.size() * ZipWriter::kMemberMemory;
    std::sort(names.begin(), names.end(), std::greater<>());
    UniqueNames unique;
    std::vector<std::pair<std::string, std::string>> pairs;
    // What needs no other name keeps its own.
    for (const bool kept : {true, false}) {
      for (const std::string& name : names) {
        std::string shown = NameInArchive(name);
        if ((shown == name) == kept) pairs.emplace_back(name, unique.Make(shown));
      }
    }
    return pairs;
  }

  // Whether the format has room for the name, and the memory for names too.
  bool HasRoom(const std::string& name) {
    const std::size_t cost = name.size() + ZipWriter::kMemberMemory;
    if (name.size() >= ZipWriter::kLongestName || cost > memory_) {
      syslog(LOG_WARNING, "files: the names in a folder are too many or too long for an archive");
      return false;
    }
    memory_ -= cost;
    return true;
  }

  bool AddFile(const std::string& name, const struct stat& status, const Descriptor& file) {
    posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    return writer_.AddFile(name, status, file.get());
  }

  const Share& share_;
  std::optional<IdsGuard> as_owner_;
  ZipWriter writer_;
  UniqueNames tops_;
  std::size_t memory_ = kMostMemory;  // that is left for names
  bool good_ = true;
};

std::vector<std::string> ChosenPaths(const APIRequest& request, const Share& share) {
  const Json::Value chosen = Read(request, params::FilesLinkZip::kPaths);
  if (chosen.empty()) return share.items();
  std::vector<std::string> paths;
  for (const Json::Value& path : chosen) paths.push_back(share.PathOf(path.asString()));
  return paths;
}

// Leaves out what is there twice or within another.
std::vector<std::string> WithoutContained(std::vector<std::string> paths) {
  const std::set<std::string> all(paths.begin(), paths.end());
  std::set<std::string> kept;
  const auto is_contained = [&](const std::string& path) {
    if (path.empty()) return false;
    if (all.contains("")) return true;
    for (std::size_t end = path.find('/'); end != std::string::npos;
         end = path.find('/', end + 1)) {
      if (all.contains(path.substr(0, end))) return true;
    }
    return false;
  };
  std::erase_if(paths, [&](const std::string& path) {
    return is_contained(path) || !kept.insert(path).second;
  });
  return paths;
}

bool IsThere(const Share& share, const std::string& path) {
  try {
    const IdsGuard owner(share.owner());
    share.Find(path);
    return true;
  } catch (const Refusal& refusal) {
    if (refusal.code != kNotFound) throw;
    return false;
  }
}

// A single item gives its own name, several take the link's title.
std::string NameOfArchive(const sharing::record::Entry& entry, const Share& share,
                          const std::vector<std::string>& paths) {
  std::string name = paths.size() == 1 ? share.NameOf(paths.front()) : entry.get_protect_title();
  for (char& c : name) {
    if (c == '/') c = '_';
  }
  return (name.empty() ? "files" : name) + ".zip";
}

}  // namespace

void GetZip(const APIRequest& request, APIResponse& response) {
  const Guest guest = AdmitDownload(request);
  const Share share(guest.entry);
  MustShow(share);
  const std::vector<std::string> paths = WithoutContained(ChosenPaths(request, share));
  const bool is_any = std::any_of(paths.begin(), paths.end(), [&share](const std::string& path) {
    return IsThere(share, path);
  });
  if (!is_any) throw Refusal(kNotFound);
  MakeVisit(request, response, guest);
  if (!request.IsHead())
    response.NoteEvent("archive", ToText(NameOfArchive(guest.entry, share, paths)));
  const std::string header = "Content-Type: application/zip\r\nReferrer-Policy: no-referrer\r\n" +
                             ContentDisposition(true, NameOfArchive(guest.entry, share, paths)) +
                             "\r\n";
  if (!response.Send(header)) return;
  try {
    ZipStream zip(share, response);
    for (const std::string& path : paths) {
      if (!zip.Add(path)) break;
    }
    if (!zip.Close()) response.BreakOff();
  } catch (const Refusal&) {
    response.BreakOff();  // an error can't be reported in the middle of an archive
  }
}

}  // namespace VELT::files
