// JSON literals of the tests.
#pragma once

#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>  // a failed comparison prints its values

#include <memory>
#include <string>

namespace VELT {

inline Json::Value Parse(const std::string& text) {
  Json::Value value;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) << text;
  return value;
}

}  // namespace VELT
