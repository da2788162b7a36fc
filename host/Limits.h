// What one request may cost. Texts nested more than 64 levels deep are refused by the JSON reader.
#pragma once

#include <cstddef>

namespace VELT::host {

constexpr std::size_t kLargestBody = std::size_t{1024} * 1024;
// A stranger's: what a link's page sends is short, and an answer may repeat it many times as long.
constexpr std::size_t kLargestVisitorBody = std::size_t{64} * 1024;
// Of a method that takes its body as it comes; each says in the registry how much.
constexpr std::size_t kLargestRawBody = std::size_t{8} * 1024 * 1024;
// A stream must move so much within each time limit: a reader may be slow, but not for ever.
constexpr std::size_t kStreamProgress = std::size_t{1024} * 1024;
// Of everything that a handler prints. Each plugin may give 1 MiB, and a script may escape every
// character.
constexpr std::size_t kLargestOutput = std::size_t{16} * 1024 * 1024;
constexpr std::size_t kMostParameters = 256;

}  // namespace VELT::host
