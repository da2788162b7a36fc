// Files and values for the tests of the pages' data.
#pragma once

#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

inline Json::Value Parse(const std::string& text) {
  Json::Value value;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) << text;
  return value;
}

// `path` is below /usr/velt, which is the test's own.
inline void Write(const std::string& path, const std::string& text) {
  const std::filesystem::path file = "/usr/velt/" + path;
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file) << text;
}

// An empty /usr/velt.
inline void Clear() {
  for (const auto& entry : std::filesystem::directory_iterator("/usr/velt")) remove_all(entry);
}
