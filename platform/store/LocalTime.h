// Times as people write them: the appliance's local time.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace VELT::sharing {

inline constexpr const char* kTimeFormat = "%Y-%m-%d %H:%M:%S";

// Seconds since 1970 UTC, always above 0. Empty when `text` is not exactly what strftime(3) writes
// in `format` for that time. That excludes a missing zero or space, a time that does not exist (30
// February, an hour that summer time skips), and times up to the start of 1970.
std::optional<std::int64_t> ParseLocalTime(const std::string& text, const char* format);

// `time` in kTimeFormat; empty for 0, which means no limit.
std::string FormatLocalTime(std::int64_t time);

// The days from 1970-01-01 to the local date of `time`, in seconds since 1970 UTC.
std::int64_t LocalDay(std::int64_t time);

}  // namespace VELT::sharing
