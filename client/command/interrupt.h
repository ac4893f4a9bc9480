// Ctrl-C: the first cancels what the connection does, the second leaves.
#pragma once

#include <nox/client/client.h>

namespace nox::command {

/// Blocks SIGINT and SIGTERM in the thread that makes it, which main() does before any other thread
/// exists, and takes them in a thread of its own.
class Interrupt {
public:
  /// Also ignores SIGPIPE.
  static void install();
  /// Whether Ctrl-C was pressed since the last `clear`.
  static bool pressed();
  static void clear();

  /// While it lives, and no Idle does, the first Ctrl-C cancels the connection.
  class Watch {
  public:
    explicit Watch(client::Canceller canceller);
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
  };

  /// While it lives, the first Ctrl-C cancels nothing: nobody waits for the connection, and what
  /// the session holds, a transaction or locks, would go with it.
  class Idle {
  public:
    Idle();
    ~Idle();
    Idle(const Idle&) = delete;
    Idle& operator=(const Idle&) = delete;
  };

  /// While it lives, the first Ctrl-C leaves: for what nobody can cancel, and nothing is lost by.
  class Exit {
  public:
    Exit();
    ~Exit();
    Exit(const Exit&) = delete;
    Exit& operator=(const Exit&) = delete;
  };
};

}  // namespace nox::command
