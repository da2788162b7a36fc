// JSON in the form that a page's script contains.
#pragma once

#include <json/value.h>

#include <string>

namespace VELT::sharing {

// The text of value.toStyledString(), but faster: that function makes a writer and a stream for
// each call, which takes longer than writing a small value.
std::string StyledJson(const Json::Value& value);

}  // namespace VELT::sharing
