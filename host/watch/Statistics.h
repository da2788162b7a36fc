// Counters since the start of the host, in memory that the supervisor and all workers share, so that
// no count is lost when a worker ends.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "host/Pool.h"
#include "host/watch/RequestNote.h"
#include "host/watch/SharedArray.h"
#include "veltsys/Counters.h"

namespace VELT::host {

using Count64 = std::atomic<std::uint64_t>;

// Upper bounds of the histogram's buckets in microseconds. One more bucket has the longer requests.
inline constexpr std::array<std::int64_t, 15> kDurationBounds = {
    1'000,   2'500,     5'000,     10'000,    25'000,     50'000,     100'000,    250'000,
    500'000, 1'000'000, 2'500'000, 5'000'000, 10'000'000, 30'000'000, 120'000'000};

// The counters of one method. A row that is assigned to a method stays so.
struct MethodCounts {
  // The number of requests that ended with one HTTP status and error code.
  struct Answers {
    Count64 key;  // AnswerKey of the two; 0: unused
    Count64 count;
  };

  std::atomic<std::uint64_t> key;  // hash of API, version and method; 0: unused
  std::atomic<bool> named;         // whether the next three members are set
  std::array<char, 64> api;
  std::array<char, 64> method;
  int version;

  std::array<Count64, kDurationBounds.size() + 1> durations;  // by bucket, not cumulative
  Count64 microseconds;
  std::array<Answers, 24> answers;  // the last counts all that have no place of their own
};

struct PoolCounts {
  Count64 starts;   // workers that were started
  Count64 ended;    // workers that were ended because a request took too long
  Count64 killed;   // workers that died by another signal
  Count64 failed;   // workers that exited with a status other than 0
  Count64 refused;  // requests that were refused because the queue was full
};

// To be constructed before the first fork. Any process may count at any time; counting never waits.
class Statistics {
 public:
  // The rows for requests without a registered method, and for the link page.
  static constexpr std::size_t kNoMethod = 0;
  static constexpr std::size_t kPage = 1;

  Statistics();  // throws std::bad_alloc

  // The row of a registered method, assigned by the first call; kNoMethod when none is left. Names
  // are cut to 63 bytes. Characters that a log line or a metric would have to escape become '?'.
  std::size_t RowOf(const std::string& api, int version, const std::string& method);

  // Counts a request that has ended.
  void Count(const RequestNote& request, std::chrono::microseconds took);
  void CountLostLine() { shared_.items()[0].lost_lines.fetch_add(1, std::memory_order_relaxed); }

  std::span<const MethodCounts> methods() const { return shared_.items()[0].methods; }
  // The row of a request.
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

// The value of Answers::key.
constexpr std::uint64_t AnswerKey(int status, int code) {
  return std::uint64_t{static_cast<std::uint32_t>(status)} << 32 | static_cast<std::uint32_t>(code);
}
constexpr int StatusIn(std::uint64_t key) { return static_cast<int>(key >> 32); }
constexpr int CodeIn(std::uint64_t key) {
  return static_cast<int>(static_cast<std::uint32_t>(key));
}

}  // namespace VELT::host
