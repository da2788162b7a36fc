// Whether the service can use what a plugin's function gave.
#pragma once

#include <json/value.h>

#include <string>

#include "tools/CheckFiles.h"

namespace VELT::tools {

// `used` is what the function returned. An unknown `function` is judged as OpenGraphFunc.
Finding JudgeResult(const std::string& function, bool used, const Json::Value& result);

std::string OneLine(const Json::Value& value);

// A C++ symbol as the source has it; any other text as it is.
std::string Demangled(const std::string& symbol);

}  // namespace VELT::tools
