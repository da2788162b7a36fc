// Which texts of outsiders the platform takes in, and percent escapes.
#pragma once

#include <json/value.h>

#include <string>
#include <string_view>

namespace VELT {

// Whether `text` is valid UTF-8 (RFC 3629) without a NUL character. Throws nothing.
bool IsCleanText(std::string_view text);

// `text` with everything but the unreserved characters (RFC 3986, section 2.3) and `also_kept` as
// percent escapes.
std::string EncodePercent(std::string_view text, std::string_view also_kept = "");

// Makes `decoded` the text behind `text`'s percent escapes (RFC 3986, section 2.1). False for a
// broken escape and when what comes out is not clean.
bool DecodePercent(std::string_view text, std::string& decoded);

// Whether `text` can name a file in a folder, and nothing outside it: it is not empty, "." or "..",
// and holds no slash or NUL character. Throws nothing.
bool IsFileName(std::string_view text);

// Whether every string and member name in `value`, however deep, is clean.
bool IsCleanJson(const Json::Value& value);

}  // namespace VELT
