// What becomes of a request, as the log and the metrics tell it.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace VELT::host {

// Sixteen hexadecimal digits: enough never to meet again, and no secret. What a client sends as its
// own is not used.
using RequestId = std::array<char, 16>;

// For one thread of each worker; the supervisor makes none, so that its children share none.
RequestId NewRequestId();  // throws std::system_error

inline std::string_view TextOf(const RequestId& id) { return {id.data(), id.size()}; }

// The line of every answer's header that tells its id.
std::string IdLine(const RequestId& id);

// Where a client has none of an answer, or not the whole: what its request counts as. The first is
// what web servers log for it.
enum NoAnswer { kClientLeft = 499, kWorkerFailed = 500, kTookTooLong = 504 };

// Of the request that a worker has in hand. It stands in memory that the supervisor reads when the
// worker has died, so it points nowhere.
struct RequestNote {
  bool IsInHand() const { return id.front() != '\0'; }
  void SetLink(std::string_view link_id);

  RequestId id{};
  std::chrono::steady_clock::time_point taken;  // by the front
  std::size_t method = 0;                       // its row in the Statistics
  std::array<char, 7> link{};  // the beginning of its id, as logs have it; or empty
  int status = 0;              // HTTP's
  int code = 0;                // the API's error code, 0 for none
};

std::chrono::microseconds TimeSince(std::chrono::steady_clock::time_point start);

// The HTTP status of an answer, of which at least the header is there (RFC 3875, section 6.3.3).
int StatusOf(std::string_view answer);

}  // namespace VELT::host
