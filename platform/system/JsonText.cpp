#include "veltsys/JsonText.h"

#include <json/reader.h>

#include <memory>

namespace VELT {
namespace {

std::unique_ptr<Json::CharReader> MakeReader() {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["strictRoot"] = false;  // RFC 8259 allows any value at the top
  builder["allowTrailingCommas"] = false;
  builder["stackLimit"] = 64;
  return std::unique_ptr<Json::CharReader>(builder.newCharReader());
}

}  // namespace

bool ParseJsonText(const std::string& text, Json::Value& value) {
  // Making a reader costs more than reading a small text.
  thread_local const std::unique_ptr<Json::CharReader> reader = MakeReader();
  value = Json::Value();
  Json::Value parsed;
  std::string errors;
  try {
    if (!reader->parse(text.data(), text.data() + text.size(), &parsed, &errors)) return false;
  } catch (const Json::Exception&) {  // nested too deeply
    return false;
  }
  value.swap(parsed);
  return true;
}

}  // namespace VELT
