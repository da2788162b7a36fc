#include "host/watch/RequestNote.h"

#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <system_error>

namespace VELT::host {
namespace {

// Random numbers from the kernel, fetched 32 at a time: a system call for each request would be slow.
class RandomNumbers {
 public:
  std::uint64_t Next() {
    if (left_ == 0) Fetch();
    return numbers_[--left_];
  }

 private:
  void Fetch() {
    // A call for up to 256 bytes returns all of them (getrandom(2)).
    if (getrandom(numbers_.data(), sizeof numbers_, 0) != sizeof numbers_) {
      throw std::system_error(errno, std::generic_category(), "getrandom");
    }
    left_ = numbers_.size();
  }

  std::array<std::uint64_t, 32> numbers_{};
  std::size_t left_ = 0;
};

}  // namespace

RequestId NewRequestId() {
  static RandomNumbers numbers;
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::uint64_t number = numbers.Next();
  RequestId id;
  for (char& digit : id) {
    digit = kDigits[number % 16];
    number /= 16;
  }
  return id;
}

std::string IdLine(const RequestId& id) {
  return std::string("X-Request-Id: ").append(TextOf(id)).append("\r\n");
}

void RequestNote::SetLink(std::string_view link_id) {
  link = {};
  const std::string_view start = link_id.substr(0, link.size() - 1);
  std::transform(start.begin(), start.end(), link.begin(), [](char character) {
    return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
                   (character >= 'a' && character <= 'z')
               ? character
               : '?';
  });
}

std::chrono::microseconds TimeSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() -
                                                               start);
}

int StatusOf(std::string_view answer) {
  const std::string_view header = answer.substr(0, answer.find("\r\n\r\n"));
  const std::size_t line = header.starts_with("Status: ") ? 0 : header.find("\nStatus: ");
  int status = 200;
  if (line == std::string_view::npos) return status;
  const std::string_view value = header.substr(header.find(' ', line) + 1);
  std::from_chars(value.data(), value.data() + value.size(), status);
  return status >= 100 && status <= 999 ? status : kNoStatus;
}

}  // namespace VELT::host
