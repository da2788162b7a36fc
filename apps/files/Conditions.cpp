#include "apps/files/Conditions.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <limits>
#include <optional>
#include <string_view>

namespace VELT::files {
namespace {

constexpr std::int64_t kBeyond = std::numeric_limits<std::int64_t>::max();

std::string_view Trim(std::string_view text) {
  constexpr std::string_view kBlanks = " \t";
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

// Calls `function` for each element of a list until it returns true; whether it did. No tag of a file
// has a comma.
template <typename Function>
bool AnyOf(std::string_view list, Function function) {
  for (;;) {
    const std::size_t end = list.find(',');
    if (function(Trim(list.substr(0, end)))) return true;
    if (end == std::string_view::npos) return false;
    list.remove_prefix(end + 1);
  }
}

bool Names(const std::string& tags, const std::string& tag, bool weakly) {
  return AnyOf(tags, [&](std::string_view each) {
    if (weakly && each.starts_with("W/")) each.remove_prefix(2);
    return each == tag || each == "*";
  });
}

std::optional<std::time_t> TimeOf(const std::string& text) {
  for (const char* format :
       {"%a, %d %b %Y %H:%M:%S GMT", "%A, %d-%b-%y %H:%M:%S GMT", "%a %b %e %H:%M:%S %Y"}) {
    std::tm time{};
    const char* end = strptime(text.c_str(), format, &time);
    if (end != nullptr && *end == '\0') return timegm(&time);
  }
  return std::nullopt;
}

// A number however long; nothing when the text is none.
std::optional<std::int64_t> NumberOf(std::string_view text) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string_view::npos) return {};
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() ? number : kBeyond;
}

// The part of a file of `size` bytes that one range means; nothing when it has none of them.
struct Part {
  std::int64_t first;
  std::int64_t last;
  bool is_huge;  // named by a number beyond what web servers can read
};

std::optional<Part> PartOf(std::string_view range, std::int64_t size) {
  const std::size_t dash = range.find('-');
  if (dash == std::string_view::npos) return std::nullopt;
  const std::string_view end = range.substr(dash + 1);
  const auto last = end.empty() ? size - 1 : NumberOf(end);
  if (!last) return std::nullopt;
  if (dash == 0) {
    if (end.empty() || *last == 0) return std::nullopt;
    return Part{std::max<std::int64_t>(size - *last, 0), size - 1, *last == kBeyond};
  }
  const auto first = NumberOf(range.substr(0, dash));
  if (!first || *first >= size || *last < *first) return std::nullopt;
  return Part{*first, std::min(*last, size - 1), *last == kBeyond};
}

Verdict JudgeRange(const APIRequest& request, const std::string& tag, const struct stat& status) {
  constexpr std::string_view kUnit = "bytes=";
  const std::string ranges = request.GetHeader("Range");
  if (request.IsHead() || status.st_size == 0 || !ranges.starts_with(kUnit)) return {200, {}};
  const std::string only_of = request.GetHeader("If-Range");
  if (!only_of.empty() && only_of != tag && TimeOf(only_of) != status.st_mtim.tv_sec) {
    return {200, {}};
  }
  std::optional<Part> part;
  std::size_t count = 0;
  AnyOf(std::string_view(ranges).substr(kUnit.size()), [&](std::string_view each) {
    ++count;
    if (!part) part = PartOf(each, status.st_size);
    return false;
  });
  if (!part) return {416, {}};
  const bool begins = part->first == 0;
  if (count > 1 || !part->is_huge) return {200, {}, begins};
  return {206, std::to_string(part->first) + "-" + std::to_string(part->last), begins};
}

}  // namespace

std::string HttpDate(std::time_t time) {
  std::tm parts{};
  std::array<char, 32> text{};
  const std::size_t length =
      std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", gmtime_r(&time, &parts));
  return {text.data(), length};
}

Verdict Judge(const APIRequest& request, const std::string& tag, const struct stat& status) {
  const std::time_t changed = status.st_mtim.tv_sec;
  const std::string match = request.GetHeader("If-Match");
  const auto unmodified = TimeOf(request.GetHeader("If-Unmodified-Since"));
  if (match.empty() ? unmodified && changed > *unmodified : !Names(match, tag, false)) {
    return {412, {}};
  }
  const std::string other = request.GetHeader("If-None-Match");
  const auto modified = TimeOf(request.GetHeader("If-Modified-Since"));
  if (other.empty() ? modified && changed <= *modified : Names(other, tag, true)) return {304, {}};
  return JudgeRange(request, tag, status);
}

}  // namespace VELT::files
