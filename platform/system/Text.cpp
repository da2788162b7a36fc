#include "veltsys/Text.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace VELT {
namespace {

// The number of bytes of the character at the head of `text`; 0 when it is not valid. The bounds of
// the second byte exclude overlong forms, surrogates and code points above U+10FFFF (RFC 3629,
// section 4).
std::size_t CharacterLength(std::string_view text) {
  const auto byte = [text](std::size_t index) { return static_cast<unsigned char>(text[index]); };
  const unsigned char first = byte(0);
  if (first < 0x80) return first != 0 ? 1 : 0;
  if (first < 0xC2 || first > 0xF4) return 0;
  const std::size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  if (text.size() < length) return 0;
  const unsigned char lowest = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
  const unsigned char highest = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
  if (byte(1) < lowest || byte(1) > highest) return 0;
  for (std::size_t index = 2; index < length; ++index) {
    if ((byte(index) & 0xC0) != 0x80) return 0;
  }
  return length;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

bool IsCleanText(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = CharacterLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string EncodePercent(std::string_view text, std::string_view also_kept) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string encoded;
  encoded.reserve(text.size());
  for (const char c : text) {
    const bool kept = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                      std::string_view("-._~").find(c) != std::string_view::npos ||
                      also_kept.find(c) != std::string_view::npos;
    if (kept) {
      encoded += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      encoded += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return encoded;
}

bool DecodePercent(std::string_view text, std::string& decoded) {
  decoded.clear();
  decoded.reserve(text.size());
  for (std::size_t index = 0; index < text.size(); ++index) {
    if (text[index] != '%') {
      decoded += text[index];
      continue;
    }
    if (text.size() - index < 3) return false;
    const int high = HexDigit(text[index + 1]);
    const int low = HexDigit(text[index + 2]);
    if (high < 0 || low < 0) return false;
    decoded += static_cast<char>(high * 16 + low);
    index += 2;
  }
  return IsCleanText(decoded);
}

bool IsFileName(std::string_view text) {
  constexpr std::string_view kRefused("/\0", 2);
  return !text.empty() && text != "." && text != ".." &&
         text.find_first_of(kRefused) == std::string_view::npos;
}

bool IsCleanJson(const Json::Value& value) {
  if (value.isString()) {
    const char* begin = nullptr;
    const char* end = nullptr;
    value.getString(&begin, &end);
    return IsCleanText({begin, static_cast<std::size_t>(end - begin)});
  }
  if (value.isObject()) {
    const auto names = value.getMemberNames();
    if (!std::all_of(names.begin(), names.end(), IsCleanText)) return false;
  }
  return std::all_of(value.begin(), value.end(), IsCleanJson);
}

}  // namespace VELT
