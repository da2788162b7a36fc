// Checks of untrusted texts, and percent encoding.
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

// Decodes the percent escapes (RFC 3986, section 2.1) of `text` into `decoded`. False for an
// invalid escape, and when the result is not clean.
bool DecodePercent(std::string_view text, std::string& decoded);

// Whether `text` can be the name of a file directly in a folder: it is not empty, "." or "..", and
// contains no slash or NUL character. Throws nothing.
bool IsFileName(std::string_view text);

// Whether all strings and member names in `value`, at every level, are clean.
bool IsCleanJson(const Json::Value& value);

}  // namespace VELT
