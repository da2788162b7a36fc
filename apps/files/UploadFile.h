// The file of an upload: what is written to it, and how it gets its name. Call these with the ids of the
// account that it belongs to (see Ids.h).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "apps/files/Tree.h"
#include "veltsys/Descriptor.h"

namespace VELT::files {

// Throws the Refusal for an error number of the system.
[[noreturn]] void ThrowFor(int error);

// A path of the open file, for linkat(2) and open(2).
std::string ProcPath(const Descriptor& file);

// False, with errno, when only a part of the piece was written.
bool Write(int file, std::int64_t offset, std::string_view piece);

// Writes the whole piece to the disk, or throws Refusal and leaves the file as it was.
void Append(int file, std::int64_t offset, std::string_view piece);

// Gives the file the name `path` below `target`, or the next that is free, and returns it. Folders on the
// way are made when they are missing. Throws Refusal.
std::string Publish(const Descriptor& file, Found target, const std::string& path);

}  // namespace VELT::files
