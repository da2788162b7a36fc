// The parts of `check` that are about files and programs.
#pragma once

#include <string>

#include "host/Options.h"
#include "tools/Command.h"

namespace VELT::tools {

enum class State { kOk, kWarning, kFailed };

struct Finding {
  State state = State::kOk;
  std::string text = {};  // what was found, or what is wrong and what to do
};

// Has velt-webapid check its option file.
Finding CheckConfigFile(const HostOptions& options, const host::Ids& ids);
// Takes the service's `ids` for good, and checks its rights on the SQLite file `path` and the folder.
Finding CheckRights(const std::string& path, const host::Ids& ids);
Finding CheckPam();
Finding CheckQRCode();

}  // namespace VELT::tools
