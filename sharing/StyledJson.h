// JSON as a page's script holds it.
#pragma once

#include <json/value.h>

#include <string>

namespace VELT::sharing {

// What value.toStyledString() gives, at a fraction of its cost: that makes a writer and a stream
// for each call, which takes longer than writing a small value.
std::string StyledJson(const Json::Value& value);

}  // namespace VELT::sharing
