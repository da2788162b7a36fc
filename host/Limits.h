// Limits of one request, sizes in bytes. Nesting is limited by the JSON reader, to 64
// levels, and by RequestContext::kVisitorLevels.
#pragma once

#include <chrono>
#include <cstddef>

namespace VELT::host {

constexpr std::size_t kLargestBody = std::size_t{1024} * 1024;
// A body from a visitor, who may be anybody. A link's page sends short ones, and an answer can be
// many times as long as the request.
constexpr std::size_t kLargestVisitorBody = std::size_t{64} * 1024;
// The most that the registry may allow a method that takes a raw body.
constexpr std::size_t kLargestRawBody = std::size_t{8} * 1024 * 1024;
// What the client of a stream must take in each kStreamPatience, so that a slow one can't keep a worker
// for ever.
constexpr std::size_t kStreamProgress = std::size_t{1024} * 1024;
constexpr std::chrono::seconds kStreamPatience{60};
// How long the web server may take nothing of a stream, or of another answer.
constexpr std::chrono::seconds kStreamSilence{30};
constexpr std::chrono::seconds kAnswerSilence{5};
// Everything that a handler prints. Each of several plugins may give 1 MiB, and escapes make it
// longer.
constexpr std::size_t kLargestOutput = std::size_t{16} * 1024 * 1024;
constexpr std::size_t kMostParameters = 256;

}  // namespace VELT::host
