// Pool: connections that several threads take and give back.
//
//   Pool pool(Options::fromUri("nox://anna@db.example/SALES"), PoolOptions());
//   Pool::Lease db = pool.acquire();      // goes back when the lease ends
//   db->file("PERSON").read("4711");
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>

#include "nox/client/connection.h"
#include "nox/client/export.h"
#include "nox/client/options.h"

namespace nox::client {

struct PoolOptions {
  std::size_t size = 8;  ///< connections at most, those that are taken included
  /// A connection that nobody took for so long is closed, as soon as the pool is used again: by
  /// acquire(), by statistics(), and by a lease that ends. Zero: never.
  std::chrono::milliseconds idle{300'000};
  /// One that is older is closed when it comes back and, where it is idle, like one that nobody
  /// took. Zero: never.
  std::chrono::milliseconds maxLife{3'600'000};
  /// How long acquire() waits for a connection, making one included. Zero: as long as it takes.
  std::chrono::milliseconds acquireTimeout{10'000};
};

struct PoolStatistics {
  std::size_t open = 0;       ///< connections that exist
  std::size_t taken = 0;      ///< of these, the ones that are leased
  std::size_t waiting = 0;    ///< threads in acquire()
  std::size_t opened = 0;     ///< since the pool was made
  std::size_t discarded = 0;  ///< closed because they were unusable, changed, idle or old
};

/// Safe for threads: any of them may acquire, and a lease may end in another thread than it began.
/// A connection that comes back is used again when it is usable, no transaction is open on it and
/// its session is as it was made: one whose properties or account were changed is closed, and so is
/// one that ran a subroutine (call(), or a command but those that are known to run none: RUN above
/// all), which may have left named commons. Locks that are held are given back. The pool may end
/// before its leases.
class NOX_CLIENT_EXPORT Pool {
public:
  class Lease;

  /// Connects nowhere yet. Error HY024 for a time that is negative.
  explicit Pool(Options options, PoolOptions pool = PoolOptions());
  /// The same from a URI.
  explicit Pool(std::string_view uri, PoolOptions pool = PoolOptions());
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;
  /// Closes the connections that are not leased; the others close when they come back.
  ~Pool();

  /// The connection that came back last and is still alive, so that those which are not needed grow
  /// old; or a new one. Error sqlstate::kPoolExhausted when none came free in time, or what opening
  /// one said.
  Lease acquire();
  /// With zero or less, nobody is waited for: a connection that is idle, or a new one where there
  /// is a place for it, which may take the options' connectTimeout.
  Lease acquire(std::chrono::milliseconds timeout);
  PoolStatistics statistics() const;

private:
  friend class Lease;
  struct NOX_CLIENT_HIDDEN State;
  std::shared_ptr<State> state_;
};

/// A connection that goes back to its pool when this ends. Moves only. One thread at a time, as a
/// connection. Files, lists and the rest that were made of it must end first; used later, they
/// throw.
class NOX_CLIENT_EXPORT Pool::Lease {
public:
  Lease(Lease&& other) noexcept;
  Lease& operator=(Lease&& other) noexcept;
  ~Lease();

  Connection& operator*() const { return *connection_; }
  Connection* operator->() const { return connection_.get(); }
  /// Closes the connection instead of giving it back.
  void discard();

private:
  friend class Pool;
  Lease(std::shared_ptr<State> pool, std::unique_ptr<Connection> connection,
        std::chrono::steady_clock::time_point born);
  void giveBack() noexcept;

  std::shared_ptr<State> pool_;
  std::unique_ptr<Connection> connection_;
  std::chrono::steady_clock::time_point born_;
};

}  // namespace nox::client
