// The one way in which every part of the platform reads JSON.
#pragma once

#include <json/value.h>

#include <string>

namespace VELT {

// Parses one JSON text (RFC 8259, any value at the top) into `value`. False, leaving `value` null,
// for anything else: comments, trailing commas or text, a byte order mark, invalid UTF-8, half a
// surrogate pair; and for a name given twice in one object, a number beyond double's range, more
// than 64 levels of values. Several threads may call it at once; throws nothing but std::bad_alloc.
bool ParseJsonText(const std::string& text, Json::Value& value);

}  // namespace VELT
