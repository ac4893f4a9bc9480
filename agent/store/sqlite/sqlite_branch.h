// SqliteBranch: a branch's changes and locks, in memory until it is prepared.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "agent/store/sqlite/sqlite_store.h"
#include "agent/store/store.h"

namespace nox::agent {

class SqliteBranch : public StoreBranch {
public:
  /// One that has just ended, with its recorded changes; `wait` is how long `prepare` waits for
  /// other writers.
  SqliteBranch(SqliteStore& store, BranchId id, std::string changes,
               std::chrono::milliseconds wait);
  /// All that are prepared.
  static std::vector<std::unique_ptr<StoreBranch>> load(SqliteStore& store);

  const BranchId& id() const override { return id_; }
  bool prepared() const override { return prepared_; }
  const std::vector<LockedRecord>& locks() const override { return locks_; }
  void prepare(const std::vector<LockedRecord>& locks) override;
  void commit(std::chrono::milliseconds wait) override;
  void rollback(std::chrono::milliseconds wait) override;

private:
  std::string loadChanges(SqliteConnection& connection) const;

  SqliteStore& store_;
  const BranchId id_;
  std::string changes_;  // until it is prepared; then they lie in the store
  std::vector<LockedRecord> locks_;
  std::chrono::milliseconds wait_;
  bool prepared_ = false;
};

}  // namespace nox::agent
