// The kinds of workers. Calls that wait for programs, hash passwords, go through many links or move
// much data have workers of their own, so that however many of them hang, pages and short calls are
// answered. Only those of "stream" may send an answer piece by piece, at the pace of its reader.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace VELT::host {

enum class Pool { kFront, kLogin, kProgram, kLong, kStream, kBulk };

// Each at the place of its number. The front's workers read every request and keep what no other
// pool is for; a registry file names the others.
inline constexpr std::array kPoolNames = {"front", "login", "program", "long", "stream", "bulk"};
inline constexpr std::size_t kPoolCount = kPoolNames.size();

constexpr std::size_t IndexOf(Pool pool) { return static_cast<std::size_t>(pool); }
constexpr const char* NameOf(Pool pool) { return kPoolNames.at(IndexOf(pool)); }

// The pool of this name, if a method may ask for it.
constexpr std::optional<Pool> FindPool(std::string_view name) {
  for (std::size_t index = IndexOf(Pool::kFront) + 1; index < kPoolCount; ++index) {
    if (kPoolNames.at(index) == name) return static_cast<Pool>(index);
  }
  return std::nullopt;
}

// How many workers a pool has: `min` at least, `max` at most, and between them so many that `spare`
// of them have nothing to do.
struct PoolLimits {
  std::size_t min = 1;
  std::size_t spare = 1;
  std::size_t max = 1;
};

}  // namespace VELT::host
