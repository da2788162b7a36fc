#include "host/request/FastCgi.h"

#include <fcgiapp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <iterator>
#include <map>
#include <stdexcept>
#include <utility>

#include "host/Limits.h"
#include "host/request/Caller.h"

namespace VELT::host {
namespace {

// Record types (section 8).
constexpr char kEndRequest = 3;
constexpr char kStdout = 6;
constexpr std::size_t kLargestRecord = 65528;  // the largest that needs no padding
// Of an answer in pieces. Small enough for the web server to send one on while it gets the next.
constexpr std::size_t kPieceRecord = 16376;

void AppendHeader(std::string& frame, char type, int request_id, std::size_t length) {
  const auto high = [](std::size_t value) { return static_cast<char>(value >> 8 & 0xFF); };
  const auto low = [](std::size_t value) { return static_cast<char>(value & 0xFF); };
  const auto id = static_cast<std::size_t>(request_id);
  frame += {1, type, high(id), low(id), high(length), low(length), 0, 0};
}

// A body that is too large is still read to its end. The web server is sending it, and treats an
// answer that comes earlier as an error.
void ReadBody(FCGX_Stream* input, std::size_t largest, WebRequest& request) {
  char chunk[16384];
  std::size_t length = 0;
  for (;;) {
    const int got = FCGX_GetStr(chunk, sizeof chunk, input);
    if (got <= 0) break;
    length += static_cast<std::size_t>(got);
    if (request.body.size() <= largest) {
      request.body.append(chunk, static_cast<std::size_t>(got));
    }
  }
  const std::int64_t announced = std::max<std::int64_t>(request.AnnouncedLength(), 0);
  request.body_complete = static_cast<std::int64_t>(length) == announced;
}

WebRequest ReadRequest(const FCGX_Request& fcgi, std::size_t largest_body) {
  WebRequest request;
  for (char** variable = fcgi.envp; variable != nullptr && *variable != nullptr; ++variable) {
    const std::string_view text = *variable;
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos || text.substr(0, equals) == kJudgedOwner) continue;
    request.variables.emplace(text.substr(0, equals), text.substr(equals + 1));
  }
  ReadBody(fcgi.in, largest_body, request);
  return request;
}

bool SendAll(int connection, std::string_view text) {
  while (!text.empty()) {
    const ssize_t sent = send(connection, text.data(), text.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0) return false;
    text.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

// One system call for header and content, since a stream has many records.
bool SendRecord(int connection, std::string& header, std::string_view content) {
  iovec pieces[] = {{header.data(), header.size()},
                    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): it is only read
                    {const_cast<char*>(content.data()), content.size()}};
  msghdr message{};
  message.msg_iov = pieces;
  message.msg_iovlen = std::size(pieces);
  ssize_t sent = 0;
  do {
    sent = sendmsg(connection, &message, MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  if (sent < 0) return false;
  const auto done = static_cast<std::size_t>(sent);
  if (done < header.size()) {
    return SendAll(connection, header.substr(done)) && SendAll(connection, content);
  }
  return SendAll(connection, content.substr(done - header.size()));
}

}  // namespace

std::string FrameAnswer(std::string_view answer, int request_id) {
  if (request_id == kNoFrames) return std::string(answer);
  std::string frame;
  frame.reserve(answer.size() + answer.size() / kLargestRecord * 8 + 64);
  while (!answer.empty()) {
    const std::string_view piece = answer.substr(0, kLargestRecord);
    AppendHeader(frame, kStdout, request_id, piece.size());
    frame += piece;
    answer.remove_prefix(piece.size());
  }
  AppendHeader(frame, kStdout, request_id, 0);
  AppendHeader(frame, kEndRequest, request_id, 8);
  return frame.append(8, '\0');  // status 0, request complete
}

bool ReplyChannel::Send(std::string_view answer) const {
  return SendAll(connection(), FrameAnswer(answer, id_));
}

bool ReplyChannel::SendPiece(std::string_view piece) const {
  if (id_ == kNoFrames) return SendAll(connection(), piece);
  while (!piece.empty()) {
    const std::string_view part = piece.substr(0, kPieceRecord);
    std::string header;
    AppendHeader(header, kStdout, id_, part.size());
    if (!SendRecord(connection(), header, part)) return false;
    piece.remove_prefix(part.size());
  }
  return true;
}

void ReplyChannel::SetPatience(std::chrono::seconds patience) const {
  const timeval time{patience.count(), 0};
  setsockopt(connection(), SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
}

void ReplyChannel::SendLittleAtOnce() const {
  constexpr int kHeldBack = 24576;  // bytes, of which the system takes twice as many with its own
  setsockopt(connection(), SOL_SOCKET, SO_SNDBUF, &kHeldBack, sizeof kHeldBack);
}

bool ReplyChannel::ClientHasLeft() const {
  pollfd watched{connection(), POLLRDHUP, 0};
  return poll(&watched, 1, 0) > 0 && (watched.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

struct FastCgiListener::Library {
  FCGX_Request fcgi;
};

FastCgiListener::FastCgiListener(int listener, std::size_t largest_body)
    : listener_(listener), largest_body_(largest_body), library_(std::make_unique<Library>()) {
  // The library gets no socket: it reads from the connections that it is given.
  if (FCGX_Init() != 0 || FCGX_InitRequest(&library_->fcgi, -1, FCGI_FAIL_ACCEPT_ON_INTR) != 0) {
    throw std::runtime_error("cannot initialise FastCGI");
  }
}

FastCgiListener::~FastCgiListener() = default;

bool FastCgiListener::Accept() {
  const int connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
  if (connection < 0) {
    if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED) return false;
    throw std::runtime_error("cannot accept a connection: " + std::to_string(errno));
  }
  // To be kept: otherwise the library would close it first.
  library_->fcgi.ipcFd = connection;
  library_->fcgi.keepConnection = 1;
  return true;
}

std::optional<Incoming> FastCgiListener::Take() {
  constexpr int kPatience = 2000;  // milliseconds, as the library has for a connection of its own
  FCGX_Request& fcgi = library_->fcgi;
  pollfd watched{fcgi.ipcFd, POLLIN, 0};
  if (poll(&watched, 1, kPatience) <= 0) {
    FCGX_Free(&fcgi, 1);
    return std::nullopt;
  }
  // From a connection that is of no use the library goes on to its socket, which is none.
  if (FCGX_Accept_r(&fcgi) != 0) return std::nullopt;
  const auto taken = std::chrono::steady_clock::now();
  WebRequest request = ReadRequest(fcgi, largest_body_);
  // The answer is not sent by the library, which would wait until the web server closes the
  // connection.
  ReplyChannel reply(fcgi.ipcFd, fcgi.requestId);
  reply.SetPatience(kAnswerSilence);
  fcgi.ipcFd = -1;
  fcgi.keepConnection = 1;
  FCGX_Free(&fcgi, 0);
  return Incoming{std::move(request), std::move(reply), NewRequestId(), taken};
}

}  // namespace VELT::host
