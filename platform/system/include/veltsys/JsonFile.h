// Reading one JSON file out of a folder that outsiders may name files of.
#pragma once

#include <json/value.h>

#include <string>

namespace VELT {

// Parses the regular file called `name` that stands directly in `folder`. Null is returned when
// there is none, it can't be read, is larger than 1 MiB, nested deeper than 64 levels, or is not
// JSON (RFC 8259), and for a name that is empty, ".", ".." or holds a slash or NUL byte. No
// symbolic link is followed from the folder on, so nothing outside it is ever read. Several threads
// may call it at once; throws nothing but std::bad_alloc.
Json::Value ReadJsonFile(const std::string& folder, const std::string& name);

}  // namespace VELT
