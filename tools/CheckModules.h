// The part of `check` that is about API modules, with what they add (veltwebapi/ServiceCheck.h).
#pragma once

#include <json/value.h>

#include "host/Options.h"
#include "tools/Command.h"

namespace VELT::tools {

// Loads the registry as a worker does, and adds what each module finds to `checks`. To be called in a
// process of its own, which keeps the service's `ids` and view of the files. Throws std::exception.
void CheckModules(const HostOptions& options, const host::Ids& ids, Json::Value& checks);

}  // namespace VELT::tools
