// What the host has said about programs (ProgramRules.h), for those who start them.
#pragma once

#include "veltsys/ProgramRules.h"

namespace VELT {

ProgramRules CurrentProgramRules();

// Whether the present request may start another program.
bool ProgramsAreWanted();

// The present request starts no more.
void GiveUpPrograms();

}  // namespace VELT
