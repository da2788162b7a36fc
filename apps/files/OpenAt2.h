// openat2(2), which opens without leaving a folder and without following links.
#pragma once

#include <linux/openat2.h>

#include <string>

#include "veltsys/Descriptor.h"

namespace VELT::files {

// What is wrong, and what to do, when there is no openat2.
inline constexpr const char* kNoOpenAt2 =
    "the system call openat2 is not to be had, so no file can be reached: Linux must be 5.8 or "
    "later, and the service's unit must have neither RestrictSUIDSGID= nor a SystemCallFilter= "
    "without it";

// Makes a handle (O_PATH): opens nothing, so that no pipe blocks and no device starts. `flags` are
// further ones of open(2), `resolve` those of open_how. Holds -1, with errno, when it can't. When
// there is no openat2, the log says so, once in a process.
Descriptor OpenHandle(int folder, const std::string& path, int flags, unsigned long long resolve);

}  // namespace VELT::files
