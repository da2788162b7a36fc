#pragma once

#include "Options.h"

namespace VELT::host {

// Makes `ids` the effective ids of the process and takes the user's groups on; the real and saved
// ids stay, so that a handler can come back to them for a stretch. Does nothing where they are in
// force already. Throws std::system_error.
void LowerTo(const Ids& ids);

// Whether `ids` are in force.
bool IsLoweredTo(const Ids& ids);

}  // namespace VELT::host
