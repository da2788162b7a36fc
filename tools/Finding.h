// What a check of `check` or `check-plugin` has found.
#pragma once

#include <json/value.h>

#include <string>

#include "veltwebapi/ServiceCheck.h"

namespace VELT::tools {

using State = ServiceCheck::State;

struct Finding {
  State state = State::kOk;
  std::string text = {};  // what was found, or what is wrong and what to do
};

// Adds what was found about `subject` to the array `checks`, as --json prints it.
void Add(Json::Value& checks, const std::string& subject, const Finding& finding);

// Whether one of the `checks` has failed.
bool HasFailed(const Json::Value& checks);

}  // namespace VELT::tools
