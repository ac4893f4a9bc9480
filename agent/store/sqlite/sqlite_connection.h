// SqliteConnection: one connection to an account's database, with the statements it keeps.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "agent/names.h"
#include "agent/store/sqlite/read_snapshot.h"
#include "agent/store/sqlite/run_control.h"
#include "agent/store/sqlite/sqlite_statement.h"
#include "agent/store/store.h"

struct sqlite3;

namespace nox::agent {

class ConnectionPool;
class SqliteConnection;

/// How the connections of an account are opened.
struct ConnectionOptions {
  std::string file;
  bool synchronousFull = true;
  std::uint64_t mostBytes = 0;  // 0: no limit
  SqlConversions conversions;
};

/// What the SQL side keeps with a connection; ends with it.
class SqlConnectionState {
public:
  virtual ~SqlConnectionState() = default;
};

// The seams to the SQL side (sqlite_sql.cpp).
/// Called once for each new connection: makes it ready for the statements of clients.
void prepareForClientSql(SqliteConnection& connection, const SqlConversions& conversions);
/// Whether a client's statement may do this; arguments and result as SQLite's authorizer has them.
/// Definitions of tables inside a branch are refused before it is asked.
int authorizeClientSql(SqliteConnection& connection, int action, const char* first,
                       const char* second, const char* database, const char* trigger);

/// What is done with one record by key.
enum class RecordAction { Read, Walk, Exists, Write, WriteNew, Remove };
constexpr std::size_t kRecordActions = 6;

/// Used by one thread at a time. Errors are thrown as StoreError.
class SqliteConnection {
public:
  /// `pool`: the one that keeps other connections to the same database, if there is one.
  explicit SqliteConnection(const ConnectionOptions& options, ConnectionPool* pool = nullptr);
  ~SqliteConnection();
  SqliteConnection(const SqliteConnection&) = delete;
  SqliteConnection& operator=(const SqliteConnection&) = delete;

  sqlite3* handle() const { return db_.get(); }

  /// Whose work runs here; null: nothing ends it. Set by the lease of a session.
  void setControl(const RunControl* control) { control_ = control; }
  const RunControl* control() const { return control_; }

  // Statements.
  void execute(const char* sql);
  Statement prepare(std::string_view sql) { return Statement(handle(), sql); }
  /// A statement that the connection keeps. `sql` must be a literal: it is kept by its address.
  Statement& kept(const char* sql);

  // Files. A file has a number for as long as it exists, and no other file ever has the same; its
  // tables are named after it.
  std::optional<std::int64_t> fileNumber(const std::string& file);
  static std::string tableName(std::int64_t fileNumber, Part part);
  /// The table of a part, ready to be put into a statement. Throws NoFile.
  std::string tableOf(const FilePart& file);

  /// Runs `use(statement)` with the kept statement for the action; again with a new one when the
  /// file was deleted and made again since the statement was prepared. Throws NoFile.
  template <class Use>
  auto onRecord(const FilePart& file, RecordAction action, Use use) {
    for (bool again = false;; again = true) {
      try {
        Statement& statement = recordStatement(file, action);
        const StatementUse guard(statement);
        return use(statement);
      } catch (const StoreError& error) {
        if (again || error.kind() != StoreError::Kind::Failed || !isOutOfDate(file)) throw;
      }
    }
  }
  /// Files were made or deleted in the open transaction.
  void noteFilesChanged() { filesChanged_ = true; }

  /// The state that reads outside a transaction see; ends when one begins.
  ReadSnapshot& snapshot() { return snapshot_; }

  // Transactions of the engine.
  /// BEGIN IMMEDIATE. Writers of other processes are waited for up to `wait`.
  void beginWriting(std::chrono::milliseconds wait);
  /// Throws when it fails, after rolling back.
  void commit();
  /// Does nothing where the engine has rolled back already.
  void rollback() noexcept;
  /// A savepoint inside the transaction, for work that may be undone alone. They nest.
  class Savepoint {
  public:
    explicit Savepoint(SqliteConnection& connection);
    /// Undoes what was done since, unless it was kept.
    ~Savepoint();
    Savepoint(const Savepoint&) = delete;
    Savepoint& operator=(const Savepoint&) = delete;
    void keep();

  private:
    SqliteConnection& connection_;
    bool isOpen_ = true;
  };
  /// A savepoint without a scope, one at a time: a new one replaces it.
  void setMark();
  /// Undoes what was done since the mark, which stays.
  void rollbackToMark();
  bool inTransaction() const;
  /// Rows changed since the connection was opened.
  std::int64_t totalChanges() const;
  /// Rows that the last statement changed.
  std::int64_t changes() const;

  /// While statements of clients are prepared or run: `authorizeClientSql` decides about them, and
  /// values they make have a limit.
  class ClientSql {
  public:
    explicit ClientSql(SqliteConnection& connection);
    ~ClientSql();
    ClientSql(const ClientSql&) = delete;
    ClientSql& operator=(const ClientSql&) = delete;

  private:
    SqliteConnection& connection_;
  };

  /// Statements of the agent's own that run in the middle of a client's.
  class OwnSql {
  public:
    explicit OwnSql(SqliteConnection& connection)
        : connection_(connection), clientSql_(std::exchange(connection.clientSql_, 0)) {}
    ~OwnSql() { connection_.clientSql_ = clientSql_; }
    OwnSql(const OwnSql&) = delete;
    OwnSql& operator=(const OwnSql&) = delete;

  private:
    SqliteConnection& connection_;
    int clientSql_;
  };

  /// Inside a branch tables may not be defined. Makes every statement that exists be prepared again
  /// at its next use: a DELETE that was prepared before changes are recorded may go unrecorded.
  void setInBranch(bool inBranch);
  /// Until the client's statement that runs is over, the engine may ask for the columns of a table
  /// that it begins to record; clients may not ask like this.
  void expectTableInfo() { isTableInfoExpected_ = true; }
  bool isInBranch() const { return inBranch_; }

  /// Triggers of clients' tables do not run on this connection.
  void disableTriggers();

  std::unique_ptr<SqlConnectionState>& sqlState() { return sqlState_; }

private:
  friend class ConnectionLease;
  friend class ConnectionPool;

  struct CloseDatabase {
    void operator()(sqlite3* db) const noexcept;
  };
  static std::unique_ptr<sqlite3, CloseDatabase> open(const ConnectionOptions& options);
  /// What is kept for one file; the statements by part and action.
  struct KeptFile {
    std::string name;
    std::int64_t number = 0;
    std::array<std::array<Statement, kRecordActions>, 2> statements;
  };
  using KeptFiles = std::list<KeptFile>;

  Statement& recordStatement(const FilePart& file, RecordAction action);
  KeptFile& keptFile(const std::string& file);
  void forgetFiles() noexcept;
  /// Whether the kept file is no longer the one of that name; it is forgotten then.
  bool isOutOfDate(const FilePart& file);
  static int onProgress(void* self);
  static int onCommitted(void* self, sqlite3* db, const char* database, int pages);
  static int onAuthorize(void* self, int action, const char* first, const char* second,
                         const char* database, const char* trigger);

  std::unique_ptr<sqlite3, CloseDatabase> db_;
  ReadSnapshot snapshot_;
  const RunControl* control_ = nullptr;
  std::unordered_map<const char*, Statement> keptStatements_;
  KeptFiles keptFiles_;  // the last used first
  std::unordered_map<std::string_view, KeptFiles::iterator> keptFilesByName_;
  std::unique_ptr<SqlConnectionState> sqlState_;
  bool filesChanged_ = false;
  bool hasMark_ = false;
  int clientSql_ = 0;
  bool inBranch_ = false;
  bool isTableInfoExpected_ = false;

  ConnectionPool* const pool_;  // null: one that stands alone
  // Of the leases.
  std::size_t uses_ = 0;
};

}  // namespace nox::agent
