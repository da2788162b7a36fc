#include "host/process/Handover.h"

#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <numeric>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "host/request/WebRequest.h"
#include "veltsys/WriteAll.h"

namespace VELT::host {
namespace {

// A message has two descriptors: the connection, and a memory file that holds the request.
struct Ticket {
  Party party;
  std::int64_t id;  // FastCGI's
};
constexpr std::size_t kDescriptors = 2;

struct Control {
  alignas(cmsghdr) std::array<char, CMSG_SPACE(kDescriptors * sizeof(int))> bytes;
};

msghdr Message(iovec& payload, Control& control) {
  msghdr message{};
  message.msg_iov = &payload;
  message.msg_iovlen = 1;
  message.msg_control = &control;
  message.msg_controllen = sizeof control.bytes;
  return message;
}

void AppendText(std::string& packed, std::string_view text) {
  const auto size = static_cast<std::uint32_t>(text.size());
  packed.append(reinterpret_cast<const char*>(&size), sizeof size).append(text);
}

std::string_view TakeText(std::string_view& packed) {
  std::uint32_t size = 0;
  std::memcpy(&size, packed.data(), sizeof size);
  const std::string_view text = packed.substr(sizeof size, size);
  packed.remove_prefix(sizeof size + size);
  return text;
}

// The parts of a request that are not texts.
struct Numbers {
  RequestId id;
  std::chrono::steady_clock::time_point taken;  // CLOCK_MONOTONIC is the same in all processes
  bool body_complete;
  bool judged;
};

std::string Pack(const Incoming& incoming) {
  const WebRequest& request = incoming.request;
  const Numbers numbers{incoming.id, incoming.taken, request.body_complete, request.judged};
  std::string packed(reinterpret_cast<const char*>(&numbers), sizeof numbers);
  AppendText(packed, request.body);
  for (const auto& [name, value] : request.variables) {
    AppendText(packed, name);
    AppendText(packed, value);
  }
  return packed;
}

Incoming Unpack(std::string_view packed, ReplyChannel reply) {
  Numbers numbers;
  std::memcpy(&numbers, packed.data(), sizeof numbers);
  packed.remove_prefix(sizeof numbers);
  WebRequest request;
  request.body_complete = numbers.body_complete;
  request.judged = numbers.judged;
  request.body = TakeText(packed);
  while (!packed.empty()) {
    const std::string_view name = TakeText(packed);
    request.variables.emplace(name, TakeText(packed));
  }
  return {std::move(request), std::move(reply), numbers.id, numbers.taken};
}

// The content of a file that is no longer written; empty when it can't be read.
std::string ReadFile(int file) {
  struct stat status {};
  std::string text;
  if (fstat(file, &status) != 0) return text;
  text.resize(static_cast<std::size_t>(status.st_size));
  std::size_t length = 0;
  while (length < text.size()) {
    const ssize_t got =
        pread(file, &text[length], text.size() - length, static_cast<off_t>(length));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return {};
    length += static_cast<std::size_t>(got);
  }
  return text;
}

// SOCK_SEQPACKET keeps messages whole. The size of the sender's buffer limits how many wait.
std::array<int, 2> MakePair() {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) != 0) {
    throw std::system_error(errno, std::generic_category(), "socketpair");
  }
  return ends;
}

}  // namespace

Handover::Handover() : Handover(MakePair()) {}

std::size_t Length(const Lines& lines) {
  return std::transform_reduce(lines.begin(), lines.end(), std::size_t{0}, std::plus<>(),
                               [](const Handover& line) { return line.Length(); });
}

std::size_t Handover::Length() const {
  int bytes = 0;  // of all messages
  if (ioctl(receiver_.get(), FIONREAD, &bytes) != 0) return 0;
  return static_cast<std::size_t>(bytes) / sizeof(Ticket);
}

bool Handover::Give(const Incoming& incoming, Party party) const {
  const Descriptor file(memfd_create("request", MFD_CLOEXEC));
  if (file.get() < 0 || !WriteAll(file.get(), Pack(incoming))) return false;
  Ticket ticket{party, incoming.reply.request_id()};
  iovec payload{&ticket, sizeof ticket};
  Control control{};
  const msghdr message = Message(payload, control);
  cmsghdr* rights = CMSG_FIRSTHDR(&message);
  rights->cmsg_level = SOL_SOCKET;
  rights->cmsg_type = SCM_RIGHTS;
  rights->cmsg_len = CMSG_LEN(kDescriptors * sizeof(int));
  const std::array<int, kDescriptors> descriptors = {incoming.reply.connection(), file.get()};
  std::memcpy(CMSG_DATA(rights), descriptors.data(), sizeof descriptors);
  return sendmsg(sender_.get(), &message, MSG_NOSIGNAL) >= 0;
}

std::optional<Incoming> Handover::Take(std::atomic<Party>& party) const {
  Ticket ticket{};
  iovec payload{&ticket, sizeof ticket};
  Control control{};
  msghdr message = Message(payload, control);
  if (recvmsg(receiver_.get(), &message, MSG_CMSG_CLOEXEC) != sizeof ticket) return std::nullopt;
  party = ticket.party;
  const cmsghdr* rights = CMSG_FIRSTHDR(&message);
  // If this process can't take both descriptors, the kernel closes what it does not deliver, and
  // the web server answers its client with an error.
  std::array<int, kDescriptors> descriptors = {-1, -1};
  if (rights == nullptr) return std::nullopt;
  std::memcpy(descriptors.data(), CMSG_DATA(rights), rights->cmsg_len - CMSG_LEN(0));
  ReplyChannel reply(descriptors[0], static_cast<int>(ticket.id));
  const Descriptor file(descriptors[1]);
  const std::string packed = ReadFile(file.get());
  if (packed.empty()) return std::nullopt;
  return Unpack(packed, std::move(reply));
}

}  // namespace VELT::host
