// Files for the tests of the pages' data.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

// `path` is below /usr/velt, which is the test's own.
inline void Write(const std::string& path, const std::string& text) {
  const std::filesystem::path file = "/usr/velt/" + path;
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file) << text;
}

// Empties /usr/velt.
inline void Clear() {
  for (const auto& entry : std::filesystem::directory_iterator("/usr/velt")) remove_all(entry);
}
