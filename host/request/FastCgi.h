// Requests of the web server (FastCGI 1.0), and the connections on which the answers go back.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/request/WebRequest.h"
#include "host/watch/RequestNote.h"
#include "veltsys/Descriptor.h"

namespace VELT::host {

// The id of a request that did not come over FastCGI, whose answer ends with its connection (Scgi.h).
constexpr int kNoFrames = -1;

// The connection on which one request is answered. The destructor closes it.
class ReplyChannel {
 public:
  ReplyChannel(int connection, int request_id) : connection_(connection), id_(request_id) {}

  // Sends the whole answer, header included, and its end. False when the client is gone or has taken
  // nothing for too long.
  bool Send(std::string_view answer) const;
  // Sends a piece of an answer, all of it before returning; false as in Send. Send ends the
  // answer, with an empty text for instance. Without that the web server lets its client see that the
  // answer is incomplete.
  bool SendPiece(std::string_view piece) const;
  // Lets the system hold back little of what is sent, for an answer of many pieces. lighttpd writes what
  // it gets at once beyond 128 KiB into temporary files, instead of sending it on.
  void SendLittleAtOnce() const;
  // Whether the web server has closed the connection or its sending half because its client has
  // left.
  bool ClientHasLeft() const;

  // How long a client may take nothing before sending fails.
  void SetPatience(std::chrono::seconds patience) const;

  int connection() const { return connection_.get(); }
  int request_id() const { return id_; }

 private:
  Descriptor connection_;
  int id_;
};

struct Incoming {
  WebRequest request;
  ReplyChannel reply;
  RequestId id;
  std::chrono::steady_clock::time_point taken;  // when the front accepted it
};

// The bytes that ReplyChannel::Send sends.
std::string FrameAnswer(std::string_view answer, int request_id);

// Accepts requests from a listening socket. One per process.
class FastCgiListener {
 public:
  // The socket must not block and must outlive the object. Only the beginning of a body larger than
  // `largest_body` bytes is kept. Throws std::runtime_error.
  FastCgiListener(int listener, std::size_t largest_body);
  ~FastCgiListener();
  FastCgiListener(const FastCgiListener&) = delete;
  FastCgiListener& operator=(const FastCgiListener&) = delete;

  // Accepts a connection without waiting for one. False when there is none: on a busy machine another
  // worker is often faster, so nothing else should be done before. Throws std::runtime_error when the
  // socket can't be used.
  bool Accept();
  // The request of the accepted connection, completely read. Empty when the web server has closed it.
  std::optional<Incoming> Take();

 private:
  struct Library;
  int listener_;
  std::size_t largest_body_;
  std::unique_ptr<Library> library_;
};

}  // namespace VELT::host
