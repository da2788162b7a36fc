#include "host/request/Scgi.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <span>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "host/Limits.h"
#include "host/request/Caller.h"

namespace VELT::host {
namespace {

constexpr std::size_t kLargestHead = std::size_t{64} * 1024;
// The web server sends a head at once.
constexpr std::chrono::seconds kHeadSilence{2};

void SetSilence(int connection, std::chrono::seconds silence) {
  const timeval time{silence.count(), 0};
  setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
}

// Fills the buffer as far as there are bytes, and waits for the first; 0: there are no more.
std::size_t Receive(int connection, std::span<char> buffer, int flags) {
  ssize_t got = 0;
  do {
    got = recv(connection, buffer.data(), buffer.size(), flags);
  } while (got < 0 && errno == EINTR);
  return static_cast<std::size_t>(std::max<ssize_t>(got, 0));
}

// What stands before a colon: the length of the head.
std::optional<std::size_t> ReceiveLength(int connection) {
  std::string digits;
  char next = 0;
  while (digits.size() < 8 && Receive(connection, {&next, 1}, 0) == 1 && next != ':')
    digits += next;
  std::size_t length = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), length);
  if (next != ':' || error != std::errc() || end != digits.data() + digits.size()) return {};
  return length;
}

}  // namespace

std::optional<WebRequest> ParseScgiHead(std::string_view text) {
  WebRequest request;
  while (!text.empty()) {
    const std::size_t name_end = text.find('\0');
    const std::size_t value_end =
        name_end == std::string_view::npos ? std::string_view::npos : text.find('\0', name_end + 1);
    if (value_end == std::string_view::npos) return std::nullopt;
    const std::string_view name = text.substr(0, name_end);
    // The last one counts: nginx 1.22 sends a CONTENT_LENGTH of its own first, which is of the part of the
    // body that it has read, and then that of its configuration.
    if (name != kJudgedOwner) {
      request.variables[std::string(name)] = text.substr(name_end + 1, value_end - name_end - 1);
    }
    text.remove_prefix(value_end + 1);
  }
  return request;
}

Descriptor AcceptScgi(int listener) {
  Descriptor connection(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
  if (connection.get() < 0 && errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) {
    throw std::runtime_error("cannot accept a connection: " + std::to_string(errno));
  }
  return connection;
}

std::optional<Incoming> TakeScgi(Descriptor connection) {
  const int socket = connection.get();
  SetSilence(socket, kHeadSilence);
  const auto length = ReceiveLength(socket);
  if (!length || *length > kLargestHead) return std::nullopt;
  std::string head(*length + 1, '\0');  // with the comma
  if (Receive(socket, head, MSG_WAITALL) != head.size() || head.back() != ',') return std::nullopt;
  head.pop_back();
  auto request = ParseScgiHead(head);
  if (!request) return std::nullopt;
  SetSilence(socket, kStreamSilence);
  request->read_body = [socket](std::span<char> buffer) { return Receive(socket, buffer, 0); };
  ReplyChannel reply(connection.Release(), kNoFrames);
  reply.SetPatience(kAnswerSilence);
  return Incoming{std::move(*request), std::move(reply), NewRequestId(),
                  std::chrono::steady_clock::now()};
}

}  // namespace VELT::host
