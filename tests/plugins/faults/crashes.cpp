#include <csignal>

#include "tests/plugins/faults/Fault.h"

FAULT(return std::raise(SIGSEGV) == 0;)
