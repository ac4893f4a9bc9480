#include "agent/store/sqlite/sqlite_connection.h"

#include <algorithm>
#include <limits>
#include <mutex>
#include <utility>

#include <sqlite3.h>

#include "agent/store/sqlite/connection_pool.h"
#include "agent/store/sqlite/gathered_log.h"
#include "agent/store/sqlite/sqlite_error.h"

namespace nox::agent {

namespace {

constexpr int kProgressSteps = 1000;  // of the engine's machine, between two looks at the control
constexpr std::chrono::seconds kReaderPatience{5};  // readers wait for a recovery at most
constexpr std::size_t kMostKeptFiles = 64;
constexpr int kMostClientBytes = 64 * 1024 * 1024;  // in one value or row that a client's SQL makes
constexpr int kLongLog = 2000;  // pages, from which on a commit carries them into the database

// Cached pages are dropped as a whole when another connection has committed, so that a bigger cache
// would seldom be filled. The log of changes is cut to its usual size after a large transaction.
constexpr const char* kSettings =
    "PRAGMA cache_size = -4096;"
    "PRAGMA secure_delete = FAST;"
    "PRAGMA journal_size_limit = 16777216;";

const char* statementFor(RecordAction action) {
  switch (action) {
    case RecordAction::Read:
      return "SELECT body FROM %s WHERE id = ?1";
    case RecordAction::Walk:
      return "SELECT id, body FROM %s WHERE id >= ?1 ORDER BY id";
    case RecordAction::Exists:
      return "SELECT 1 FROM %s WHERE id = ?1";
    case RecordAction::Write:
      return "INSERT INTO %s(id, body) VALUES(?1, ?2)"
             " ON CONFLICT(id) DO UPDATE SET body = excluded.body";
    case RecordAction::WriteNew:
      return "INSERT INTO %s(id, body) VALUES(?1, ?2) ON CONFLICT(id) DO NOTHING";
    case RecordAction::Remove:
      return "DELETE FROM %s WHERE id = ?1";
  }
  return nullptr;
}

// The engine counts all its memory under one lock unless it is told not to, before its first use in
// the process. Where somebody was quicker it goes on counting.
void configureOnce() {
  static std::once_flag once;
  std::call_once(once, [] { sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0); });
}

// Without reports of its own: what fails is followed by what tells.
void setting(sqlite3* db, int option, int value) { sqlite3_db_config(db, option, value, nullptr); }

StoreError noFile(const std::string& file) {
  return StoreError(StoreError::Kind::NoFile, "there is no file " + file);
}

}  // namespace

void SqliteConnection::CloseDatabase::operator()(sqlite3* db) const noexcept {
  sqlite3_close_v2(db);
}

std::unique_ptr<sqlite3, SqliteConnection::CloseDatabase> SqliteConnection::open(
    const ConnectionOptions& options) {
  configureOnce();
  sqlite3* opened = nullptr;
  const int code =
      sqlite3_open_v2(options.file.c_str(), &opened,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE,
                      options.synchronousFull ? GatheredLog::vfsName() : nullptr);
  // There is one to close even when it could not be opened.
  std::unique_ptr<sqlite3, CloseDatabase> db(opened);
  if (code != SQLITE_OK) throw storeError(opened, code, options.file);
  return db;
}

SqliteConnection::SqliteConnection(const ConnectionOptions& options, ConnectionPool* pool)
    : db_(open(options)), snapshot_(db_.get()), pool_(pool) {
  sqlite3* const db = handle();
  sqlite3_busy_timeout(db, static_cast<int>(std::chrono::milliseconds(kReaderPatience).count()));
  setting(db, SQLITE_DBCONFIG_DEFENSIVE, 1);
  setting(db, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0);
  setting(db, SQLITE_DBCONFIG_ENABLE_FKEY, 1);
  try {
    execute(kSettings);
    execute(options.synchronousFull ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
    if (options.mostBytes > 0) {
      const auto pageSize = static_cast<std::uint64_t>([this] {
        Statement statement = prepare("PRAGMA page_size");
        statement.step();
        return statement.integer(0);
      }());
      const std::uint64_t pages = std::max<std::uint64_t>(options.mostBytes / pageSize, 1);
      execute(("PRAGMA max_page_count = " + std::to_string(pages)).c_str());
    }
    prepareForClientSql(*this, options.conversions);
  } catch (const StoreError& error) {
    throw StoreError(error.kind(), options.file + ": " + error.what(), error.status());
  }
  // Last: the settings above are not a client's.
  sqlite3_progress_handler(db, kProgressSteps, &SqliteConnection::onProgress, this);
  sqlite3_set_authorizer(db, &SqliteConnection::onAuthorize, this);
  sqlite3_wal_hook(db, &SqliteConnection::onCommitted, this);
}

SqliteConnection::~SqliteConnection() = default;

/// Carries a log that has grown into the database, as the engine does by itself; what connections
/// at rest keep would hold it up. What fails here is done by a later commit.
int SqliteConnection::onCommitted(void* self, sqlite3* db, const char* database, int pages) {
  if (pages < kLongLog) return SQLITE_OK;
  ConnectionPool* const pool = static_cast<SqliteConnection*>(self)->pool_;
  if (pool != nullptr) pool->endSnapshots();
  sqlite3_wal_checkpoint_v2(db, database, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
  return SQLITE_OK;
}

int SqliteConnection::onProgress(void* self) {
  const RunControl* control = static_cast<SqliteConnection*>(self)->control_;
  return control != nullptr && control->isOver() ? 1 : 0;
}

int SqliteConnection::onAuthorize(void* self, int action, const char* first, const char* second,
                                  const char* database, const char* trigger) {
  auto& connection = *static_cast<SqliteConnection*>(self);
  if (connection.clientSql_ == 0) return SQLITE_OK;
  if (connection.inBranch_) {
    switch (action) {
      case SQLITE_CREATE_INDEX:
      case SQLITE_CREATE_TABLE:
      case SQLITE_CREATE_TRIGGER:
      case SQLITE_CREATE_VIEW:
      case SQLITE_CREATE_VTABLE:
      case SQLITE_DROP_INDEX:
      case SQLITE_DROP_TABLE:
      case SQLITE_DROP_TRIGGER:
      case SQLITE_DROP_VIEW:
      case SQLITE_DROP_VTABLE:
      case SQLITE_ALTER_TABLE:
      case SQLITE_REINDEX:
      case SQLITE_ANALYZE:
        return SQLITE_DENY;
      case SQLITE_PRAGMA:
        if (connection.isTableInfoExpected_ && std::string_view(first) == "table_info") {
          return SQLITE_OK;
        }
        break;
      default:
        break;
    }
  }
  return authorizeClientSql(connection, action, first, second, database, trigger);
}

SqliteConnection::ClientSql::ClientSql(SqliteConnection& connection) : connection_(connection) {
  if (connection_.clientSql_++ == 0) {
    sqlite3_limit(connection_.handle(), SQLITE_LIMIT_LENGTH, kMostClientBytes);
  }
}

SqliteConnection::ClientSql::~ClientSql() {
  if (--connection_.clientSql_ == 0) {
    connection_.isTableInfoExpected_ = false;
    // The engine takes what is too much as the most it can.
    sqlite3_limit(connection_.handle(), SQLITE_LIMIT_LENGTH, std::numeric_limits<int>::max());
  }
}

void SqliteConnection::setInBranch(bool inBranch) {
  inBranch_ = inBranch;
  sqlite3_set_authorizer(handle(), &SqliteConnection::onAuthorize, this);
}

void SqliteConnection::disableTriggers() { setting(handle(), SQLITE_DBCONFIG_ENABLE_TRIGGER, 0); }

// Statements.

void SqliteConnection::execute(const char* sql) {
  const int code = sqlite3_exec(handle(), sql, nullptr, nullptr, nullptr);
  if (code != SQLITE_OK) throw storeError(handle(), code);
}

Statement& SqliteConnection::kept(const char* sql) {
  Statement& statement = keptStatements_[sql];
  if (!statement) statement = prepare(sql);
  return statement;
}

// Files.

std::optional<std::int64_t> SqliteConnection::fileNumber(const std::string& file) {
  const StatementUse find(kept("SELECT number FROM nox_files WHERE name = ?1"));
  find->bindText(0, file);
  if (!find->step()) return std::nullopt;
  return find->integer(0);
}

std::string SqliteConnection::tableName(std::int64_t fileNumber, Part part) {
  return (part == Part::Dict ? "nox_dict_" : "nox_data_") + std::to_string(fileNumber);
}

std::string SqliteConnection::tableOf(const FilePart& file) {
  const std::optional<std::int64_t> number = fileNumber(file.file);
  if (!number) throw noFile(file.file);
  return tableName(*number, file.part);
}

Statement& SqliteConnection::recordStatement(const FilePart& file, RecordAction action) {
  KeptFile& kept = keptFile(file.file);
  Statement& statement =
      kept.statements[static_cast<std::size_t>(file.part)][static_cast<std::size_t>(action)];
  if (!statement) {
    std::string sql = statementFor(action);
    sql.replace(sql.find("%s"), 2, tableName(kept.number, file.part));
    statement = prepare(sql);
  }
  return statement;
}

SqliteConnection::KeptFile& SqliteConnection::keptFile(const std::string& file) {
  // Clients work on one file for a while.
  if (!keptFiles_.empty() && keptFiles_.front().name == file) return keptFiles_.front();
  if (const auto found = keptFilesByName_.find(file); found != keptFilesByName_.end()) {
    keptFiles_.splice(keptFiles_.begin(), keptFiles_, found->second);
    return keptFiles_.front();
  }
  const std::optional<std::int64_t> number = fileNumber(file);
  if (!number) throw noFile(file);
  if (keptFiles_.size() >= kMostKeptFiles) {
    keptFilesByName_.erase(keptFiles_.back().name);
    keptFiles_.pop_back();
  }
  keptFiles_.emplace_front();
  keptFiles_.front().name = file;
  keptFiles_.front().number = *number;
  keptFilesByName_.emplace(keptFiles_.front().name, keptFiles_.begin());
  return keptFiles_.front();
}

bool SqliteConnection::isOutOfDate(const FilePart& file) {
  const auto found = keptFilesByName_.find(file.file);
  if (found == keptFilesByName_.end()) return false;
  if (fileNumber(file.file) == found->second->number) return false;
  const KeptFiles::iterator old = found->second;
  keptFilesByName_.erase(found);
  keptFiles_.erase(old);
  return true;
}

void SqliteConnection::forgetFiles() noexcept {
  keptFilesByName_.clear();
  keptFiles_.clear();
}

// Transactions.

void SqliteConnection::beginWriting(std::chrono::milliseconds wait) {
  using std::chrono::milliseconds;
  snapshot_.end();
  // A log that is in the database as a whole is begun anew, unless somebody reads it.
  if (pool_ != nullptr) pool_->endSnapshots();
  const auto most = milliseconds(std::numeric_limits<int>::max());
  sqlite3_busy_timeout(handle(), static_cast<int>(std::min(wait, most).count()));
  try {
    kept("BEGIN IMMEDIATE").run();
  } catch (...) {
    sqlite3_busy_timeout(handle(), static_cast<int>(milliseconds(kReaderPatience).count()));
    throw;
  }
  sqlite3_busy_timeout(handle(), static_cast<int>(milliseconds(kReaderPatience).count()));
}

void SqliteConnection::commit() {
  try {
    const GatheredLog::Commit gathered(handle());
    kept("COMMIT").run();
  } catch (...) {
    rollback();
    throw;
  }
  filesChanged_ = false;
  hasMark_ = false;
}

void SqliteConnection::rollback() noexcept {
  // A file that was made in the transaction leaves its number to another one.
  if (filesChanged_) forgetFiles();
  filesChanged_ = false;
  hasMark_ = false;
  if (inTransaction()) sqlite3_exec(handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

SqliteConnection::Savepoint::Savepoint(SqliteConnection& connection) : connection_(connection) {
  connection_.kept("SAVEPOINT nox_part").run();
}

SqliteConnection::Savepoint::~Savepoint() {
  // The engine may have rolled everything back.
  if (!isOpen_ || !connection_.inTransaction()) return;
  if (connection_.filesChanged_) connection_.forgetFiles();
  sqlite3_exec(connection_.handle(), "ROLLBACK TO nox_part; RELEASE nox_part", nullptr, nullptr,
               nullptr);
}

void SqliteConnection::Savepoint::keep() {
  connection_.kept("RELEASE nox_part").run();
  isOpen_ = false;
}

void SqliteConnection::setMark() {
  if (hasMark_) kept("RELEASE nox_mark").run();
  hasMark_ = false;
  kept("SAVEPOINT nox_mark").run();
  hasMark_ = true;
}

void SqliteConnection::rollbackToMark() {
  if (filesChanged_) forgetFiles();
  kept("ROLLBACK TO nox_mark").run();
}

bool SqliteConnection::inTransaction() const { return sqlite3_get_autocommit(handle()) == 0; }

std::int64_t SqliteConnection::totalChanges() const { return sqlite3_total_changes64(handle()); }

std::int64_t SqliteConnection::changes() const { return sqlite3_changes64(handle()); }

}  // namespace nox::agent
