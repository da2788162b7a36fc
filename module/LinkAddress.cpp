#include "module/LinkAddress.h"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <deque>
#include <memory>
#include <utility>

#include "sharing/Log.h"
#include "sharing/LogPlaces.h"
#include "veltsys/Base64.h"
#include "veltsys/Process.h"

namespace VELT {
namespace {

constexpr char kQRCodeProgram[] = "/usr/bin/qrencode";
constexpr std::size_t kChunkSize = 8192;
// So that no core waits while the oldest is read; more would only wait for one another.
constexpr std::size_t kRunsAtATime = 4;

struct ClosePipe {
  void operator()(FILE* stream) const { VLIBCPclose(stream); }
};

std::vector<char> ReadAll(FILE* stream) {
  std::vector<char> content;
  std::array<char, kChunkSize> chunk{};
  std::size_t count = 0;
  do {
    count = std::fread(chunk.data(), 1, chunk.size(), stream);
    content.insert(content.end(), chunk.begin(), chunk.begin() + static_cast<long>(count));
  } while (count == chunk.size());
  return content;
}

// Twice the source size holds the base64 text and its zero byte, except for sources of 1, 2 and 4
// bytes. The zero byte must fit: an encoder without room for it may leave it out, but it ends the
// text below.
std::size_t Base64BufferSize(std::size_t source_size) {
  return std::max(2 * source_size, (source_size + 2) / 3 * 4 + 1);
}

// A run of qrencode, which goes on while its owner does something else.
class QRCode {
 public:
  explicit QRCode(std::string url)
      : url_(std::move(url)),
        pipe_(VLIBCPopen(kQRCodeProgram, "r", "-l", "H", url_.c_str(), "-o", "-",
                         static_cast<const char*>(nullptr))) {
    if (!pipe_) LogFailure();
  }

  const std::string& url() const { return url_; }

  // Waits for its end; to be called once. As GenerateQRCode.
  bool Finish(std::string& qrcode) {
    const std::unique_ptr<FILE, ClosePipe> pipe = std::move(pipe_);
    if (!pipe) return false;
    const std::vector<char> image = ReadAll(pipe.get());
    if (std::ferror(pipe.get()) != 0) LogFailure();
    if (image.empty()) return false;

    std::vector<char> text(Base64BufferSize(image.size()), '\0');
    VLIBCBase64SzEncodeFull(image.data(), image.size(), text.data(), text.size(), text.size(), 0,
                            0);
    qrcode = std::string("data:image/png;base64,") + text.data();
    return true;
  }

 private:
  void LogFailure() const {
    LOG_AT(log_place::kQRCodeStart, LOG_ERR, "VLIBCPopen failed, key=%s", url_.c_str());
  }

  const std::string url_;
  std::unique_ptr<FILE, ClosePipe> pipe_;
};

// An entry's form whose image is in the making. The entry must outlive it.
class PendingForm {
 public:
  PendingForm(const APIRequest* request, const sharing::record::Entry& entry)
      : entry_(entry), qrcode_(LinkURL(request, entry.get_hash())) {}

  void Finish(Json::Value& out) {
    entry_.ToJSON(out);
    out["url"] = qrcode_.url();
    if (std::string qrcode; qrcode_.Finish(qrcode)) out["qrcode"] = qrcode;
  }

 private:
  const sharing::record::Entry& entry_;
  QRCode qrcode_;
};

}  // namespace

std::string LinkURL(const APIRequest* request, const std::string& sharing_id) {
  return request->GetSharingURL("") + "/sharing/" + sharing_id;
}

bool GenerateQRCode(const std::string& url, std::string& qrcode) {
  return QRCode(url).Finish(qrcode);
}

void FormEntryJSON(const APIRequest* request, const sharing::record::Entry& entry,
                   Json::Value& out) {
  PendingForm(request, entry).Finish(out);
}

void FormEntriesJSON(const APIRequest* request, const std::vector<sharing::record::Entry>& entries,
                     Json::Value& out) {
  out = Json::Value(Json::arrayValue);
  std::deque<PendingForm> pending;
  const auto finish_first = [&] {
    pending.front().Finish(out.append(Json::Value(Json::objectValue)));
    pending.pop_front();
  };
  for (const sharing::record::Entry& entry : entries) {
    if (pending.size() == kRunsAtATime) finish_first();
    pending.emplace_back(request, entry);
  }
  while (!pending.empty()) finish_first();
}

}  // namespace VELT
