#include "host/watch/MetricsServer.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <list>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace VELT::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostClients = 16;
constexpr std::size_t kLargestRequest = 4096;
// For a client, from its connection to the last byte of its answer.
constexpr std::chrono::seconds kPatience{2};

struct FreeAddress {
  void operator()(addrinfo* address) const { freeaddrinfo(address); }
};
using Address = std::unique_ptr<addrinfo, FreeAddress>;

bool IsLoopback(const sockaddr* address) {
  if (address->sa_family == AF_INET) {
    const auto* v4 = reinterpret_cast<const sockaddr_in*>(address);
    return ntohl(v4->sin_addr.s_addr) >> 24 == IN_LOOPBACKNET;
  }
  return address->sa_family == AF_INET6 &&
         IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr);
}

// getaddrinfo would take 65537 for 1.
bool IsPort(std::string_view text) {
  std::uint16_t port = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  return error == std::errc() && stop == text.data() + text.size() && port != 0;
}

// Null when `text` is not a loopback address with a port.
Address Parse(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos || !IsPort(std::string_view(text).substr(colon + 1)))
    return nullptr;
  std::string host = text.substr(0, colon);
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), text.c_str() + colon + 1, &hints, &found) != 0) return nullptr;
  Address address(found);
  return IsLoopback(address->ai_addr) ? std::move(address) : nullptr;
}

Descriptor ListenAt(const std::string& text) {
  const Address address = Parse(text);
  if (address == nullptr) throw std::system_error(EINVAL, std::generic_category(), text);
  Descriptor listener(
      socket(address->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP));
  const int on = 1;
  setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(listener.get(), address->ai_addr, address->ai_addrlen) != 0 ||
      listen(listener.get(), SOMAXCONN) != 0) {
    throw std::system_error(errno, std::generic_category(), text);
  }
  return listener;
}

std::string Answer(std::string_view status, std::string_view type, std::string_view body) {
  std::string answer("HTTP/1.1 ");
  answer.append(status).append("\r\nContent-Type: ").append(type);
  answer.append("\r\nContent-Length: ").append(std::to_string(body.size()));
  return answer.append("\r\nConnection: close\r\n\r\n").append(body);
}

std::string AnswerTo(std::string_view request, const std::function<std::string()>& text) {
  constexpr std::string_view kPlain = "text/plain; charset=utf-8";
  const std::string_view line = request.substr(0, request.find("\r\n"));
  const std::size_t verb = line.find(' ');
  const std::size_t path = line.rfind(' ');
  if (verb == path || !line.substr(path + 1).starts_with("HTTP/1.")) {
    return Answer("400 Bad Request", kPlain, "This is no HTTP/1.1 request.\n");
  }
  if (line.substr(verb + 1, path - verb - 1) != "/metrics") {
    return Answer("404 Not Found", kPlain, "The metrics are at /metrics.\n");
  }
  if (line.substr(0, verb) != "GET") {
    return Answer("405 Method Not Allowed", kPlain, "The metrics are for reading.\n");
  }
  return Answer("200 OK", "text/plain; version=0.0.4; charset=utf-8", text());
}

class Client {
 public:
  explicit Client(int connection) : connection_(connection), until_(Clock::now() + kPatience) {}

  pollfd Watched() const {
    return {connection_.get(), static_cast<short>(answer_.empty() ? POLLIN : POLLOUT), 0};
  }
  bool IsOver() const { return over_ || Clock::now() >= until_; }
  // Does what can be done without waiting.
  void GoOn(const std::function<std::string()>& text) {
    if (answer_.empty()) Read(text);
    if (!answer_.empty()) Send();
  }

 private:
  void Read(const std::function<std::string()>& text) {
    std::array<char, kLargestRequest> chunk;
    const ssize_t got = recv(connection_.get(), chunk.data(), chunk.size(), MSG_DONTWAIT);
    if (got <= 0) {
      over_ = got == 0 || (errno != EAGAIN && errno != EINTR);
      return;
    }
    request_.append(chunk.data(), static_cast<std::size_t>(got));
    if (request_.find("\r\n\r\n") != std::string::npos) {
      answer_ = AnswerTo(request_, text);
    } else {
      over_ = request_.size() >= kLargestRequest;
    }
  }

  void Send() {
    const ssize_t sent = send(connection_.get(), answer_.data() + sent_, answer_.size() - sent_,
                              MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent >= 0) sent_ += static_cast<std::size_t>(sent);
    over_ = sent_ == answer_.size() || (sent < 0 && errno != EAGAIN && errno != EINTR);
  }

  Descriptor connection_;
  Clock::time_point until_;
  std::string request_;
  std::string answer_;
  std::size_t sent_ = 0;
  bool over_ = false;
};

}  // namespace

std::string CheckMetricsAddress(const std::string& address) {
  const bool good = address.starts_with('/') ? address.size() < sizeof(sockaddr_un::sun_path)
                                             : Parse(address) != nullptr;
  return good ? "" : "must be the path of a socket, or a loopback address with a port";
}

MetricsServer::MetricsServer(const std::string& address, const Ids& ids) {
  if (address.starts_with('/')) {
    local_.emplace(address, ids);
  } else {
    network_ = ListenAt(address);
  }
}

int MetricsServer::Run(const std::function<std::string()>& text) const {
  const int listener = local_ ? local_->fd() : network_.get();
  std::list<Client> clients;
  for (;;) {
    std::vector<pollfd> watched{{clients.size() < kMostClients ? listener : -1, POLLIN, 0}};
    for (const Client& client : clients) watched.push_back(client.Watched());
    // Wakes once a second to remove the clients whose time is over.
    if (poll(watched.data(), watched.size(), clients.empty() ? -1 : 1000) < 0 && errno != EINTR) {
      syslog(LOG_ERR, "cannot serve metrics: %s", strerror(errno));
      return 1;
    }
    for (Client& client : clients) client.GoOn(text);
    clients.remove_if([](const Client& client) { return client.IsOver(); });
    if ((watched.front().revents & POLLIN) == 0) continue;
    if (const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC); connection >= 0) {
      clients.emplace_back(connection);
    } else if (errno != EAGAIN) {
      poll(nullptr, 0, 100);  // no descriptors are left, for instance: try again later
    }
  }
}

}  // namespace VELT::host
