// SqliteSession: one session's view of an account.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/store/sqlite/connection_pool.h"
#include "agent/store/sqlite/run_control.h"
#include "agent/store/sqlite/sqlite_store.h"
#include "agent/store/sqlite/writer_place.h"
#include "agent/store/store.h"

namespace nox::agent {

class ChangeRecorder;
class ScanCursor;

/// Holds no connection at rest. Reads borrow one per call; a cursor or a query that is open keeps
/// one of its own; a transaction or a branch keeps one, and the writer's place, from its first
/// write to its end.
class SqliteSession : public StoreSession {
public:
  explicit SqliteSession(SqliteStore& store);
  ~SqliteSession() override;

  void setWait(std::chrono::milliseconds wait) override { wait_ = wait; }
  void setDeadline(std::optional<std::chrono::steady_clock::time_point> deadline) override;
  void interrupt() override;

  bool hasFile(const std::string& file) override;
  bool createFile(const std::string& file) override;
  bool deleteFile(const std::string& file) override;
  std::vector<std::string> files() override;
  std::uint64_t clear(const FilePart& file) override;

  bool read(const FilePart& file, std::string_view id, NOXPBlob& body) override;
  bool exists(const FilePart& file, std::string_view id) override;
  void write(const FilePart& file, std::string_view id, std::string_view body) override;
  bool writeNew(const FilePart& file, std::string_view id, std::string_view body) override;
  bool remove(const FilePart& file, std::string_view id) override;
  void writeAll(const std::vector<RecordWrite>& writes) override;
  std::unique_ptr<RecordCursor> scan(const FilePart& file, bool withBodies,
                                     std::string_view from) override;

  void begin(int isolationLevel) override;
  void commit() override;
  void rollback() override;
  bool inTransaction() const override { return open_; }
  bool hasWritten() const override { return static_cast<bool>(writing_); }
  void setMark() override;
  void rollbackToMark() override;

  void beginBranch() override;
  std::unique_ptr<StoreBranch> endBranch(const BranchId& id) override;

  // In sqlite_sql.cpp.
  std::unique_ptr<SqlStatement> prepare(std::string_view sql, bool mustExist) override;
  CatalogRows catalog(Catalog what, const std::vector<std::string>& patterns) override;

  // What the SQL side builds on.

  SqliteStore& store() { return store_; }
  /// A connection to read with: the transaction's once it has written, so that its changes are
  /// seen, else one of the pool. Whoever leaves a query open keeps the lease as long.
  ConnectionLease readConnection();
  bool isInBranch() const { return inBranch_; }

  /// One change that the session makes itself: in the open transaction, which it begins in the
  /// engine where nothing was written before, or in a transaction of its own. Without `finish` what
  /// was done within is undone.
  class Write {
  public:
    explicit Write(SqliteSession& session);
    ~Write();
    Write(const Write&) = delete;
    Write& operator=(const Write&) = delete;
    /// Kept by a statement that is still to give rows (RETURNING).
    const ConnectionLease& lease() const { return lease_; }
    SqliteConnection& connection() const { return *lease_; }
    /// Ends the change: commits it where it is a transaction of its own. Throws NotAllowed for a
    /// change of a branch that cannot be recorded.
    void finish();

  private:
    SqliteSession& session_;
    WriterPlace::Hold place_;  // outside a transaction
    ConnectionLease lease_;
    bool savepoint_ = false;
    bool finished_ = false;
  };

private:
  enum class Mark { None, BeforeWriting, Savepoint };

  /// Throws Interrupted after `interrupt`.
  void requireRunning() const;
  Patience patience() const { return {wait_, &control_}; }
  /// The connection of the open transaction, which is begun in the engine if it was not.
  SqliteConnection& writing();
  /// Before anything changes on the transaction's connection: what reads there takes its rows
  /// along.
  void detachCursors();
  void endTransaction() noexcept;

  friend class ScanCursor;

  SqliteStore& store_;
  std::chrono::milliseconds wait_{5000};
  RunControl control_;

  bool open_ = false;
  bool inBranch_ = false;
  Mark mark_ = Mark::None;
  // From the first write to the end. In this order: the connection is given back before the place.
  WriterPlace::Hold place_;
  ConnectionLease writing_;
  std::unique_ptr<ChangeRecorder> recorder_;
  std::vector<ScanCursor*> cursors_;  // open on `writing_`
};

}  // namespace nox::agent
