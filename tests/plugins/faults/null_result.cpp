#include "Fault.h"

FAULT(return true;)
