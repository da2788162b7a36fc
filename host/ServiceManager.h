// Tells the service manager that started the program how it is doing, as sd_notify(3) describes.
#pragma once

#include <chrono>

namespace VELT::host {

// Does nothing where the environment names no service manager. For the process that it started.
class ServiceManager {
 public:
  ServiceManager();

  // Each may be called again at any time; only a change is told.
  void Ready();
  void Reloading();
  void Stopping();

  // To be called at least once in each `watchdog_pause`, or the manager takes the program for dead.
  void Alive();
  std::chrono::microseconds watchdog_pause() const { return pause_; }

 private:
  enum class State { kStarting, kReady, kReloading, kStopping };
  using Clock = std::chrono::steady_clock;

  bool Enter(State state);

  State state_ = State::kStarting;
  bool watched_ = false;
  std::chrono::microseconds pause_ = std::chrono::hours(1);
  Clock::time_point next_sign_;
};

}  // namespace VELT::host
