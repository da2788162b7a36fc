// Checks the result of a plugin's function.
#pragma once

#include <json/value.h>

#include <string>

#include "tools/Finding.h"

namespace VELT::tools {

// `used` is what the function returned. An unknown `function` is judged as OpenGraphFunc.
Finding JudgeResult(const std::string& function, bool used, const Json::Value& result);

std::string OneLine(const Json::Value& value);

// The name of a C++ symbol as in the source code; other texts unchanged.
std::string Demangled(const std::string& symbol);

}  // namespace VELT::tools
