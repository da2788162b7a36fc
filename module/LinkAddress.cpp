#include "module/LinkAddress.h"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

#include "sharing/Log.h"
#include "sharing/LogPlaces.h"
#include "veltsys/Base64.h"
#include "veltsys/Process.h"

namespace VELT {
namespace {

constexpr char kQRCodeProgram[] = "/usr/bin/qrencode";
constexpr std::size_t kChunkSize = 8192;
constexpr unsigned int kMostCores = 8;

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

// Calls `work` with the numbers below `count`, on as many threads as the machine has cores; a throw
// would end the process. Returns when all calls have. Threads and not one caller that starts several
// programs: a caller stands still until its program has begun, and in a queue if all cores are busy.
template <typename Work>
void RunOnAllCores(std::size_t count, Work work) {
  std::atomic<std::size_t> next{0};
  const auto run = [&] {
    for (std::size_t number = next++; number < count; number = next++) work(number);
  };
  const unsigned int cores = std::clamp(std::thread::hardware_concurrency(), 1U, kMostCores);
  std::vector<std::jthread> others;
  try {
    while (others.size() + 1 < std::min<std::size_t>(cores, count)) others.emplace_back(run);
  } catch (const std::system_error&) {
    // With fewer threads it takes longer.
  }
  run();
}

struct QRCode {
  bool started = false;
  std::string image;  // a data URI; empty when the program printed nothing
};

QRCode MakeQRCode(const std::string& url) {
  const std::unique_ptr<FILE, ClosePipe> pipe(VLIBCPopen(
      kQRCodeProgram, "r", "-l", "H", url.c_str(), "-o", "-", static_cast<const char*>(nullptr)));
  if (!pipe) return {};
  const std::vector<char> image = ReadAll(pipe.get());
  if (image.empty()) return {true, ""};

  std::vector<char> text(Base64BufferSize(image.size()), '\0');
  VLIBCBase64SzEncodeFull(image.data(), image.size(), text.data(), text.size(), text.size(), 0, 0);
  return {true, std::string("data:image/png;base64,") + text.data()};
}

void LogNotStarted(const std::string& url) {
  LOG_AT(log_place::kQRCodeStart, LOG_ERR, "VLIBCPopen failed, key=%s", url.c_str());
}

// An empty `qrcode` is one that could not be made.
void FormWith(const std::string& url, const std::string& qrcode,
              const sharing::record::Entry& entry, Json::Value& out) {
  entry.ToJSON(out);
  out["url"] = url;
  if (!qrcode.empty()) out["qrcode"] = qrcode;
}

}  // namespace

std::string LinkURL(const APIRequest* request, const std::string& sharing_id) {
  return request->GetSharingURL("") + "/sharing/" + sharing_id;
}

bool GenerateQRCode(const std::string& url, std::string& qrcode) {
  QRCode made = MakeQRCode(url);
  if (!made.started) LogNotStarted(url);
  if (made.image.empty()) return false;
  qrcode = std::move(made.image);
  return true;
}

void FormEntryJSON(const APIRequest* request, const sharing::record::Entry& entry,
                   Json::Value& out) {
  const std::string url = LinkURL(request, entry.get_hash());
  std::string qrcode;
  GenerateQRCode(url, qrcode);
  FormWith(url, qrcode, entry, out);
}

void FormEntriesJSON(const APIRequest* request, const std::vector<sharing::record::Entry>& entries,
                     Json::Value& out) {
  std::vector<std::string> urls;
  urls.reserve(entries.size());
  for (const sharing::record::Entry& entry : entries) {
    urls.push_back(LinkURL(request, entry.get_hash()));
  }
  std::vector<QRCode> qrcodes(entries.size());
  RunOnAllCores(entries.size(),
                [&](std::size_t number) { qrcodes[number] = MakeQRCode(urls[number]); });
  out = Json::Value(Json::arrayValue);
  for (std::size_t number = 0; number < entries.size(); ++number) {
    if (!qrcodes[number].started) LogNotStarted(urls[number]);
    FormWith(urls[number], qrcodes[number].image, entries[number],
             out.append(Json::Value(Json::objectValue)));
  }
}

}  // namespace VELT
