// An open file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace nox::client::detail {

/// Closes it at its end. Moves only.
class Descriptor {
public:
  Descriptor() = default;
  /// -1 for none.
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor() { reset(); }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  void reset() {
    if (fd_ >= 0) ::close(std::exchange(fd_, -1));
  }

private:
  int fd_ = -1;
};

}  // namespace nox::client::detail
