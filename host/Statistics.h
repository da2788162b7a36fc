// What has happened since the start, counted in memory that the supervisor and all workers share:
// no worker's end loses any of it.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "Pool.h"
#include "RequestNote.h"
#include "SharedArray.h"
#include "veltsys/Counters.h"

namespace VELT::host {

using Count64 = std::atomic<std::uint64_t>;

// Upper ends, in microseconds; requests that took longer are counted after the last.
inline constexpr std::array<std::int64_t, 15> kDurationBounds = {
    1'000,   2'500,     5'000,     10'000,    25'000,     50'000,     100'000,    250'000,
    500'000, 1'000'000, 2'500'000, 5'000'000, 10'000'000, 30'000'000, 120'000'000};

// The requests for one method. A row is taken once and then stays.
struct MethodCounts {
  // How many were answered with one HTTP status and error code.
  struct Answers {
    Count64 key;  // both in one number; 0: not taken
    Count64 count;
  };

  std::atomic<std::uint64_t> key;  // of the name; 0: not taken
  std::atomic<bool> named;         // what follows can be read
  std::array<char, 64> api;
  std::array<char, 64> method;
  int version;

  std::array<Count64, kDurationBounds.size() + 1> durations;  // each bucket without those below
  Count64 microseconds;
  std::array<Answers, 24> answers;  // the last is for all that find no place in the others
};

struct PoolCounts {
  Count64 starts;   // of workers
  Count64 ended;    // of them, over a request that took too long
  Count64 killed;   // by another signal
  Count64 failed;   // left with a status other than 0
  Count64 refused;  // requests that found the queue full
};

// Made before the first fork. Every process may count at any time, for a few nanoseconds.
class Statistics {
 public:
  // The rows of requests that reach no method, and of the link page.
  static constexpr std::size_t kNoMethod = 0;
  static constexpr std::size_t kPage = 1;

  Statistics();  // throws std::bad_alloc

  // The row of a registered method, taken if it has none yet; kNoMethod when all are taken. Names
  // are shortened, and characters that a log line or a metric might stumble over replaced.
  std::size_t RowOf(const std::string& api, int version, const std::string& method);

  // A request is over.
  void Count(const RequestNote& request, std::chrono::microseconds took);
  void CountLostLine() { shared_.items()[0].lost_lines.fetch_add(1, std::memory_order_relaxed); }

  std::span<const MethodCounts> methods() const { return shared_.items()[0].methods; }
  // That of a request.
  MethodCounts& method(const RequestNote& request) {
    auto& methods = shared_.items()[0].methods;
    return methods[request.method < methods.size() ? request.method : kNoMethod];
  }
  PoolCounts& pool(Pool pool) const { return shared_.items()[0].pools[IndexOf(pool)]; }
  Counters& platform() const { return shared_.items()[0].platform; }
  std::uint64_t lost_lines() const { return shared_.items()[0].lost_lines; }

 private:
  struct Shared {
    std::array<MethodCounts, 256> methods;
    std::array<PoolCounts, kPoolCount> pools;
    Counters platform;
    Count64 lost_lines;  // of the request log
  };

  SharedArray<Shared> shared_{1};
};

// What `Answers::key` holds.
constexpr std::uint64_t AnswerKey(int status, int code) {
  return std::uint64_t{static_cast<std::uint32_t>(status)} << 32 | static_cast<std::uint32_t>(code);
}
constexpr int StatusIn(std::uint64_t key) { return static_cast<int>(key >> 32); }
constexpr int CodeIn(std::uint64_t key) {
  return static_cast<int>(static_cast<std::uint32_t>(key));
}

}  // namespace VELT::host
