#include "Fault.h"

void DevelopFilm();

FAULT(DevelopFilm(); return true;)
