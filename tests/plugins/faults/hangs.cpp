#include <unistd.h>

#include "tests/plugins/faults/Fault.h"

FAULT(for (;;) pause();)
