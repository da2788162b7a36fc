// Owns a file descriptor and closes it; -1 means none.
#pragma once

#include <unistd.h>

#include <utility>

namespace VELT {

class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(other.Release()) {}
  ~Descriptor() { Close(); }
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      Close();
      fd_ = other.Release();
    }
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return fd_; }
  int Release() { return std::exchange(fd_, -1); }
  void Close() {
    if (fd_ >= 0) close(Release());
  }

 private:
  int fd_;
};

}  // namespace VELT
