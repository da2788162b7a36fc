// Makes JSON values for tests.
#pragma once

#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>  // a failed comparison prints its values

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace VELT {

inline Json::Value Parse(const std::string& text) {
  Json::Value value;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) << text;
  return value;
}

using Members = std::vector<std::pair<const char*, Json::Value>>;

// `object` with these members.
inline Json::Value Object(const Members& members, Json::Value object = Json::objectValue) {
  for (const auto& [name, value] : members) object[name] = value;
  return object;
}

template <typename... Values>
Json::Value Array(const Values&... values) {
  Json::Value array(Json::arrayValue);
  (array.append(values), ...);
  return array;
}

}  // namespace VELT
