// What the request log and the metrics record about a request.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace VELT::host {

// Sixteen random hexadecimal digits, so practically unique. It is not a secret. Ids that clients send
// are ignored.
using RequestId = std::array<char, 16>;

// Not thread-safe. The supervisor must not call it: its children would then make the same ids.
RequestId NewRequestId();  // throws std::system_error

inline std::string_view TextOf(const RequestId& id) { return {id.data(), id.size()}; }

// The header line of an answer that has its id.
std::string IdLine(const RequestId& id);

// The HTTP status that is recorded for a request whose client did not get a whole answer. Web servers
// log 499 too.
enum NoAnswer { kClientLeft = 499, kWorkerFailed = 500, kNoStatus = 502, kTookTooLong = 504 };

// The request that a worker is serving. It is in shared memory, where the supervisor reads it after
// the worker has died, so it has no pointers.
struct RequestNote {
  bool HasRequest() const { return id.front() != '\0'; }
  void SetLink(std::string_view link_id);

  RequestId id{};
  std::chrono::steady_clock::time_point taken;  // when the front accepted it
  std::size_t method = 0;                       // its row in the Statistics
  std::array<char, 7> link{};                   // the first characters of the link's id, or empty
  int status = 0;                               // HTTP's
  int code = 0;                                 // the API's error code, 0 for none
};

std::chrono::microseconds TimeSince(std::chrono::steady_clock::time_point start);

// The HTTP status of an answer, of which at least the header is there (RFC 3875, section 6.3.3). When
// the header has none that exists, the one with which web servers replace it.
int StatusOf(std::string_view answer);

}  // namespace VELT::host
