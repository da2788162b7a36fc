// The kinds of workers. Calls that wait for programs, hash passwords, read many links or move much
// data have workers of their own, so that pages and short calls are answered however many of those
// hang. Only the workers of "stream" may send an answer piece by piece, as fast as its client
// reads, and only those of "upload" read a body piece by piece, as fast as its client sends.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace VELT::host {

enum class Pool { kFront, kLogin, kProgram, kLong, kStream, kBulk, kUpload };

// Indexed by Pool. The front's workers read every request and answer it unless the registry names
// another pool for its method. Those of "upload" have a socket of their own (UploadSocket).
inline constexpr std::array kPoolNames = {"front",  "login", "program", "long",
                                          "stream", "bulk",  "upload"};
inline constexpr std::size_t kPoolCount = kPoolNames.size();

constexpr std::size_t IndexOf(Pool pool) { return static_cast<std::size_t>(pool); }
constexpr const char* NameOf(Pool pool) { return kPoolNames.at(IndexOf(pool)); }

// The pool that a registry file means by `name`; empty when there is none. The front has no name
// there.
constexpr std::optional<Pool> FindPool(std::string_view name) {
  for (std::size_t index = IndexOf(Pool::kFront) + 1; index < kPoolCount; ++index) {
    if (kPoolNames.at(index) == name) return static_cast<Pool>(index);
  }
  return std::nullopt;
}

// How many workers each pool has, indexed by Pool.
using PoolSizes = std::array<std::size_t, kPoolCount>;

}  // namespace VELT::host
