// SqliteStore: one account, as all its sessions share it.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "agent/store/sqlite/connection_pool.h"
#include "agent/store/sqlite/writer_place.h"
#include "agent/store/store.h"

namespace nox::agent {

/// A change outside of transactions: made on the writer's connection, alone or together with
/// others.
class StoreChange : public WriterPlace::Change {
public:
  enum Extent {
    Simple,   // one statement, which happens or does not
    Compound  // several: what they did is taken back when one fails
  };

  explicit StoreChange(Extent extent) : extent_(extent) {}
  Extent extent() const { return extent_; }
  /// In the thread of who waits for it, or in another.
  virtual void run(SqliteConnection& connection) = 0;

private:
  const Extent extent_;
};

/// `work(connection)` as a change; its results may go to variables of the one who waits.
template <class Work>
class ChangeBy : public StoreChange {
public:
  ChangeBy(Extent extent, Work work) : StoreChange(extent), work_(std::move(work)) {}
  void run(SqliteConnection& connection) override { work_(connection); }

private:
  Work work_;
};

class SqliteStore : public Store {
public:
  /// Opens the database and checks that it is one of this agent's. Throws StoreError.
  SqliteStore(std::string account, const ConnectionOptions& options);

  const std::string& account() const override { return account_; }
  std::unique_ptr<StoreSession> openSession() override;
  std::vector<std::unique_ptr<StoreBranch>> takePreparedBranches() override;
  StoreStatistics statistics() override;

  ConnectionPool& connections() { return connections_; }
  WriterPlace& writerPlace() { return place_; }
  /// Makes a change that is not part of a transaction; durable when it returns.
  void make(StoreChange& change, const Patience& patience) { place_.make(change, patience); }
  /// The connection on which the changes of branches are applied; only for who has the writer's
  /// place. Triggers are off: what they did is among the changes.
  SqliteConnection& branchConnection();
  /// Counts a commit that changed so many rows.
  void countCommit(std::int64_t rows);

private:
  void makeChanges(const std::vector<WriterPlace::Change*>& changes);

  const std::string account_;
  ConnectionPool connections_;
  WriterPlace place_;
  // Both belong to who has the writer's place. The first is open as long as the store is: the last
  // connection of a database to be closed cleans up its log, which those that come and go should
  // not.
  std::unique_ptr<SqliteConnection> writer_;
  std::unique_ptr<SqliteConnection> branches_;
  std::atomic<std::uint64_t> commits_{0};
  std::atomic<std::uint64_t> writes_{0};
  std::atomic<bool> branchesTaken_{false};
};

}  // namespace nox::agent
