#include <vector>

#include "tests/plugins/faults/Fault.h"

FAULT(for (std::vector<std::string> all;;) all.emplace_back(std::size_t{1} << 27, 'x');)
