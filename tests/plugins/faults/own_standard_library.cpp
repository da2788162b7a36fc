#include <stdexcept>

#include "tests/plugins/faults/Fault.h"

FAULT(if (result.isNull()) throw std::runtime_error("statically linked"); return is_page;)
