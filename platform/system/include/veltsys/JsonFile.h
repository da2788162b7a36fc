// Reads a JSON file whose name may be untrusted from a folder.
#pragma once

#include <json/value.h>

#include <string>

namespace VELT {

// Parses the regular file `name` directly in `folder`. Returns null when there is none, it can't be
// read, is larger than 1 MiB, is nested deeper than 64 levels, or is not JSON (RFC 8259); also when
// `name` is empty, ".", ".." or contains a slash or NUL byte. If `name` is a symbolic link it is
// not followed, so nothing outside the folder is ever read. Several threads may call it at once;
// throws nothing but std::bad_alloc.
Json::Value ReadJsonFile(const std::string& folder, const std::string& name);

}  // namespace VELT
