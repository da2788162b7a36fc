#include "host/process/ServiceManager.h"

#include <systemd/sd-daemon.h>

#include <cstdint>

namespace VELT::host {

ServiceManager::ServiceManager() {
  std::uint64_t limit = 0;
  watched_ = sd_watchdog_enabled(0, &limit) > 0;
  if (watched_) pause_ = std::chrono::microseconds(limit / 3);
}

bool ServiceManager::Enter(State state) {
  if (state_ == state || state_ == State::kStopping) return false;
  state_ = state;
  return true;
}

void ServiceManager::Ready() {
  if (Enter(State::kReady)) sd_notify(0, "READY=1");
}

void ServiceManager::Reloading() {
  if (!Enter(State::kReloading)) return;
  const auto now = Clock::now().time_since_epoch();
  sd_notifyf(
      0, "RELOADING=1\nMONOTONIC_USEC=%lld",
      static_cast<long long>(std::chrono::duration_cast<std::chrono::microseconds>(now).count()));
}

void ServiceManager::Stopping() {
  if (Enter(State::kStopping)) sd_notify(0, "STOPPING=1");
}

void ServiceManager::Alive() {
  if (!watched_ || Clock::now() < next_sign_) return;
  sd_notify(0, "WATCHDOG=1");
  next_sign_ = Clock::now() + pause_ / 2;
}

}  // namespace VELT::host
