// Reports the state of the program to the service manager that started it (sd_notify(3)).
#pragma once

#include <chrono>

namespace VELT::host {

// Does nothing where the environment names no service manager. Only for the process that the
// manager started.
class ServiceManager {
 public:
  ServiceManager();

  // Each may be called again at any time; only changes are reported.
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
