#include "LocalTime.h"

#include <array>
#include <ctime>

namespace VELT::sharing {

std::optional<std::int64_t> ParseLocalTime(const std::string& text, const char* format) {
  std::tm parts{};
  const char* end = format == nullptr ? nullptr : strptime(text.c_str(), format, &parts);
  if (end != text.c_str() + text.size()) return std::nullopt;

  // strptime(3) takes blanks for zeros and leaves blanks out, mktime(3) moves a time that never was
  // to one that is: only what reads the same when it is written again was meant so.
  parts.tm_isdst = -1;
  const std::time_t time = std::mktime(&parts);
  std::string again(text.size() + 1, '\0');
  again.resize(std::strftime(again.data(), again.size(), format, &parts));
  if (time <= 0 || again != text) return std::nullopt;
  return time;
}

std::string FormatLocalTime(std::int64_t time) {
  if (time == 0) return {};
  const std::time_t seconds = time;
  std::tm parts{};
  if (localtime_r(&seconds, &parts) == nullptr) return {};
  std::array<char, 64> text{};
  return {text.data(), std::strftime(text.data(), text.size(), kTimeFormat, &parts)};
}

}  // namespace VELT::sharing
