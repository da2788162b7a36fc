// The reader behind KeyFile.h and VeltConf.h.
#pragma once

#include <map>
#include <string>

namespace VELT {

// All keys of the file at `path` with their values; empty when the file can't be read.
std::map<std::string, std::string> ReadKeyValues(const char* path);

}  // namespace VELT
