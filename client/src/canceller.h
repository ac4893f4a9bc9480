// Wakes a connection's thread from another one.
#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

namespace nox::client::detail {

/// Safe for threads.
class Canceller {
public:
  /// Both by the connection's thread: the socket that a cancellation shuts down, and that there is
  /// none any more.
  void attach(int fd) {
    const std::lock_guard<std::mutex> lock(mutex_);
    fd_ = fd;
  }
  void detach() { attach(-1); }

  /// Whoever waits for the socket wakes, and finds it ended.
  void cancel() noexcept {
    if (::getpid() != owner_) return;  // the session is the parent process's
    const std::lock_guard<std::mutex> lock(mutex_);
    isCancelled_ = true;
    if (fd_ >= 0) static_cast<void>(::shutdown(fd_, SHUT_RDWR));
  }
  bool isCancelled() const { return isCancelled_; }

private:
  const pid_t owner_ = ::getpid();
  std::mutex mutex_;
  int fd_ = -1;
  std::atomic<bool> isCancelled_{false};
};

}  // namespace nox::client::detail
