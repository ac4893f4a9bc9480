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

  void setWatch(WriterWatch* watch) override { watch_ = watch; }
  void setWait(std::chrono::milliseconds wait) override { wait_ = wait; }
  void setDeadline(std::optional<std::chrono::steady_clock::time_point> deadline) override;
  void interrupt() override;
  void rest() noexcept override;

  bool hasFile(const std::string& file) override;
  bool createFile(const std::string& file) override;
  bool deleteFile(const std::string& file) override;
  std::vector<std::string> files() override;
  std::uint64_t clear(const FilePart& file) override;

  bool read(const FilePart& file, std::string_view id, NOXPBlob& body) override;
  void readEach(const FilePart& file, const std::vector<std::string>& ids,
                RecordTaker& taker) override;
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

  /// A query that was executed in the open transaction, which it does not outlive: it is told
  /// before the transaction ends, and has left then.
  class Query {
  public:
    virtual ~Query() = default;
    virtual void endWithTransaction() noexcept = 0;
  };
  void join(Query& query) { queries_.push_back(&query); }
  void leave(Query& query) noexcept;

  /// One change that the session makes itself: a part of the open transaction, which it begins in
  /// the engine where nothing was written before, or a transaction of its own. What was done within
  /// is undone unless `finish` is called.
  class Write {
  public:
    /// Waits for other writers. Throws StoreError.
    explicit Write(SqliteSession& session);
    ~Write();
    Write(const Write&) = delete;
    Write& operator=(const Write&) = delete;
    SqliteConnection& connection() const { return *lease_; }
    /// Commits the change where it is a transaction of its own; statements that write must have
    /// given their last row. Throws NotInBranch for rows that a branch cannot record.
    void finish();

  private:
    SqliteSession& session_;
    WriterPlace::Hold place_;  // outside a transaction
    ConnectionLease lease_;
    std::int64_t changesBefore_ = 0;
    std::optional<SqliteConnection::Savepoint> savepoint_;  // inside one
    bool finished_ = false;
  };

private:
  enum class Mark { None, BeforeWriting, Savepoint };
  friend class ScanCursor;

  /// Runs `use(statement)` for one record, whose reader is expected to come again: it leaves a
  /// snapshot behind.
  template <class Use>
  bool lookUp(const FilePart& file, RecordAction action, Use use);
  /// Throws Interrupted after `interrupt`, RolledBack where the open transaction is lost.
  void requireRunning() const;
  void requireTransaction() const;
  Patience patience() const { return {wait_, &control_, watch_}; }

  /// Makes a change of files or records: `work(connection)` in the open transaction, or together
  /// with the changes of other sessions.
  template <class Work>
  void change(StoreChange::Extent extent, Work work);
  /// The connection of the open transaction, which is begun in the engine if it was not.
  SqliteConnection& writing();
  /// The place for the open transaction.
  WriterPlace::Hold takePlace();
  /// After a failure: some of them roll the whole transaction back in the engine.
  void noticeLoss() noexcept;

  // Cursors that read on the transaction's connection take their rows along before it changes.
  void addCursor(ScanCursor& cursor) { cursors_.push_back(&cursor); }
  void removeCursor(ScanCursor& cursor);
  void detachCursors() noexcept;
  void endQueries() noexcept;

  /// Rolls back in the engine, and frees the connection and the writer's place.
  void stopWriting() noexcept;
  /// The transaction or branch is over, whatever became of it.
  void endTransaction() noexcept;

  SqliteStore& store_;
  WriterWatch* watch_ = nullptr;
  std::chrono::milliseconds wait_{5000};
  RunControl control_;

  bool open_ = false;
  bool inBranch_ = false;
  bool lost_ = false;
  Mark mark_ = Mark::None;
  // From the first write to the end. They end in the opposite order.
  WriterPlace::Hold place_;
  ConnectionLease writing_;
  std::int64_t changesBefore_ = 0;
  std::unique_ptr<ChangeRecorder> recorder_;
  std::vector<ScanCursor*> cursors_;
  std::vector<Query*> queries_;
};

}  // namespace nox::agent
