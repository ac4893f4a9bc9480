// Signals as calls in a thread, where everything is allowed.
#pragma once

#include <functional>
#include <memory>

namespace nox::agent {

/// Ignores SIGPIPE and blocks SIGTERM, SIGINT and SIGHUP, in the thread that makes it and in those
/// that start later: main() makes it before any other thread. A signal that comes before `watch`
/// is not lost.
class Signals {
public:
  struct Handlers {
    std::function<void()> terminate;  // SIGTERM: Server::drain
    std::function<void()> interrupt;  // SIGINT: Server::stop
    std::function<void()> hangUp;     // SIGHUP: the configuration and the log anew, Server::reload
  };

  Signals();
  /// Ends the watch. Signals stay blocked.
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  /// From now on calls a handler for each signal, one at a time, in a thread of its own. What the
  /// handlers use must outlive this object.
  void watch(Handlers handlers);

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace nox::agent
