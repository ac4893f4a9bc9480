#include "agent/store/sqlite/changesets.h"

#include <utility>
#include <vector>

// The declarations of recording are there for those who ask.
#define SQLITE_ENABLE_SESSION 1
#define SQLITE_ENABLE_PREUPDATE_HOOK 1
#include <sqlite3.h>

#include "agent/store/sqlite/sqlite_error.h"

namespace nox::agent {

namespace {

struct FreeMemory {
  void operator()(void* memory) const noexcept { sqlite3_free(memory); }
};

struct EndIterator {
  void operator()(sqlite3_changeset_iter* iterator) const noexcept {
    sqlite3changeset_finalize(iterator);
  }
};
using ChangesIterator = std::unique_ptr<sqlite3_changeset_iter, EndIterator>;

ChangesIterator iterate(std::string_view changes) {
  sqlite3_changeset_iter* iterator = nullptr;
  // The engine takes the bytes as not const, and only reads them.
  const int code = sqlite3changeset_start(&iterator, static_cast<int>(changes.size()),
                                          const_cast<char*>(changes.data()));
  if (code != SQLITE_OK) throw storeError(nullptr, code, "the changes of the branch");
  return ChangesIterator(iterator);
}

std::string quoted(const std::string& name) {
  std::string text = "\"";
  for (const char c : name) {
    if (c == '"') text += '"';
    text += c;
  }
  return text + '"';
}

/// A table's columns: for each whether it belongs to the key.
using KeyColumns = std::vector<bool>;

KeyColumns keyColumns(SqliteConnection& connection, const std::string& table) {
  KeyColumns columns;
  const StatementUse info(
      connection.kept("SELECT pk FROM pragma_table_info(?1, 'main') ORDER BY cid"));
  info->bindText(0, table);
  while (info->step()) columns.push_back(info->integer(0) > 0);
  return columns;
}

/// What people know the table as.
std::string shownName(SqliteConnection& connection, const std::string& table) {
  const StatementUse find(connection.kept(
      "SELECT CASE WHEN ?1 LIKE 'nox\\_dict\\_%' ESCAPE '\\' THEN 'DICT ' ELSE '' END"
      " || name FROM nox_files"
      " WHERE ?1 IN ('nox_data_' || number, 'nox_dict_' || number)"));
  find->bindText(0, table);
  return find->step() ? std::string(find->bytes(0)) : table;
}

StoreError conflict(const std::string& reason) {
  return StoreError(StoreError::Kind::Conflict, reason);
}

/// The engine passes over changes whose table is not there, without an error.
void requireTables(SqliteConnection& connection, const std::string& changes) {
  const ChangesIterator iterator = iterate(changes);
  std::string last;
  int code = SQLITE_OK;
  while ((code = sqlite3changeset_next(iterator.get())) == SQLITE_ROW) {
    const char* name = nullptr;
    int columns = 0;
    int operation = 0;
    unsigned char* isKey = nullptr;
    sqlite3changeset_op(iterator.get(), &name, &columns, &operation, nullptr);
    if (last == name) continue;
    last = name;
    sqlite3changeset_pk(iterator.get(), &isKey, &columns);
    KeyColumns recorded;
    for (int i = 0; i < columns; ++i) recorded.push_back(isKey[i] != 0);
    if (recorded != keyColumns(connection, last)) {
      throw conflict("the branch changed " + last + ", which is not what it was then");
    }
  }
  if (code != SQLITE_DONE) {
    throw StoreError(StoreError::Kind::Damaged, "the changes of the branch cannot be read", code);
  }
}

struct Applying {
  std::string table;  // where it ended
  std::string reason;
};

bool isSame(sqlite3_value* a, sqlite3_value* b) {
  const int type = sqlite3_value_type(a);
  if (type != sqlite3_value_type(b)) return false;
  switch (type) {
    case SQLITE_NULL:
      return true;
    case SQLITE_INTEGER:
      return sqlite3_value_int64(a) == sqlite3_value_int64(b);
    case SQLITE_FLOAT:
      return sqlite3_value_double(a) == sqlite3_value_double(b);
    default: {
      const auto bytes = [](sqlite3_value* value) {
        const auto* data = static_cast<const char*>(sqlite3_value_blob(value));
        const auto size = static_cast<std::size_t>(sqlite3_value_bytes(value));
        return data != nullptr ? std::string_view(data, size) : std::string_view();
      };
      return bytes(a) == bytes(b);
    }
  }
}

/// Whether the row is already what the change makes of it: a foreign key's action did the same when
/// its parent was changed a moment ago.
bool isDoneAlready(int kind, int operation, int columns, sqlite3_changeset_iter* change) {
  if (operation == SQLITE_DELETE) return kind == SQLITE_CHANGESET_NOTFOUND;
  if (operation != SQLITE_UPDATE || kind != SQLITE_CHANGESET_DATA) return false;
  for (int i = 0; i < columns; ++i) {
    sqlite3_value* wanted = nullptr;
    sqlite3_value* found = nullptr;
    sqlite3changeset_new(change, i, &wanted);
    sqlite3changeset_conflict(change, i, &found);
    if (wanted != nullptr && (found == nullptr || !isSame(wanted, found))) return false;
  }
  return true;
}

int onConflict(void* context, int kind, sqlite3_changeset_iter* change) {
  auto& applying = *static_cast<Applying*>(context);
  if (kind == SQLITE_CHANGESET_FOREIGN_KEY) {
    applying.reason = "the branch leaves references to rows that are no longer there";
    return SQLITE_CHANGESET_ABORT;
  }
  const char* table = nullptr;
  int columns = 0;
  int operation = 0;
  int isIndirect = 0;
  sqlite3changeset_op(change, &table, &columns, &operation, &isIndirect);
  if (isIndirect != 0 && isDoneAlready(kind, operation, columns, change)) {
    return SQLITE_CHANGESET_OMIT;
  }
  applying.table = table;
  switch (kind) {
    case SQLITE_CHANGESET_DATA:
      applying.reason = "a row that the branch changed was changed since";
      break;
    case SQLITE_CHANGESET_NOTFOUND:
      applying.reason = "a row that the branch changed was deleted since";
      break;
    case SQLITE_CHANGESET_CONFLICT:
      applying.reason = "a row that the branch added is there now";
      break;
    default:
      applying.reason = "a row of the branch breaks a constraint now";
      break;
  }
  return SQLITE_CHANGESET_ABORT;
}

}  // namespace

void ChangeRecorder::DeleteSession::operator()(sqlite3_session* session) const noexcept {
  sqlite3session_delete(session);
}

ChangeRecorder::ChangeRecorder(SqliteConnection& connection) : connection_(connection) {
  sqlite3_session* session = nullptr;
  int code = sqlite3session_create(connection.handle(), "main", &session);
  if (code != SQLITE_OK) throw storeError(nullptr, code, "changes cannot be recorded");
  session_.reset(session);
  sqlite3session_table_filter(session, &ChangeRecorder::onTable, this);
  code = sqlite3session_attach(session, nullptr);
  if (code != SQLITE_OK) throw storeError(nullptr, code, "changes cannot be recorded");
}

ChangeRecorder::~ChangeRecorder() = default;

int ChangeRecorder::onTable(void* self, const char* table) {
  // Asked before the first change of a table, from inside the statement: nothing may be thrown.
  auto& recorder = *static_cast<ChangeRecorder*>(self);
  try {
    auto found = recorder.tables_.find(table);
    if (found == recorder.tables_.end()) {
      found = recorder.tables_.emplace(table, recorder.describe(table)).first;
    }
    if (found->second.obstacle.empty()) {
      recorder.connection_.expectTableInfo();
      return 1;
    }
    recorder.obstacle_ = found->second.obstacle;
  } catch (const std::exception& error) {
    recorder.obstacle_ = error.what();
  }
  return 0;
}

ChangeRecorder::Table ChangeRecorder::describe(const std::string& name) {
  const SqliteConnection::OwnSql own(connection_);
  Table table;
  const auto refuse = [&](const char* why) {
    table.obstacle = "a branch cannot change " + name + ", which has " + why;
    return table;
  };
  bool hasKey = false;
  bool isKeyMissing = false;  // of the row that is about to change
  std::string nullColumns;
  Statement columns = connection_.prepare(
      "SELECT cid, name, \"notnull\", pk, hidden FROM pragma_table_xinfo(?1, 'main')");
  columns.bindText(0, name);
  while (columns.step()) {
    if (columns.integer(4) != 0) return refuse("generated columns");
    if (columns.integer(3) == 0) continue;
    hasKey = true;
    if (columns.integer(2) != 0) continue;
    nullColumns += nullColumns.empty() ? "" : " OR ";
    nullColumns += quoted(std::string(columns.bytes(1))) + " IS NULL";
    sqlite3_value* old = nullptr;  // a new row has none
    sqlite3_preupdate_old(connection_.handle(), static_cast<int>(columns.integer(0)), &old);
    isKeyMissing = isKeyMissing || (old != nullptr && sqlite3_value_type(old) == SQLITE_NULL);
  }
  if (!hasKey) return refuse("no primary key");

  // A key without an index is the number of the row, which is never null.
  Statement indexes =
      connection_.prepare("SELECT 1 FROM pragma_index_list(?1, 'main') WHERE origin = 'pk'");
  indexes.bindText(0, name);
  if (nullColumns.empty() || !indexes.step()) return table;
  table.nullKeys = "SELECT 1 FROM main." + quoted(name) + " WHERE " + nullColumns + " LIMIT 1";
  // The row that is about to change may have left the index already.
  if (isKeyMissing || connection_.prepare(table.nullKeys).step()) {
    return refuse("rows without a key");
  }
  return table;
}

void ChangeRecorder::check() {
  if (!obstacle_.empty()) {
    throw StoreError(StoreError::Kind::NotInBranch, std::exchange(obstacle_, {}));
  }
  const SqliteConnection::OwnSql own(connection_);
  for (const auto& [name, table] : tables_) {
    if (!table.nullKeys.empty() && connection_.prepare(table.nullKeys).step()) {
      throw StoreError(StoreError::Kind::NotInBranch,
                       "a branch cannot add rows without a key to " + name);
    }
  }
}

std::string ChangeRecorder::changes() {
  int size = 0;
  void* data = nullptr;
  const int code = sqlite3session_changeset(session_.get(), &size, &data);
  const std::unique_ptr<void, FreeMemory> guard(data);
  if (code != SQLITE_OK) throw storeError(nullptr, code, "the changes of the branch are lost");
  return std::string(static_cast<const char*>(data), static_cast<std::size_t>(size));
}

void applyChanges(SqliteConnection& connection, const std::string& changes) {
  requireTables(connection, changes);
  Applying applying;
  const int code =
      sqlite3changeset_apply(connection.handle(), static_cast<int>(changes.size()),
                             const_cast<char*>(changes.data()), nullptr, &onConflict, &applying);
  if (code == SQLITE_OK) return;
  if (applying.reason.empty()) throw storeError(connection.handle(), code);
  if (!applying.table.empty()) {
    applying.reason += " in " + shownName(connection, applying.table);
  }
  throw conflict(applying.reason);
}

bool areChanges(std::string_view changes) {
  const ChangesIterator iterator = iterate(changes);
  int code = SQLITE_OK;
  while ((code = sqlite3changeset_next(iterator.get())) == SQLITE_ROW) {
  }
  return code == SQLITE_DONE;
}

}  // namespace nox::agent
