// The JSON reader of all parts of the platform.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <string>

namespace VELT {

// Parses one JSON text (RFC 8259, any value at the top) into `value`. Returns false and makes
// `value` null for anything else: comments, trailing commas or text, a byte order mark, invalid
// UTF-8, half a surrogate pair; and for an object with two members of one name, a number that a
// double can't hold, and more than `levels` (at most 64) levels of values. Several threads may call it
// at once; throws nothing but std::bad_alloc.
bool ParseJsonText(const std::string& text, Json::Value& value, std::size_t levels = 64);

}  // namespace VELT
