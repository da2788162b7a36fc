#include "veltsys/JsonText.h"

#include <json/reader.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string_view>

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

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

std::size_t TakeDigits(std::string_view& text) {
  const auto* end = std::find_if_not(text.begin(), text.end(), IsDigit);
  const auto count = static_cast<std::size_t>(end - text.begin());
  text.remove_prefix(count);
  return count;
}

// RFC 8259, section 6.
bool IsNumber(std::string_view text) {
  if (text.starts_with('-')) text.remove_prefix(1);
  const bool zero = text.starts_with('0');
  const std::size_t whole = TakeDigits(text);
  if (whole == 0 || (zero && whole > 1)) return false;
  if (text.starts_with('.')) {
    text.remove_prefix(1);
    if (TakeDigits(text) == 0) return false;
  }
  if (text.starts_with('e') || text.starts_with('E')) {
    text.remove_prefix(1);
    if (text.starts_with('-') || text.starts_with('+')) text.remove_prefix(1);
    if (TakeDigits(text) == 0) return false;
  }
  return text.empty();
}

// Takes a string, but for its opening quote, off the head of `text`. False when there is a control
// character in it, or no end.
bool TakeString(std::string_view& text) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (static_cast<unsigned char>(text[at]) < 0x20) return false;
    if (text[at] == '\\') {
      ++at;
    } else if (text[at] == '"') {
      text.remove_prefix(at + 1);
      return true;
    }
  }
  return false;
}

// Whether the numbers and strings are as JSON has them. JsonCpp would read "-" as 0 and "01" as 1,
// and so make a number of a slip.
bool HasStrictTokens(std::string_view text) {
  while (!text.empty()) {
    const char c = text.front();
    if (c == '"') {
      text.remove_prefix(1);
      if (!TakeString(text)) return false;
    } else if (IsDigit(c) || c == '-' || c == '+') {
      const std::size_t end = std::min(text.find_first_not_of("0123456789+-.eE"), text.size());
      if (!IsNumber(text.substr(0, end))) return false;
      text.remove_prefix(end);
    } else {
      text.remove_prefix(1);
    }
  }
  return true;
}

}  // namespace

bool ParseJsonText(const std::string& text, Json::Value& value) {
  // Making a reader costs more than reading a small text.
  thread_local const std::unique_ptr<Json::CharReader> reader = MakeReader();
  value = Json::Value();
  if (!HasStrictTokens(text)) return false;
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
