#include "platform/store/LocalTime.h"

#include <array>
#include <chrono>
#include <ctime>

namespace VELT::sharing {

std::optional<std::int64_t> ParseLocalTime(const std::string& text, const char* format) {
  std::tm parts{};
  const char* end = format == nullptr ? nullptr : strptime(text.c_str(), format, &parts);
  if (end != text.c_str() + text.size()) return std::nullopt;

  // strptime(3) accepts spaces for zeros and skips spaces, and mktime(3) moves a time that does not
  // exist to one that does. So a text is valid only if formatting its time gives the same text.
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

std::int64_t LocalDay(std::int64_t time) {
  const std::time_t seconds = time;
  std::tm parts{};
  if (localtime_r(&seconds, &parts) == nullptr) return 0;
  const auto date = std::chrono::year(parts.tm_year + 1900) /
                    std::chrono::month(static_cast<unsigned>(parts.tm_mon) + 1) /
                    std::chrono::day(static_cast<unsigned>(parts.tm_mday));
  return std::chrono::sys_days(date).time_since_epoch().count();
}

}  // namespace VELT::sharing
