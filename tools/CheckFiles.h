// The parts of `check` that are about files: the database's, the options', PAM's.
#pragma once

#include <string>

#include "host/Options.h"
#include "tools/Command.h"

namespace VELT::tools {

enum class State { kOk, kWarning, kFailed };

struct Finding {
  State state = State::kOk;
  std::string text = {};  // what is wrong and what to do; or what was found
};

// The service's own program judges its options.
Finding CheckConfigFile(const Place& place, const host::Ids& ids);
// `ids`: those of the service.
Finding CheckRights(const std::string& path, const host::Ids& ids);
Finding CheckPam();
Finding CheckQRCode();

}  // namespace VELT::tools
