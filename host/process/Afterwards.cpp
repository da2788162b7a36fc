#include "host/process/Afterwards.h"

#include <algorithm>
#include <thread>
#include <utility>

namespace VELT::host {
namespace {

constexpr std::chrono::seconds kDelay{5};
constexpr std::chrono::seconds kDelayAtEnd{1};

}  // namespace

Afterwards::~Afterwards() {
  if (waiting_.empty()) return;
  std::this_thread::sleep_for(kDelayAtEnd);
  for (const Waiting& each : waiting_) each.action();
}

void Afterwards::Add(std::function<void()> action) {
  waiting_.push_back({Clock::now() + kDelay, std::move(action)});
}

void Afterwards::DoDue() {
  const auto now = Clock::now();
  while (!waiting_.empty() && waiting_.front().due <= now) {
    waiting_.front().action();
    waiting_.pop_front();
  }
}

int Afterwards::Milliseconds() const {
  if (waiting_.empty()) return -1;
  const auto rest =
      std::chrono::ceil<std::chrono::milliseconds>(waiting_.front().due - Clock::now());
  return static_cast<int>(std::max<std::chrono::milliseconds::rep>(0, rest.count()));
}

}  // namespace VELT::host
