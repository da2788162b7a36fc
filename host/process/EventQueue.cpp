#include "host/process/EventQueue.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <json/writer.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <ctime>
#include <system_error>
#include <utility>

#include "veltsys/JsonText.h"
#include "veltsys/Text.h"

namespace VELT::host {
namespace {

// Several thousand events. An ordinary user's pipes may be limited to less (pipe(7)).
constexpr int kPipeSize = 1 << 20;
constexpr std::size_t kLongestFile = 255;

// Keeps `kept` bytes of the address.
template <std::size_t kSize>
std::string Prefix(int family, std::array<unsigned char, kSize> bytes, std::size_t kept) {
  std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(kept), bytes.end(), 0);
  std::array<char, INET6_ADDRSTRLEN> text{};
  inet_ntop(family, bytes.data(), text.data(), text.size());
  return text.data();
}

// At most kLongestFile bytes, no part of a character.
std::string CutFile(std::string file) {
  if (!IsCleanText(file)) return {};
  std::size_t end = std::min(file.size(), kLongestFile);
  while (end < file.size() && (static_cast<unsigned char>(file[end]) & 0xC0) == 0x80) --end;
  file.resize(end);
  return file;
}

std::string ToLine(const sharing::LinkEvent& event) {
  Json::Value fields(Json::arrayValue);
  fields.append(Json::Int64{event.time});
  for (const std::string* text :
       {&event.link, &event.kind, &event.file, &event.result, &event.address, &event.browser}) {
    fields.append(*text);
  }
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, fields) + '\n';
}

sharing::LinkEvent FromLine(const std::string& line) {
  sharing::LinkEvent event;
  Json::Value fields;
  ParseJsonText(line, fields);
  event.time = fields[0].asInt64();
  Json::ArrayIndex index = 1;
  for (std::string* text :
       {&event.link, &event.kind, &event.file, &event.result, &event.address, &event.browser}) {
    *text = fields[index++].asString();
  }
  return event;
}

bool IsSame(const sharing::LinkEvent& a, const sharing::LinkEvent& b) {
  return a.link == b.link && a.kind == b.kind && a.file == b.file && a.result == b.result &&
         a.address == b.address && a.browser == b.browser;
}

void Add(std::vector<sharing::LinkEvent>& events, sharing::LinkEvent event) {
  const auto same = std::ranges::find_if(
      events, [&event](const sharing::LinkEvent& each) { return IsSame(each, event); });
  if (same != events.end()) {
    ++same->times;
  } else {
    events.push_back(std::move(event));
  }
}

}  // namespace

std::string Shortened(const std::string& address, EventAddress how) {
  if (how == EventAddress::kNone) return {};
  if (how == EventAddress::kWhole) return IsCleanText(address) ? address : std::string();
  std::array<unsigned char, 4> four{};
  if (inet_pton(AF_INET, address.c_str(), four.data()) == 1) return Prefix(AF_INET, four, 3);
  std::array<unsigned char, 16> six{};
  if (inet_pton(AF_INET6, address.c_str(), six.data()) != 1) return {};
  constexpr std::array<unsigned char, 12> kMapped = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
  const bool is_mapped = std::equal(kMapped.begin(), kMapped.end(), six.begin());
  return Prefix(AF_INET6, six, is_mapped ? 15 : 6);
}

EventQueue::EventQueue(EventAddress address) : address_(address) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe");
  }
  reader_ = Descriptor(ends[0]);
  writer_ = Descriptor(ends[1]);
  fcntl(writer_.get(), F_SETPIPE_SZ, kPipeSize);
}

void EventQueue::Give(sharing::LinkEvent event) const {
  event.time = std::time(nullptr);
  event.address = Shortened(event.address, address_);
  event.file = CutFile(std::move(event.file));
  std::string line = ToLine(event);
  // Only up to this length a write is whole or not at all.
  if (line.size() > PIPE_BUF || write(writer_.get(), line.data(), line.size()) < 0) {
    syslog(LOG_WARNING, "what a visitor did is not written down: too much waits for that");
  }
}

std::vector<sharing::LinkEvent> EventQueue::Take() {
  std::array<char, 65536> buffer;
  for (ssize_t got = 0; (got = read(reader_.get(), buffer.data(), buffer.size())) > 0;) {
    rest_.append(buffer.data(), static_cast<std::size_t>(got));
  }
  std::vector<sharing::LinkEvent> events;
  std::size_t begin = 0;
  for (std::size_t end = 0; (end = rest_.find('\n', begin)) != std::string::npos; begin = end + 1) {
    Add(events, FromLine(rest_.substr(begin, end - begin)));
  }
  rest_.erase(0, begin);
  return events;
}

}  // namespace VELT::host
