// The connections of an account that sessions borrow.
#pragma once

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "agent/store/sqlite/sqlite_connection.h"

namespace nox::agent {

/// A borrowed connection. Copies share it, within one session's thread; the last one gives it back.
class ConnectionLease {
public:
  ConnectionLease() = default;
  ConnectionLease(const ConnectionLease& other) noexcept : connection_(other.connection_) {
    if (connection_ != nullptr) ++connection_->uses_;
  }
  ConnectionLease(ConnectionLease&& other) noexcept
      : connection_(std::exchange(other.connection_, nullptr)) {}
  ConnectionLease& operator=(ConnectionLease other) noexcept {
    std::swap(connection_, other.connection_);
    return *this;
  }
  ~ConnectionLease();

  explicit operator bool() const { return connection_ != nullptr; }
  SqliteConnection& operator*() const { return *connection_; }
  SqliteConnection* operator->() const { return connection_; }

private:
  friend class ConnectionPool;
  explicit ConnectionLease(SqliteConnection* connection) noexcept : connection_(connection) {
    ++connection_->uses_;
  }
  SqliteConnection* connection_ = nullptr;
};

/// Opens connections as they are needed and keeps a few that nobody uses. Safe for threads.
class ConnectionPool {
public:
  /// Connections without a user beyond this many are closed.
  static constexpr std::size_t kMostIdle = 8;

  explicit ConnectionPool(ConnectionOptions options) : options_(std::move(options)) {
    idle_.reserve(kMostIdle);
  }
  ConnectionPool(const ConnectionPool&) = delete;
  ConnectionPool& operator=(const ConnectionPool&) = delete;

  /// For a session whose work `control` ends; it outlives the lease. What it reads is what has been
  /// committed before.
  ConnectionLease borrow(const RunControl* control);
  /// A connection that is not lent. It ends before the pool.
  std::unique_ptr<SqliteConnection> open();
  /// Ends the snapshots that connections without a user keep.
  void endSnapshots() noexcept;
  const ConnectionOptions& options() const { return options_; }

  std::size_t idle() const;
  std::size_t snapshots() const;
  std::size_t borrowed() const;

private:
  friend class ConnectionLease;
  void giveBack(std::unique_ptr<SqliteConnection> connection) noexcept;

  const ConnectionOptions options_;
  mutable std::mutex mutex_;
  std::vector<std::unique_ptr<SqliteConnection>> idle_;  // the last used at the end
  std::size_t borrowed_ = 0;
};

}  // namespace nox::agent
