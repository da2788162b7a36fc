// A folder, a selection or all that a link shares as one ZIP archive, made while it is sent.
#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstddef>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "apps/files/Ids.h"
#include "apps/files/Methods.h"
#include "apps/files/Names.h"
#include "apps/files/Refusal.h"
#include "apps/files/Share.h"
#include "apps/files/Tree.h"
#include "apps/files/Visit.h"
#include "declared/VELT.Files.h"
#include "veltsharing/Entry.h"
#include "veltsys/Descriptor.h"
#include "veltsys/Text.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"

namespace VELT::files {
namespace {

constexpr std::size_t kBlock = std::size_t{256} * 1024;

// libarchive reads names in the encoding of the locale.
class Utf8Locale {
 public:
  Utf8Locale() : mine_(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)), before_(uselocale(mine_)) {}
  ~Utf8Locale() {
    uselocale(before_);
    if (mine_ != nullptr) freelocale(mine_);
  }
  Utf8Locale(const Utf8Locale&) = delete;
  Utf8Locale& operator=(const Utf8Locale&) = delete;

 private:
  locale_t mine_;
  locale_t before_;
};

// Archives hold names in UTF-8, and some programs take a backslash for a slash.
std::string NameInArchive(const std::string& name) {
  std::string text = IsCleanText(name) ? name : ToText(name);
  for (char& c : text) {
    if (c == '\\' || static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '_';
  }
  return text;
}

class ZipStream {
 public:
  ZipStream(const Share& share, APIResponse& response)
      : share_(share), response_(response), archive_(archive_write_new(), archive_write_free) {
    archive* const raw = archive_.get();
    archive_write_set_format_zip(raw);
    // Pictures, sound and films are compressed already.
    archive_write_zip_set_compression_store(raw);
    archive_write_set_options(raw, "zip:hdrcharset=UTF-8");
    archive_write_set_bytes_per_block(raw, static_cast<int>(kBlock));
    archive_write_set_bytes_in_last_block(raw, 1);
    good_ = archive_write_open2(raw, &response_, nullptr, Write, nullptr, nullptr) == ARCHIVE_OK;
  }

  // Adds what is at `path` and beneath it. False when nothing more can be sent.
  bool Add(const std::string& path) {
    std::vector<std::pair<std::string, std::string>> waiting = {
        {path, UniqueTop(NameInArchive(share_.NameOf(path)))}};
    while (good_ && !waiting.empty()) {
      const auto [next, name] = std::move(waiting.back());
      waiting.pop_back();
      AddOne(next, name, waiting);
    }
    return good_;
  }

  // False when the archive isn't whole.
  bool Close() { return good_ && archive_write_close(archive_.get()) == ARCHIVE_OK; }

 private:
  using Waiting = std::vector<std::pair<std::string, std::string>>;

  static la_ssize_t Write(archive* /*raw*/, void* response, const void* bytes, size_t size) {
    const bool sent =
        static_cast<APIResponse*>(response)->Send({static_cast<const char*>(bytes), size});
    return sent ? static_cast<la_ssize_t>(size) : -1;
  }

  std::string UniqueTop(const std::string& name) {
    std::string unique = name;
    for (int number = 2; !tops_.insert(unique).second; ++number) {
      unique = name + " (" + std::to_string(number) + ")";
    }
    return unique;
  }

  // What is gone or can't be read by now is left out, as a listing leaves it out.
  void AddOne(const std::string& path, const std::string& name, Waiting& waiting) {
    try {
      Found found;
      Descriptor file;
      {
        const IdsGuard owner(share_.owner());
        found = share_.Find(path);
        if (!found.IsFolder()) file = Open(found, O_RDONLY | O_NONBLOCK);
      }
      if (!found.IsFolder()) {
        good_ = WriteHeader(name, found.status) && WriteContent(file, found.status.st_size);
        return;
      }
      good_ = WriteHeader(name + "/", found.status);
      Listing listing;
      {
        const IdsGuard owner(share_.owner());
        listing = List(found, {Order::By::kName, true}, 0, std::numeric_limits<std::size_t>::max());
      }
      // In descending order, because the last one is taken first.
      for (const Item& item : listing.shown) {
        waiting.emplace_back(Join(path, item.name), name + "/" + NameInArchive(item.name));
      }
    } catch (const Refusal& refusal) {
      if (refusal.code != kNotFound) throw;
    }
  }

  bool WriteHeader(const std::string& name, const struct stat& status) {
    const std::unique_ptr<archive_entry, void (*)(archive_entry*)> entry(archive_entry_new(),
                                                                         archive_entry_free);
    archive_entry_set_pathname(entry.get(), name.c_str());
    archive_entry_set_filetype(entry.get(), S_ISDIR(status.st_mode) ? AE_IFDIR : AE_IFREG);
    archive_entry_set_perm(entry.get(), S_ISDIR(status.st_mode) ? 0755 : 0644);
    archive_entry_set_mtime(entry.get(), status.st_mtim.tv_sec, 0);
    if (S_ISREG(status.st_mode)) archive_entry_set_size(entry.get(), status.st_size);
    return archive_write_header(archive_.get(), entry.get()) >= ARCHIVE_WARN;
  }

  // False when the file has become shorter than its header says.
  bool WriteContent(const Descriptor& file, off_t size) {
    posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    while (size > 0) {
      const ssize_t got = read(file.get(), buffer_.data(), buffer_.size());
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) {
        syslog(LOG_WARNING, "files: a file could not be read whole into an archive");
        return false;
      }
      const auto length = static_cast<std::size_t>(std::min<off_t>(got, size));
      if (archive_write_data(archive_.get(), buffer_.data(), length) !=
          static_cast<la_ssize_t>(length)) {
        return false;
      }
      size -= static_cast<off_t>(length);
    }
    return true;
  }

  const Utf8Locale locale_;
  const Share& share_;
  APIResponse& response_;
  std::unique_ptr<archive, int (*)(archive*)> archive_;
  std::vector<char> buffer_ = std::vector<char>(kBlock);
  std::set<std::string> tops_;
  bool good_ = false;
};

std::vector<std::string> ChosenPaths(const APIRequest& request, const Share& share) {
  const Json::Value chosen = Read(request, params::FilesLinkZip::kPaths);
  if (chosen.empty()) return share.items();
  std::vector<std::string> paths;
  for (const Json::Value& path : chosen) paths.push_back(share.PathOf(path.asString()));
  return paths;
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
  const sharing::record::Entry entry = Admit(request, response, true);
  const Share share(entry);
  MustShow(share);
  const std::vector<std::string> paths = ChosenPaths(request, share);
  const std::string header =
      "Content-Type: application/zip\r\nX-Content-Type-Options: nosniff\r\n"
      "Cache-Control: no-store\r\nReferrer-Policy: no-referrer\r\n" +
      ContentDisposition(true, NameOfArchive(entry, share, paths)) + "\r\n";
  if (paths.size() == 1) {
    const IdsGuard owner(share.owner());
    share.Find(paths.front());  // so that what is gone gives an error and no empty archive
  }
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
