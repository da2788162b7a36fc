#include "tests/plugins/faults/Fault.h"

FAULT(return true;)
