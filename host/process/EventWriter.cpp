#include "host/process/EventWriter.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <ctime>
#include <utility>

#include "veltsharing/RecordLinkEvents.h"
#include "veltsys/Text.h"

namespace VELT::host {
namespace {

constexpr std::size_t kMostAtOnce = 100;
constexpr std::size_t kLongestFile = 255;
constexpr std::chrono::seconds kWait{2};

// Keeps `kept` bytes of the address.
template <std::size_t kSize>
std::string Prefix(int family, std::array<unsigned char, kSize> bytes, std::size_t kept) {
  std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(kept), bytes.end(), 0);
  std::array<char, INET6_ADDRSTRLEN> text{};
  inet_ntop(family, bytes.data(), text.data(), text.size());
  return text.data();
}

bool IsSame(const sharing::LinkEvent& a, const sharing::LinkEvent& b) {
  return a.link == b.link && a.kind == b.kind && a.file == b.file && a.result == b.result &&
         a.address == b.address && a.browser == b.browser;
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

void EventWriter::Add(sharing::LinkEvent event) {
  event.time = std::time(nullptr);
  event.address = Shortened(event.address, options_.event_address);
  if (!IsCleanText(event.file)) event.file.clear();
  // Not within a character.
  std::size_t end = std::min(event.file.size(), kLongestFile);
  while (end < event.file.size() && (static_cast<unsigned char>(event.file[end]) & 0xC0) == 0x80)
    --end;
  event.file.resize(end);
  const auto same = std::find_if(waiting_.begin(), waiting_.end(),
                                 [&event](const auto& each) { return IsSame(each, event); });
  if (same != waiting_.end()) {
    ++same->times;
    return;
  }
  if (waiting_.empty()) due_ = Clock::now() + kWait;
  waiting_.push_back(std::move(event));
}

void EventWriter::DoDue() {
  if (waiting_.size() >= kMostAtOnce || (!waiting_.empty() && Clock::now() >= due_)) Write();
}

int EventWriter::Milliseconds() const {
  if (waiting_.empty()) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(due_ - Clock::now());
  return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}

void EventWriter::RemoveOld() const { sharing::RecordLinkEvents({}, options_.event_days); }

void EventWriter::Write() {
  const auto events = std::exchange(waiting_, {});
  if (!events.empty()) sharing::RecordLinkEvents(events, options_.event_days);
}

}  // namespace VELT::host
