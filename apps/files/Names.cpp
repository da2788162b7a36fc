#include "apps/files/Names.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <climits>
#include <cstddef>
#include <iterator>
#include <utility>

#include "veltsys/Text.h"

namespace VELT::files {
namespace {

constexpr char kDigits[] = "0123456789ABCDEF";

void AppendEscape(std::string& text, char c) {
  const auto byte = static_cast<unsigned char>(c);
  text += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
}

// The length in bytes of the first character; 0 when that is not valid UTF-8.
std::size_t CharacterLength(std::string_view bytes) {
  for (std::size_t length = 1; length <= std::min<std::size_t>(4, bytes.size()); ++length) {
    if (IsCleanText(bytes.substr(0, length))) return length;
  }
  return 0;
}

std::optional<std::string> Decode(std::string_view text) {
  std::string bytes;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '%') {
      bytes += text[at];
      continue;
    }
    unsigned int byte = 0;
    const std::string_view digits = text.substr(at + 1, 2);
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
    if (error != std::errc() || end != digits.data() + 2) return std::nullopt;
    bytes += static_cast<char>(byte);
    at += 2;
  }
  return bytes;
}

// Of a whole character, or a byte that is none.
bool MayHarm(std::string_view character) {
  constexpr std::string_view kMarks[] = {"\u061C", "\u200E", "\u200F"};
  constexpr std::pair<std::string_view, std::string_view> kRanges[] = {
      {"\u0080", "\u009F"}, {"\u2028", "\u202E"}, {"\u2066", "\u2069"}};
  const auto first = static_cast<unsigned char>(character.front());
  if (character.size() == 1) return first < 0x20 || first >= 0x7F;
  // UTF-8 keeps the order of characters.
  return std::find(std::begin(kMarks), std::end(kMarks), character) != std::end(kMarks) ||
         std::any_of(std::begin(kRanges), std::end(kRanges), [character](const auto& range) {
           return character >= range.first && character <= range.second;
         });
}

std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return lower;
}

struct Extension {
  std::string_view name;
  MediaType media;
};

// HTML, SVG, XML and the like are missing on purpose: a browser would run what is in them.
constexpr Extension kExtensions[] = {
    {"jpg", {"image/jpeg", "image"}},
    {"jpeg", {"image/jpeg", "image"}},
    {"png", {"image/png", "image"}},
    {"gif", {"image/gif", "image"}},
    {"webp", {"image/webp", "image"}},
    {"avif", {"image/avif", "image"}},
    {"pdf", {"application/pdf", "pdf"}},
    {"txt", {"text/plain; charset=utf-8", "text"}},
    {"md", {"text/plain; charset=utf-8", "text"}},
    {"csv", {"text/plain; charset=utf-8", "text"}},
    {"log", {"text/plain; charset=utf-8", "text"}},
    {"json", {"text/plain; charset=utf-8", "text"}},
    {"mp3", {"audio/mpeg", "audio"}},
    {"m4a", {"audio/mp4", "audio"}},
    {"ogg", {"audio/ogg", "audio"}},
    {"opus", {"audio/ogg", "audio"}},
    {"flac", {"audio/flac", "audio"}},
    {"wav", {"audio/wav", "audio"}},
    {"mp4", {"video/mp4", "video"}},
    {"m4v", {"video/mp4", "video"}},
    {"webm", {"video/webm", "video"}},
    {"ogv", {"video/ogg", "video"}},
};

}  // namespace

std::string ToText(std::string_view bytes) {
  std::string text;
  while (!bytes.empty()) {
    const std::size_t length = CharacterLength(bytes);
    const auto first = static_cast<unsigned char>(bytes.front());
    if (length == 0 || first < 0x20 || first == 0x7F || first == '%') {
      AppendEscape(text, bytes.front());
      bytes.remove_prefix(1);
    } else {
      text += bytes.substr(0, length);
      bytes.remove_prefix(length);
    }
  }
  return text;
}

std::optional<std::string> ToPath(std::string_view text) {
  std::string path;
  if (text.empty()) return path;
  for (;;) {
    const std::size_t end = text.find('/');
    const auto name = Decode(text.substr(0, end));
    if (!name || !IsFileName(*name) || name->size() > NAME_MAX) return std::nullopt;
    path += *name;
    if (path.size() >= PATH_MAX) return std::nullopt;
    if (end == std::string_view::npos) return path;
    path += '/';
    text.remove_prefix(end + 1);
  }
}

std::string HarmlessName(std::string_view name) {
  constexpr std::string_view kStarters[] = {"desktop.ini", "autorun.inf"};
  std::string harmless = Lower(name);
  const bool is_starter =
      std::find(std::begin(kStarters), std::end(kStarters), harmless) != std::end(kStarters);
  harmless = is_starter || name.starts_with('.') ? "_" : "";
  if (name.starts_with('.')) name.remove_prefix(1);
  while (!name.empty()) {
    const std::string_view character =
        name.substr(0, std::max<std::size_t>(CharacterLength(name), 1));
    harmless += MayHarm(character) ? "_" : character;
    name.remove_prefix(character.size());
  }
  return harmless;
}

std::string HarmlessPath(std::string_view path) {
  const std::size_t slash = path.find('/');
  const std::string first = HarmlessName(path.substr(0, slash));
  return slash == std::string_view::npos ? first
                                         : first + "/" + HarmlessPath(path.substr(slash + 1));
}

std::string NumberedName(const std::string& name, int number) {
  if (number == 1) return name;
  const std::size_t dot = name.rfind('.');
  const bool has_extension = dot != std::string::npos && dot > 0 && name.size() - dot <= 32;
  const std::string extension = has_extension ? name.substr(dot) : std::string();
  std::string stem = name.substr(0, name.size() - extension.size());
  const std::string tail = " (" + std::to_string(number) + ")" + extension;
  while (stem.size() + tail.size() > NAME_MAX) {
    while (stem.size() > 1 && (static_cast<unsigned char>(stem.back()) & 0xC0) == 0x80) {
      stem.pop_back();
    }
    stem.pop_back();
  }
  return stem + tail;
}

std::string Join(const std::string& path, std::string_view name) {
  std::string joined = path;
  if (!path.empty() && !name.empty()) joined += '/';
  return joined.append(name);
}

std::string LastOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

std::string ContentDisposition(bool attachment, std::string_view name) {
  std::string plain;     // for clients without RFC 8187
  std::string extended;  // in percent escapes, with U+FFFD for bytes that are not UTF-8
  while (!name.empty()) {
    const std::size_t length = CharacterLength(name);
    const std::string_view character = name.substr(0, std::max<std::size_t>(length, 1));
    const char c = character.front();
    const bool is_plain = length == 1 && c >= 0x20 && c < 0x7F;
    plain += is_plain && c != '"' && c != '\\' && c != '%' ? c : '_';
    const bool is_kept = is_plain && (std::isalnum(static_cast<unsigned char>(c)) != 0 ||
                                      std::string_view("-._~").find(c) != std::string_view::npos);
    if (is_kept) {
      extended += c;
    } else if (length == 0) {
      extended += "%EF%BF%BD";
    } else {
      for (const char byte : character) AppendEscape(extended, byte);
    }
    name.remove_prefix(character.size());
  }
  return std::string("Content-Disposition: ") + (attachment ? "attachment" : "inline") +
         "; filename=\"" + plain + "\"; filename*=UTF-8''" + extended + "\r\n";
}

MediaType MediaTypeOf(std::string_view name) {
  const std::string extension = Lower(name.substr(name.rfind('.') + 1));
  for (const Extension& known : kExtensions) {
    if (known.name == extension) return known.media;
  }
  return {"application/octet-stream", ""};
}

}  // namespace VELT::files
