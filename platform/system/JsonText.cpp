#include "veltsys/JsonText.h"

#include <json/reader.h>

#include <memory>

namespace VELT {
namespace {

Json::CharReaderBuilder MakeBuilder() {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["strictRoot"] = false;  // RFC 8259 allows any value at the top
  builder["allowTrailingCommas"] = false;
  builder["stackLimit"] = 64;
  return builder;
}

}  // namespace

bool ParseJsonText(const std::string& text, Json::Value& value) {
  static const Json::CharReaderBuilder builder = MakeBuilder();
  value = Json::Value();
  Json::Value parsed;
  std::string errors;
  try {
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    if (!reader->parse(text.data(), text.data() + text.size(), &parsed, &errors)) return false;
  } catch (const Json::Exception&) {  // nested too deeply
    return false;
  }
  value.swap(parsed);
  return true;
}

}  // namespace VELT
