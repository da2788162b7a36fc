// The parts of `check` that are about files and programs.
#pragma once

#include <string>

#include "host/Options.h"
#include "tools/Command.h"
#include "tools/Finding.h"

namespace VELT::tools {

// Has velt-webapid check its option file.
Finding CheckConfigFile(const HostOptions& options, const host::Ids& ids);
// Takes the service's `ids` for good, and checks its rights on the SQLite file `path` and the folder.
Finding CheckRights(const std::string& path, const host::Ids& ids);
Finding CheckPam(const std::string& service);
Finding CheckQRCode();

}  // namespace VELT::tools
