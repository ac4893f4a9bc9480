// A thread with a stack of a stated size.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <functional>

namespace nox::agent {

/// std::thread takes whatever stack the process's limits say, which is 8 MiB for each connection.
class Thread {
public:
  /// Throws std::system_error when there is no thread to be had. `name` shows in tools, up to 15
  /// characters; `body` lets nothing pass.
  Thread(const char* name, std::size_t stackBytes, std::function<void()> body);
  /// Waits for its end.
  ~Thread();
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

private:
  static void* run(void* self);

  std::function<void()> body_;
  pthread_t thread_{};
};

}  // namespace nox::agent
