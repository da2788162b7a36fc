// What the host has set in ProgramRules.h, for the code that starts programs.
#pragma once

#include "veltsys/ProgramRules.h"

namespace VELT {

ProgramRules CurrentProgramRules();

// Whether the client of the current request still waits for what programs make.
bool ProgramsAreWanted();

// From now on the current request may start no more.
void GiveUpPrograms();
bool ProgramsAreGivenUp();

}  // namespace VELT
