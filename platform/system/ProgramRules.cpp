#include "veltsys/ProgramRules.h"

#include <mutex>
#include <utility>

#include "platform/system/RequestPrograms.h"

namespace VELT {
namespace {

struct State {
  std::mutex mutex;
  ProgramRules rules;
  std::function<bool()> wanted;
  bool in_request = false;
  bool given_up = false;
  bool client_left = false;
};

// Never destroyed, since programs may be started during static destruction.
State& TheState() {
  // NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
  static auto* state = new State;
  return *state;
}

}  // namespace

void SetProgramRules(const ProgramRules& rules) {
  State& state = TheState();
  const std::lock_guard lock(state.mutex);
  state.rules = rules;
}

void BeginProgramsOfRequest(std::function<bool()> wanted) {
  State& state = TheState();
  const std::lock_guard lock(state.mutex);
  state.wanted = std::move(wanted);
  state.in_request = true;
  state.given_up = false;
  state.client_left = false;
}

ProgramRules CurrentProgramRules() {
  State& state = TheState();
  const std::lock_guard lock(state.mutex);
  return state.rules;
}

bool ProgramsAreWanted() {
  State& state = TheState();
  std::function<bool()> wanted;
  {
    const std::lock_guard lock(state.mutex);
    if (state.client_left) return false;
    wanted = state.wanted;
  }
  if (!wanted || wanted()) return true;
  const std::lock_guard lock(state.mutex);
  state.client_left = state.in_request;
  return false;
}

void GiveUpPrograms() {
  State& state = TheState();
  const std::lock_guard lock(state.mutex);
  state.given_up = state.in_request;
}

bool ProgramsAreGivenUp() {
  State& state = TheState();
  const std::lock_guard lock(state.mutex);
  return state.given_up;
}

}  // namespace VELT
