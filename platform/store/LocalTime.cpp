#include "LocalTime.h"

#include <array>
#include <ctime>

namespace VELT::sharing {

std::optional<std::int64_t> ParseLocalTime(const std::string& text, const char* format) {
  std::tm parts{};
  const char* end = format == nullptr ? nullptr : strptime(text.c_str(), format, &parts);
  if (end != text.c_str() + text.size()) return std::nullopt;

  // mktime(3) moves a time that never was to one that is.
  std::tm real = parts;
  real.tm_isdst = -1;
  const std::time_t time = std::mktime(&real);
  const bool moved = real.tm_sec != parts.tm_sec || real.tm_min != parts.tm_min ||
                     real.tm_hour != parts.tm_hour || real.tm_mday != parts.tm_mday ||
                     real.tm_mon != parts.tm_mon || real.tm_year != parts.tm_year;
  if (time <= 0 || moved) return std::nullopt;
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
