// ReadSnapshot: one state of the database that a connection goes on reading.
#pragma once

#include <array>
#include <cstdint>

#include "agent/store/sqlite/sqlite_statement.h"

struct sqlite3;

namespace nox::agent {

/// To begin and end a transaction of the engine takes as long as to find a record. A snapshot that
/// is kept spares both to all reads until somebody commits.
///
/// Whether somebody did, in this process or in another, is told by the head of the log's index,
/// which all connections share in memory and each commit changes before it returns.
///
/// A snapshot that is kept holds up those who carry the log into the database and who begin it
/// anew; who does so ends the snapshots of connections that rest (ConnectionPool::endSnapshots).
class ReadSnapshot {
public:
  /// Of a connection that outlives it.
  explicit ReadSnapshot(sqlite3* db) : db_(db) {}
  ReadSnapshot(const ReadSnapshot&) = delete;
  ReadSnapshot& operator=(const ReadSnapshot&) = delete;

  /// From here on the connection reads the state of this moment, or of the earlier one that it has
  /// kept. Throws StoreError.
  void keep();
  bool isKept() const { return isKept_; }
  /// Ends a snapshot since which somebody has committed, or has carried the log into the database.
  void endIfOutdated() noexcept {
    if (isKept_ && indexHead() != head_) end();
  }
  void end() noexcept;

private:
  /// The index's header, and how much of the log is in the database.
  using IndexHead = std::array<std::uint32_t, 13>;

  IndexHead indexHead() const noexcept;
  void findIndex() noexcept;

  sqlite3* const db_;
  Statement holder_;  // stands on its only row while the snapshot is kept
  const volatile std::uint32_t* index_ = nullptr;
  IndexHead head_{};
  bool isKept_ = false;
};

}  // namespace nox::agent
