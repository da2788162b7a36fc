// Which texts of outsiders the platform takes in at all.
#pragma once

#include <json/value.h>

#include <string_view>

namespace VELT {

// Whether `text` is valid UTF-8 (RFC 3629) without a NUL character. Throws nothing.
bool IsCleanText(std::string_view text);

// Whether every string and member name in `value`, however deep, is clean.
bool IsCleanJson(const Json::Value& value);

}  // namespace VELT
