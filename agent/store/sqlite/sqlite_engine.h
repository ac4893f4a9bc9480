// The embedded engine: each account is one SQLite database in the data directory.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "agent/store/store.h"

namespace nox::agent {

struct SqliteOptions {
  /// Whether each commit is synchronised with the disk before it is acknowledged. Otherwise a power
  /// failure may take the last commits back, a crash of the agent none.
  bool synchronousFull = true;
  /// How far one account may grow, in bytes, rounded down to pages; 0: as far as the disk has room.
  /// A change that needs more fails as Full.
  std::uint64_t mostBytes = 0;
  /// What SQL shows of values that have a conversion; empty: they stay as they are.
  SqlConversions conversions;
};

/// The accounts are the files `<directory>/<ACCOUNT>.db`. The directory is made when the first
/// account is.
std::unique_ptr<StoreEngine> makeSqliteEngine(const std::string& directory, SqliteOptions options);

}  // namespace nox::agent
