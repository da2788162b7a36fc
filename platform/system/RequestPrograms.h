// What the host has set in ProgramRules.h, for the code that starts programs.
#pragma once

#include "veltsys/ProgramRules.h"

namespace VELT {

ProgramRules CurrentProgramRules();

// Whether the current request may start another program.
bool ProgramsAreWanted();

// From now on the current request may start no more.
void GiveUpPrograms();

}  // namespace VELT
