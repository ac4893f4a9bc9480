#include "agent/store/sqlite/store_layout.h"

namespace nox::agent {

namespace {

// "NOXD", where tools that tell files apart look for it.
constexpr std::int64_t kApplicationId = 0x4E4F5844;

// A record lies beside its key as long as both need less than a quarter of a page; most do then.
// Numbers of files are never used again: a statement or a branch that knows a number never meets
// another file under it.
// Whoever makes the file synchronises it as a whole.
constexpr const char* kLayout =
    "PRAGMA synchronous = OFF;"
    "PRAGMA page_size = 4096;"
    "PRAGMA journal_mode = WAL;"
    "BEGIN IMMEDIATE;"
    "CREATE TABLE nox_files("
    "  number INTEGER PRIMARY KEY AUTOINCREMENT,"
    "  name TEXT NOT NULL UNIQUE);"
    "CREATE TABLE nox_xa("
    "  format INTEGER NOT NULL,"
    "  id TEXT NOT NULL,"
    "  changes BLOB NOT NULL,"
    "  PRIMARY KEY(format, id)) WITHOUT ROWID;"
    "CREATE TABLE nox_xa_locks("
    "  format INTEGER NOT NULL,"
    "  branch TEXT NOT NULL,"
    "  file TEXT NOT NULL,"
    "  part INTEGER NOT NULL,"
    "  record TEXT NOT NULL,"
    "  for_update INTEGER NOT NULL,"
    "  PRIMARY KEY(format, branch, file, part, record)) WITHOUT ROWID;";

std::int64_t number(SqliteConnection& connection, const char* pragma) {
  Statement statement = connection.prepare(pragma);
  statement.step();
  return statement.integer(0);
}

StoreError withAccount(const std::string& account, const StoreError& error) {
  return StoreError(error.kind(), "account " + account + ": " + error.what(), error.status());
}

}  // namespace

void makeLayout(SqliteConnection& connection) {
  connection.execute(kLayout);
  connection.execute(("PRAGMA application_id = " + std::to_string(kApplicationId)).c_str());
  connection.execute(("PRAGMA user_version = " + std::to_string(kLayoutVersion)).c_str());
  connection.commit();
}

void requireLayout(SqliteConnection& connection, const std::string& account) {
  try {
    const std::int64_t version = number(connection, "PRAGMA user_version");
    if (number(connection, "PRAGMA application_id") != kApplicationId || version < 1) {
      throw StoreError(StoreError::Kind::Damaged, "the file is no account of this agent");
    }
    if (version > kLayoutVersion) {
      throw StoreError(StoreError::Kind::Failed,
                       "a newer agent has made it (layout " + std::to_string(version) +
                           "; this one knows up to " + std::to_string(kLayoutVersion) + ")");
    }
    // Only a stranger's hand can have changed it; readers and writers would block each other.
    Statement mode = connection.prepare("PRAGMA journal_mode = WAL");
    if (!mode.step() || mode.bytes(0) != "wal") {
      throw StoreError(StoreError::Kind::Failed,
                       "the file cannot be switched to a write-ahead log");
    }
  } catch (const StoreError& error) {
    throw withAccount(account, error);
  }
}

}  // namespace nox::agent
