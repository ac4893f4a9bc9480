// SqliteStore: one account, as all its sessions share it.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "agent/store/sqlite/connection_pool.h"
#include "agent/store/sqlite/writer_place.h"
#include "agent/store/store.h"

namespace nox::agent {

/// A change that is made on the writer's connection, alone or together with others.
class StoreChange : public WriterPlace::Change {
public:
  /// More than one statement: if it fails in the middle, what it did is taken back.
  virtual bool isCompound() const { return false; }
  virtual void run(SqliteConnection& connection) = 0;
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
  /// Counts a commit of a transaction that changed `rows` rows.
  void countCommit(std::int64_t rows);

private:
  void makeChanges(const std::vector<WriterPlace::Change*>& changes);

  const std::string account_;
  ConnectionPool connections_;
  WriterPlace place_;
  // Both belong to who has the writer's place. The first stays open as long as the store, so that
  // the others that come and go never are the last one, which would clean up the log.
  std::unique_ptr<SqliteConnection> writer_;
  std::unique_ptr<SqliteConnection> branches_;
  std::atomic<std::uint64_t> commits_{0};
  std::atomic<std::uint64_t> writes_{0};
  std::atomic<bool> branchesTaken_{false};
};

}  // namespace nox::agent
