// Replaces the C library's syslog in the whole test program.
#pragma once

#include <string>
#include <vector>

namespace VELT {

// What was logged since the list was last cleared, "<priority> <text>".
std::vector<std::string>& Log();

}  // namespace VELT
