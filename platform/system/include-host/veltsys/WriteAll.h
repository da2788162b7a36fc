// Writing to a descriptor that may take a text in parts.
#pragma once

#include <string_view>

namespace VELT {

// Writes the whole text, also when signals interrupt it. False, with errno set, when not all could
// be written. Async-signal-safe.
bool WriteAll(int file, std::string_view text) noexcept;

}  // namespace VELT
