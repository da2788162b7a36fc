// What the fuzz targets share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace VELT {

// Ends the process unless the requirement is met, which makes libFuzzer report the input.
inline void Require(bool met, const char* requirement) {
  if (met) return;
  std::fprintf(stderr, "violated: %s\n", requirement);
  std::abort();
}

// Takes the first line, without its end, off the head of `text`.
inline std::string TakeLine(std::string& text) {
  const std::size_t end = text.find('\n');
  std::string line = text.substr(0, end);
  text.erase(0, end == std::string::npos ? end : end + 1);
  return line;
}

// The target's own part, called for every input.
void Try(const std::string& text);

}  // namespace VELT

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  VELT::Try({reinterpret_cast<const char*>(data), size});
  return 0;
}
