// The reader behind KeyFile.h and VeltConf.h.
#pragma once

#include <map>
#include <string>

namespace VELT {

// Every key of the file at `path` with its value; nothing when the file can't be read.
std::map<std::string, std::string> ReadKeyValues(const char* path);

}  // namespace VELT
