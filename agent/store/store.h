// The store, as the rest of the agent sees it. An engine implements the five interfaces; nothing
// outside its own folder knows which engine it is.
//
//   StoreEngine       the accounts of a data directory
//   Store             one account: shared by all sessions, safe for threads
//   StoreSession      one session's view of an account: one thread at a time, cheap at rest
//   StoreBranch       the changes of a distributed transaction's branch, between its end and its
//                     commit or rollback
//   SqlStatement      one statement of the store's own SQL
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <nox/nox.h>

#include "agent/names.h"

namespace nox::agent {

/// What the store could not do. Thrown by value by every operation of the store.
class StoreError : public std::runtime_error {
public:
  enum class Kind {
    Busy,         // somebody else writes for longer than the session waits
    NoFile,       // there is no such MultiValue file
    Syntax,       // the statement cannot be understood
    NoTable,      // it names a table,
    NoColumn,     // or a column, that is not there
    Duplicate,    // a key, or another constraint
    NotANumber,   // text where the column holds numbers
    NotAllowed,   // this is not written, or not asked, through SQL
    NotInBranch,  // what the changes of a branch cannot hold: definitions of files and tables
    Interrupted,  // by interrupt() or the deadline
    RolledBack,   // the store gave the transaction up, which is open until `rollback` or `commit`
    Conflict,     // a branch's changes no longer fit the store
    Full,         // no room on the disk
    Damaged,      // the store's files are not what they should be
    Failed        // anything else
  };

  StoreError(Kind kind, const std::string& reason, std::int32_t status = 0)
      : std::runtime_error(reason), kind_(kind), status_(status) {}

  Kind kind() const { return kind_; }
  /// The engine's own code; 0 where there is none.
  std::int32_t status() const { return status_; }

private:
  Kind kind_;
  std::int32_t status_;
};

/// Names a branch: format and text, 1 to 128 bytes.
struct BranchId {
  std::int32_t format = 0;
  std::string id;

  bool operator==(const BranchId& other) const { return format == other.format && id == other.id; }
  bool operator<(const BranchId& other) const {
    return format != other.format ? format < other.format : id < other.id;
  }
};

/// A record that a branch keeps locked.
struct LockedRecord {
  FilePart file;
  std::string id;
  bool update = true;  // else shared
};

/// See the head of this file. The session that ended it, or none after a restart.
class StoreBranch {
public:
  virtual ~StoreBranch() = default;
  virtual const BranchId& id() const = 0;
  virtual bool prepared() const = 0;
  /// What it keeps locked, as given to `prepare`; empty before.
  virtual const std::vector<LockedRecord>& locks() const = 0;
  /// Makes the changes and the locks durable: both are there after a crash.
  virtual void prepare(const std::vector<LockedRecord>& locks) = 0;
  /// Applies the changes and forgets the branch, in one transaction of the store. StoreError
  /// Conflict when they no longer fit; the branch then stays as it was.
  virtual void commit(std::chrono::milliseconds wait) = 0;
  virtual void rollback(std::chrono::milliseconds wait) = 0;
};

/// Keys of a part in byte-wise order, with their records where they were asked for.
class RecordCursor {
public:
  virtual ~RecordCursor() = default;
  /// Moves to the next record; false behind the last.
  virtual bool next() = 0;
  // Both are valid until the next call.
  virtual std::string_view key() const = 0;
  virtual std::string_view body() const = 0;
};

struct RecordWrite {
  FilePart file;
  std::string id;
  std::string body;
};

/// The types that clients meet, by the codes with which they travel.
namespace SqlType {
constexpr int kNumeric = 2;
constexpr int kInteger = 4;
constexpr int kReal = 8;
constexpr int kText = 12;
constexpr int kBlob = 2004;
}  // namespace SqlType

/// A value that is bound to a statement. A number is given as text: digits, sign, point, exponent.
struct SqlValue {
  enum class Kind { Null, Text, Number, Bytes };
  Kind kind = Kind::Null;
  std::string bytes;
};

/// How a column or a parameter is described to clients.
struct SqlColumn {
  std::string name;
  std::string table;     // empty for an expression
  std::string typeName;  // as declared; "TEXT", "INTEGER", "REAL", "NUMERIC" or "BLOB" by affinity
  int dataType = SqlType::kText;
  int precision = 0;  // digits or characters; 0: not limited
  int scale = 0;
  int displayWidth = 0;
  bool nullable = true;
  bool readOnly = false;
  bool blob = false;
  bool autoIncrement = false;
};

/// The values of a row in the order of the columns, as UTF-8 text or bytes; nothing for null.
using SqlRow = std::vector<std::optional<std::string_view>>;

/// Takes rows, one after the other.
class SqlRowTaker {
public:
  virtual ~SqlRowTaker() = default;
  /// False: no more for now. The row is valid until its source is asked again.
  virtual bool take(const SqlRow& row) = 0;
};

/// Rows that are read one after the other.
class SqlRows {
public:
  virtual ~SqlRows() = default;
  /// The next row, null behind the last. It is valid until the next call. What fails or ends has
  /// closed itself.
  virtual const SqlRow* next() = 0;
  /// Gives the next rows to `taker`, until it wants no more; false behind the last. The taker does
  /// not use the source meanwhile. Less work for many rows than `next`.
  virtual bool give(SqlRowTaker& taker) {
    while (const SqlRow* const row = next()) {
      if (!taker.take(*row)) return true;
    }
    return false;
  }
  /// Gives up what is held open for the rows that are left.
  virtual void close() = 0;
};

/// Belongs to its session's thread, and ends before its session.
class SqlStatement : public SqlRows {
public:
  /// Nothing as long as tables that the statement names are missing.
  virtual std::optional<int> parameterCount() = 0;
  // These need the tables: NoTable and NoColumn where they are missing.
  /// Whether it answers rows.
  virtual bool isQuery() = 0;
  /// Whether it leaves the store as it is.
  virtual bool isReadOnly() = 0;
  virtual std::vector<SqlColumn> columns() = 0;
  virtual std::vector<SqlColumn> parameters() = 0;
  /// Runs the statement with a value for each parameter, and closes what an execution before has
  /// left open; a query stands before its first row then. The values stay the caller's, unchanged
  /// until the statement is closed or has given its last row. The rows are those of this moment,
  /// whatever is written while they are read, but in a transaction that has written: there its own
  /// later changes may show.
  virtual void execute(const std::vector<SqlValue>& values) = 0;
  /// How many rows the last execution changed.
  virtual std::int64_t changes() = 0;
  /// Whether the query is over because the transaction ended in which it was executed.
  virtual bool isOverWithTransaction() = 0;
};

/// Facts about the account's tables, as rows of texts.
enum class Catalog { Tables, Columns, PrimaryKeys, Indexes, Procedures, Types };
struct CatalogRows {
  std::vector<SqlColumn> columns;
  std::vector<std::vector<std::optional<std::string>>> rows;
};

/// Told by a session of the store when it waits for a transaction that writes, and when its own
/// keeps others waiting, so that waits are found that lead through the store back to the one who
/// waits. Called by the session's thread; the implementation does not call the store.
class WriterWatch {
public:
  virtual ~WriterWatch() = default;
  /// The session is about to wait for a transaction that writes. False where that one waits for the
  /// session.
  virtual bool mayWait() = 0;
  /// The wait that was begun is over, whatever came of it.
  virtual void hasWaited() noexcept = 0;
  /// The session's transaction writes, and whoever else wants to waits for its end.
  virtual void writes() = 0;
  virtual void hasWritten() noexcept = 0;
};

/// Takes records by their place among the ids that were asked for.
class RecordTaker {
public:
  virtual ~RecordTaker() = default;
  /// `body` is null where there is no such record, and valid until the call returns. False: no more
  /// are wanted.
  virtual bool take(std::size_t place, const std::string_view* body) = 0;
};

class StoreSession {
public:
  /// Rolls back what is open.
  virtual ~StoreSession() = default;

  /// Borrowed; null: nobody watches. A wait that it does not allow is not begun: RolledBack is
  /// thrown, also where no transaction is open.
  virtual void setWatch(WriterWatch* watch) = 0;

  /// How long writes wait for another writer.
  virtual void setWait(std::chrono::milliseconds wait) = 0;
  /// When running work ends as Interrupted; nothing: never.
  virtual void setDeadline(std::optional<std::chrono::steady_clock::time_point> deadline) = 0;
  /// Ends what runs now and refuses what comes before the next `setDeadline`; from another thread.
  /// Open transactions can still be committed or rolled back.
  virtual void interrupt() = 0;
  /// Nothing is asked for a while: gives up what is kept to answer faster.
  virtual void rest() noexcept = 0;

  // Files. Changes of files are part of an open transaction.
  virtual bool hasFile(const std::string& file) = 0;
  /// False where there is one.
  virtual bool createFile(const std::string& file) = 0;
  /// False where there is none.
  virtual bool deleteFile(const std::string& file) = 0;
  /// In byte-wise order.
  virtual std::vector<std::string> files() = 0;
  /// Deletes all records of the part and says how many there were.
  virtual std::uint64_t clear(const FilePart& file) = 0;

  // Records. Outside a transaction each change is durable when the call returns; changes of
  // sessions that write at the same time share one synchronisation of the disk. All of them throw
  // NoFile where the file is missing.
  virtual bool read(const FilePart& file, std::string_view id, NOXPBlob& body) = 0;
  /// Gives the records of many ids, in their order. The taker does not use the session meanwhile.
  /// Less work for each than `read`.
  virtual void readEach(const FilePart& file, const std::vector<std::string>& ids,
                        RecordTaker& taker) = 0;
  virtual bool exists(const FilePart& file, std::string_view id) = 0;
  virtual void write(const FilePart& file, std::string_view id, std::string_view body) = 0;
  /// False, with nothing written, where there is such a record.
  virtual bool writeNew(const FilePart& file, std::string_view id, std::string_view body) = 0;
  /// False where there is none.
  virtual bool remove(const FilePart& file, std::string_view id) = 0;
  /// All or none, in the open transaction or in one of its own.
  virtual void writeAll(const std::vector<RecordWrite>& writes) = 0;
  /// The records from `from` on (inclusive; empty: from the first). Sees one state of the store,
  /// however long it is used.
  virtual std::unique_ptr<RecordCursor> scan(const FilePart& file, bool withBodies,
                                             std::string_view from = {}) = 0;

  // Transactions. Nothing is begun in the engine before the first write, which waits for other
  // writers. Level 0 is the engine's own; 2, 4 and 8 as clients send them.
  virtual void begin(int isolationLevel) = 0;
  /// Throws when it fails; the transaction is rolled back then.
  virtual void commit() = 0;
  virtual void rollback() = 0;
  virtual bool inTransaction() const = 0;
  /// Whether the open transaction has written.
  virtual bool hasWritten() const = 0;
  /// Remembers where the open transaction stands; one mark at a time, a new one replaces the old.
  virtual void setMark() = 0;
  /// Undoes what the transaction did since the mark, and keeps the mark.
  virtual void rollbackToMark() = 0;

  // Branches. Between the two calls the session is in a transaction whose changes are recorded;
  // tables may not be defined (NotInBranch).
  virtual void beginBranch() = 0;
  /// Takes the changes out of the store: nobody sees them until the branch is committed.
  virtual std::unique_ptr<StoreBranch> endBranch(const BranchId& id) = 0;

  // SQL. Statements end before their session does.
  /// Throws Syntax, and NotAllowed for what is no business of a statement: transactions, pragmas,
  /// other databases, what belongs to the store. NoTable and NoColumn only when `mustExist`;
  /// otherwise a statement whose tables are missing fails when it is executed.
  virtual std::unique_ptr<SqlStatement> prepare(std::string_view sql, bool mustExist) = 0;
  /// `patterns`: LIKE patterns for the names, outermost first; an empty one takes all.
  virtual CatalogRows catalog(Catalog what, const std::vector<std::string>& patterns) = 0;
};

struct StoreStatistics {
  std::uint64_t commits = 0;  // synchronisations of the disk
  std::uint64_t writes = 0;   // changes that they made durable
  double busySeconds = 0;     // waited for the writer's place, by all sessions together
  std::uint64_t bytes = 0;    // on the disk
};

class Store {
public:
  virtual ~Store() = default;
  virtual const std::string& account() const = 0;
  virtual std::unique_ptr<StoreSession> openSession() = 0;
  /// The branches that are prepared, for a restart: each once.
  virtual std::vector<std::unique_ptr<StoreBranch>> takePreparedBranches() = 0;
  virtual StoreStatistics statistics() = 0;
};

/// Turns a stored value into what a reader of SQL sees. A value that cannot be converted stays as
/// it is. Safe for threads.
using SqlConversion = std::function<std::string(std::string_view value)>;
/// Makes the conversion of the codes that a dictionary names; an empty one for codes that are
/// unknown. How the store reaches the agent's conversions.
using SqlConversions = std::function<SqlConversion(std::string_view codes)>;

class StoreEngine {
public:
  virtual ~StoreEngine() = default;
  virtual bool hasAccount(const std::string& account) = 0;
  virtual void createAccount(const std::string& account) = 0;
  virtual std::vector<std::string> accounts() = 0;
  /// Opens the account on its first use. The store lives as long as the engine. Throws Failed where
  /// there is no such account.
  virtual Store& open(const std::string& account) = 0;
  /// Copies the account as it is at this moment into `file`, while it is used.
  virtual void backup(const std::string& account, const std::string& file) = 0;
  /// Reads the whole of the account; what is wrong with it, a line each. Empty: sound.
  virtual std::vector<std::string> verify(const std::string& account) = 0;
};

}  // namespace nox::agent
