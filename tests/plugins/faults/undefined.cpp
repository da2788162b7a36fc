#include "tests/plugins/faults/Fault.h"

void DevelopFilm();

FAULT(DevelopFilm(); return true;)
