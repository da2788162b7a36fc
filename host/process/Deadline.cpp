#include "host/process/Deadline.h"

#include <link.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include "host/request/Answer.h"

namespace VELT::host {
namespace {

// What the signal handler uses. It may neither allocate memory nor take a lock.
struct Current {
  Slot* slot = nullptr;
  volatile sig_atomic_t connection = -1;
  std::size_t libraries = 0;  // the number that was open when the request began
  int request_id = 0;
  std::string answer;     // FastCGI records for request_id
  std::size_t id_at = 0;  // where in them the request's own id is
};

Current& TheCurrent() {
  static Current current;
  return current;
}

int CountLibraries(dl_phdr_info* info, std::size_t /*size*/, void* count) {
  *static_cast<std::size_t*>(count) = static_cast<std::size_t>(info->dlpi_adds - info->dlpi_subs);
  return 1;  // ends the walk: the numbers are the same for every library
}

struct Search {
  std::size_t skip;
  const char* name;
};

// Libraries are listed in the order in which they were opened.
int FindLibrary(dl_phdr_info* info, std::size_t /*size*/, void* search) {
  auto& state = *static_cast<Search*>(search);
  if (state.skip > 0) {
    --state.skip;
    return 0;
  }
  state.name = info->dlpi_name;
  return 1;
}

void RecordLibrary(const Current& current) {
  Search search{current.libraries, nullptr};
  dl_iterate_phdr(FindLibrary, &search);
  if (search.name == nullptr) return;
  auto& text = current.slot->stuck_in;
  const std::size_t length = std::min(std::strlen(search.name), text.size() - 1);
  std::memcpy(text.data(), search.name, length);
  text[length] = '\0';
}

void End(int /*signal*/) {
  // If this handler hangs, on the loader's lock for instance, the next alarm ends the process.
  alarm(1);
  const Current& current = TheCurrent();
  if (current.connection >= 0) {
    send(current.connection, current.answer.data(), current.answer.size(),
         MSG_NOSIGNAL | MSG_DONTWAIT);
  }
  RecordLibrary(current);
  raise(SIGALRM);
}

}  // namespace

Deadline::Deadline(unsigned int seconds, Slot& slot) : seconds_(seconds) {
  TheCurrent().slot = &slot;
  struct sigaction action {};
  action.sa_handler = End;
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
  sigaction(SIGALRM, &action, nullptr);
}

void Deadline::Start() const {
  dl_iterate_phdr(CountLibraries, &TheCurrent().libraries);
  alarm(seconds_);
}

void Deadline::SetClient(const Incoming* client) {
  Current& current = TheCurrent();
  current.connection = -1;
  if (client == nullptr) return;
  // The signal handler must never see a connection with an answer that is half written.
  std::atomic_signal_fence(std::memory_order_seq_cst);
  const std::string_view id = TextOf(client->id);
  if (current.answer.empty() || current.request_id != client->reply.request_id()) {
    current.request_id = client->reply.request_id();
    current.answer =
        FrameAnswer(IdLine(client->id) +
                        PlainAnswer("504 Gateway Timeout", "This took too long and was ended."),
                    current.request_id);
    current.id_at = current.answer.find(id);
  }
  current.answer.replace(current.id_at, id.size(), id);
  std::atomic_signal_fence(std::memory_order_seq_cst);
  current.connection = client->reply.connection();
}

void Deadline::Extend() const { alarm(seconds_); }

void Deadline::Stop() {
  alarm(0);
  SetClient(nullptr);
}

}  // namespace VELT::host
