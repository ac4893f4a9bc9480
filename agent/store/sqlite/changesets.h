// The changes of branches: recorded as they are made, applied when the branch is committed.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "agent/store/sqlite/sqlite_connection.h"

struct sqlite3_session;

namespace nox::agent {

/// Records every change of rows on a connection while it lives. Rows are known by their primary
/// keys; what has none cannot be recorded, and `check` refuses it.
class ChangeRecorder {
public:
  explicit ChangeRecorder(SqliteConnection& connection);
  ~ChangeRecorder();
  ChangeRecorder(const ChangeRecorder&) = delete;
  ChangeRecorder& operator=(const ChangeRecorder&) = delete;

  /// After each statement of a client: throws StoreError NotInBranch when it changed rows that have
  /// no key. What it did must be undone then.
  void check();
  /// Everything that is different from when the recording began.
  std::string changes();

private:
  /// What is known about a table that was changed.
  struct Table {
    std::string obstacle;  // why its rows cannot be recorded; empty: they can
    std::string nullKeys;  // finds rows without a key; empty: there can be none
  };
  struct DeleteSession {
    void operator()(sqlite3_session* session) const noexcept;
  };

  Table describe(const std::string& name);
  static int onTable(void* self, const char* table);

  SqliteConnection& connection_;
  std::map<std::string, Table> tables_;
  std::string obstacle_;  // of what was changed since the last check
  std::unique_ptr<sqlite3_session, DeleteSession> session_;
};

/// Applies recorded changes inside the open transaction. Throws StoreError Conflict, after which
/// the transaction must be rolled back, when rows or tables are no longer what they were.
void applyChanges(SqliteConnection& connection, const std::string& changes);

/// Whether the bytes are recorded changes, for those who check a store.
bool areChanges(std::string_view changes);

}  // namespace nox::agent
