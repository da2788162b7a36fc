#include "module/LinkAddress.h"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <vector>

#include "sharing/Log.h"
#include "sharing/LogPlaces.h"
#include "veltsys/Base64.h"
#include "veltsys/Process.h"

namespace VELT {
namespace {

constexpr char kQRCodeProgram[] = "/usr/bin/qrencode";
constexpr std::size_t kChunkSize = 8192;

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

}  // namespace

std::string LinkURL(const APIRequest* request, const std::string& sharing_id) {
  return request->GetSharingURL("") + "/sharing/" + sharing_id;
}

bool GenerateQRCode(const std::string& url, std::string& qrcode) {
  const std::unique_ptr<FILE, ClosePipe> pipe(VLIBCPopen(
      kQRCodeProgram, "r", "-l", "H", url.c_str(), "-o", "-", static_cast<const char*>(nullptr)));
  if (!pipe) {
    LOG_AT(log_place::kQRCodeStart, LOG_ERR, "VLIBCPopen failed, key=%s", url.c_str());
    return false;
  }

  const std::vector<char> image = ReadAll(pipe.get());
  if (image.empty()) return false;

  std::vector<char> text(Base64BufferSize(image.size()), '\0');
  VLIBCBase64SzEncodeFull(image.data(), image.size(), text.data(), text.size(), text.size(), 0, 0);
  qrcode = std::string("data:image/png;base64,") + text.data();
  return true;
}

void FormEntryJSON(const APIRequest* request, const sharing::record::Entry& entry,
                   Json::Value& out) {
  entry.ToJSON(out);
  const std::string url = LinkURL(request, entry.get_hash());
  out["url"] = url;
  if (std::string qrcode; GenerateQRCode(url, qrcode)) out["qrcode"] = qrcode;
}

}  // namespace VELT
