// Checks a plugin's file, and what can be seen of it once it is loaded.
#pragma once

#include <json/value.h>

#include <string>

namespace VELT::tools {

// Checks whether the file `path` can be a library of this machine, and who may read and change it.
void CheckLibraryFile(const std::string& path, Json::Value& checks);

// Loads the library into this process, where it stays, and checks what it is linked to and which
// functions of the interface it exports. The subject of such a function's check is its name.
Json::Value LoadLibrary(const std::string& path);

}  // namespace VELT::tools
