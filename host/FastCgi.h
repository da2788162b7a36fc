// The web server's end of a request (FastCGI 1.0): what it asks, and where the answer goes.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "WebRequest.h"
#include "veltsys/Descriptor.h"

namespace VELT::host {

// The way back to the client of one request. Closed when the object ends.
class ReplyChannel {
 public:
  ReplyChannel(int connection, int request_id) : connection_(connection), id_(request_id) {}

  // Sends the whole answer, header included. The client may be gone: that is not reported.
  void Send(std::string_view answer) const;
  // The same in pieces: each is sent when the call returns, and false means that the client is
  // gone. Send ends it; without that the web server breaks its own answer off.
  bool SendPiece(std::string_view piece) const;
  // Waits until the web server has taken in what was sent and closed the connection, for a second
  // at most.
  void WaitUntilTaken() const;
  // Whether the web server has closed the connection or its sending half, because its client left.
  bool ClientHasLeft() const;

  int connection() const { return connection_.get(); }
  int request_id() const { return id_; }

 private:
  Descriptor connection_;
  int id_;
};

struct Incoming {
  WebRequest request;
  ReplyChannel reply;
};

// The bytes that ReplyChannel::Send sends.
std::string FrameAnswer(std::string_view answer, int request_id);

// Takes requests off a listening socket. One per process.
class FastCgiListener {
 public:
  // The socket, which doesn't block, must outlive the object. Of a body larger than `largest_body`
  // only the beginning is kept. Throws std::runtime_error.
  FastCgiListener(int listener, std::size_t largest_body);
  ~FastCgiListener();
  FastCgiListener(const FastCgiListener&) = delete;
  FastCgiListener& operator=(const FastCgiListener&) = delete;

  // The next request, read to its end. Nothing when there is none after all: another worker was
  // faster, or the web server broke off. Throws std::runtime_error when the socket is of no use.
  std::optional<Incoming> Take();

 private:
  struct Library;
  std::size_t largest_body_;
  std::unique_ptr<Library> library_;
};

}  // namespace VELT::host
