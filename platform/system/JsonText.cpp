#include "veltsys/JsonText.h"

#include <json/reader.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <string_view>

#include "veltsys/Text.h"

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

// Removes a number (RFC 8259, section 6) from the head of `text`.
bool TakeNumber(std::string_view& text) {
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
  return true;
}

// The UTF-16 code unit whose four digits begin at `at`. Without four digits there, the result is
// never a surrogate, and JsonCpp refuses the text.
unsigned int CodeUnit(std::string_view text, std::size_t at) {
  unsigned int unit = 0;
  const std::string_view digits = text.substr(at, 4);
  std::from_chars(digits.data(), digits.data() + digits.size(), unit, 16);
  return unit;
}

// Whether the escape with its 'u' at `at` is a character, alone or with the escape that follows, to
// whose end `at` is then moved. JsonCpp would accept a high surrogate without a low one as another
// character, and would write invalid UTF-8 for a low one alone.
bool TakeCodePoint(std::string_view text, std::size_t& at) {
  const unsigned int unit = CodeUnit(text, at + 1);
  if (unit < 0xD800 || unit > 0xDFFF) return true;
  if (unit > 0xDBFF || text.substr(at + 5, 2) != "\\u") return false;
  const unsigned int low = CodeUnit(text, at + 7);
  at += 10;
  return low >= 0xDC00 && low <= 0xDFFF;
}

// Removes a string without its opening quote from the head of `text`. False when it has no end, or
// contains a control character, invalid UTF-8 or half a surrogate pair. JsonCpp checks other
// escapes.
bool TakeString(std::string_view& text) {
  unsigned char bits = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto c = static_cast<unsigned char>(text[at]);
    if (c < 0x20) return false;
    bits |= c;
    if (c == '"') {
      if (bits >= 0x80 && !IsCleanText(text.substr(0, at))) return false;
      text.remove_prefix(at + 1);
      return true;
    }
    if (c == '\\' && text.substr(++at, 1) == "u" && !TakeCodePoint(text, at)) return false;
  }
  return false;
}

bool TakeWord(std::string_view& text) {
  for (const std::string_view word : {"true", "false", "null"}) {
    if (!text.starts_with(word)) continue;
    text.remove_prefix(word.size());
    return true;
  }
  return false;
}

// Whether `text` consists only of JSON's tokens (RFC 8259, section 2) and white space. JsonCpp
// accepts more: it reads "-" as 0 and "01" as 1, accepts comments in spite of its settings, and a
// byte order mark, and ignores everything after a NUL character. False also when brackets are nested
// more than `levels` deep.
bool HasStrictTokens(std::string_view text, std::size_t levels) {
  std::size_t open = 0;
  while (!text.empty()) {
    switch (text.front()) {
      case '{':
      case '[':
        if (++open > levels) return false;
        text.remove_prefix(1);
        break;
      case '}':
      case ']':
        if (open-- == 0) return false;
        text.remove_prefix(1);
        break;
      case ':':
      case ',':
      case ' ':
      case '\t':
      case '\r':
      case '\n':
        text.remove_prefix(1);
        break;
      case '"':
        text.remove_prefix(1);
        if (!TakeString(text)) return false;
        break;
      default:
        if (!TakeWord(text) && !TakeNumber(text)) return false;
    }
  }
  return true;
}

}  // namespace

bool ParseJsonText(const std::string& text, Json::Value& value, std::size_t levels) {
  // Making a reader costs more than reading a small text.
  thread_local const std::unique_ptr<Json::CharReader> reader = MakeReader();
  value = Json::Value();
  if (!HasStrictTokens(text, levels)) return false;
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
