#include <csignal>

#include "Fault.h"

FAULT(return std::raise(SIGSEGV) == 0;)
