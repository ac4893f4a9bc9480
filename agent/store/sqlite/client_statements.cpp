#include "agent/store/sqlite/client_statements.h"

#include <algorithm>

#include <sqlite3.h>

#include "agent/store/sqlite/sql_text.h"
#include "agent/store/sqlite/sqlite_error.h"

namespace nox::agent {

namespace {

// Names that begin so, in any case, are the store's.
constexpr std::string_view kInternalPrefix = "nox_";

/// Between the name of a file and that of an item.
constexpr std::string_view kItemSeparator = "__";

constexpr const char* kNamesAreTheStores = "names that begin with nox_ are the store's";
constexpr const char* kNoPragmas = "pragmas are no business of a client";

constexpr std::string_view kMissingTable = "no such table: ";
constexpr std::string_view kMainSchema = "main.";

std::string lower(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return result;
}

bool beginsWith(std::string_view name, std::string_view prefix) {
  return isSameSqlName(name.substr(0, prefix.size()), prefix);
}

bool isInternal(const char* name) { return name && beginsWith(name, kInternalPrefix); }

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

/// The table that a message says is missing; empty for other messages.
std::string_view missingTable(std::string_view message) {
  const std::size_t at = message.find(kMissingTable);
  if (at == std::string_view::npos) return {};
  std::string_view name = message.substr(at + kMissingTable.size());
  if (beginsWith(name, kMainSchema)) {
    name.remove_prefix(kMainSchema.size());
  }
  return name;
}

/// What SQLite says only in words.
StoreError::Kind kindOf(std::string_view message, bool preparing) {
  using Kind = StoreError::Kind;
  if (contains(message, "no such table") || contains(message, "no such view")) {
    return Kind::NoTable;
  }
  if (contains(message, "no such column") || contains(message, "has no column named")) {
    return Kind::NoColumn;
  }
  if (contains(message, "may not be modified") || contains(message, "cannot modify")) {
    return Kind::NotAllowed;
  }
  return preparing ? Kind::Syntax : Kind::Failed;
}

/// Tables that show what other sessions do.
bool isPrying(std::string_view table) {
  return isSameSqlName(table, "sqlite_stmt") || isSameSqlName(table, "dbstat");
}

}  // namespace

void ClientStatement::Finalize::operator()(sqlite3_stmt* statement) const noexcept {
  sqlite3_finalize(statement);
}

ClientStatements::ClientStatements(SqliteConnection& connection, SqlConversions conversions)
    : connection_(connection), conversions_(std::move(conversions)) {}

ClientStatements& ClientStatements::of(SqliteConnection& connection) {
  return static_cast<ClientStatements&>(*connection.sqlState());
}

// Statements.

std::unique_ptr<ClientStatement> ClientStatements::take(const std::string& sql) {
  std::unique_ptr<ClientStatement> statement = takeKept(sql);
  if (statement && areCurrent(statement->fileTables)) return statement;
  for (std::size_t files = 0; files <= kMostFileTables; ++files) {
    try {
      statement = prepare(sql);
    } catch (const StoreError& error) {
      // A column that is missing may have come into a dictionary since its file was last looked at.
      const bool retry = error.kind() == StoreError::Kind::NoTable ? learnMissing(error.what())
                         : error.kind() == StoreError::Kind::NoColumn
                             ? !areCurrent(namesOfFileTables())
                             : false;
      if (!retry) throw;
      continue;
    }
    if (areCurrent(statement->fileTables)) return statement;
  }
  throw StoreError(StoreError::Kind::Syntax, "the statement names too many files");
}

std::unique_ptr<ClientStatement> ClientStatements::takeKept(const std::string& sql) {
  const auto found =
      std::find_if(kept_.begin(), kept_.end(), [&](const auto& kept) { return kept->sql == sql; });
  if (found == kept_.end()) return nullptr;
  std::unique_ptr<ClientStatement> statement = std::move(*found);
  kept_.erase(found);
  return statement;
}

std::unique_ptr<ClientStatement> ClientStatements::prepare(const std::string& sql) {
  std::string_view rest = withoutLeadingBlanks(sql);
  if (contains(sql, std::string_view("\0", 1))) {
    throw StoreError(StoreError::Kind::Syntax, "the statement holds a NUL");
  }
  if (rest.empty()) throw StoreError(StoreError::Kind::Syntax, "the text holds no statement");
  const std::string verb = firstWord(rest);
  if (verb == "VACUUM") {
    throw StoreError(StoreError::Kind::NotAllowed, "VACUUM is no business of a client");
  }
  // A definition may name what the authorizer is not asked about: a parent of foreign keys, say,
  // which then could not be changed any more.
  if ((verb == "ALTER" || verb == "CREATE") && contains(lower(rest), kInternalPrefix)) {
    throw StoreError(StoreError::Kind::NotAllowed, kNamesAreTheStores);
  }

  tablesRead_.clear();
  tablesMade_.clear();
  refusal_.clear();
  auto statement = std::make_unique<ClientStatement>();
  statement->sql = sql;
  {
    const SqliteConnection::ClientSql client(connection_);
    sqlite3_stmt* prepared = nullptr;
    const char* tail = nullptr;
    const int code =
        sqlite3_prepare_v3(connection_.handle(), rest.data(), static_cast<int>(rest.size()),
                           SQLITE_PREPARE_PERSISTENT, &prepared, &tail);
    statement->handle.reset(prepared);
    if (code != SQLITE_OK) throw error(code, true);
    rest.remove_prefix(static_cast<std::size_t>(tail - rest.data()));
  }
  if (!withoutLeadingBlanks(rest).empty()) {
    throw StoreError(StoreError::Kind::Syntax, "the text holds more than one statement");
  }
  for (const std::string& name : tablesMade_) {
    if (!filesCalled(name).empty()) {
      throw StoreError(StoreError::Kind::NotAllowed, "there is a file of the name " + name);
    }
  }
  for (const std::string& name : tablesRead_) {
    if (fileTables_.count(name) > 0) statement->fileTables.push_back(name);
  }
  return statement;
}

void ClientStatements::giveBack(std::unique_ptr<ClientStatement> statement) noexcept {
  sqlite3_reset(statement->handle.get());
  sqlite3_clear_bindings(statement->handle.get());
  if (statement->sql.size() > kLongestKept) return;
  try {
    kept_.push_front(std::move(statement));
  } catch (const std::bad_alloc&) {
    return;  // then it is prepared again
  }
  if (kept_.size() > kMostKept) kept_.pop_back();
}

ClientStatements::Run::Run(ClientStatements& statements)
    : statements_(statements), client_(statements.connection_) {
  statements_.running_ = true;
}

bool ClientStatements::Run::step(ClientStatement& statement) {
  const int code = sqlite3_step(statement.handle.get());
  if (code == SQLITE_ROW) return true;
  if (code == SQLITE_DONE) return false;
  throw statements_.error(code, false);
}

StoreError ClientStatements::error(int code, bool preparing) {
  using Kind = StoreError::Kind;
  const std::string refusal = std::exchange(refusal_, {});
  StoreError plain = storeError(connection_.handle(), code);
  if (!refusal.empty()) return StoreError(Kind::NotAllowed, refusal, plain.status());
  switch (plain.status() & kPrimaryCode) {
    case SQLITE_AUTH:
      if (connection_.isInBranch()) {
        return StoreError(Kind::NotInBranch, "tables cannot be defined in a branch",
                          plain.status());
      }
      return plain;
    case SQLITE_ERROR:
      return StoreError(kindOf(plain.what(), preparing), plain.what(), plain.status());
    case SQLITE_TOOBIG:
      return StoreError(preparing ? Kind::Syntax : Kind::Failed, plain.what(), plain.status());
    default:
      return plain;
  }
}

// What clients may touch.

int ClientStatements::refuse(std::string reason) {
  if (refusal_.empty()) refusal_ = std::move(reason);
  return SQLITE_DENY;
}

/// Once for each column that is read.
void ClientStatements::noteRead(const char* table) {
  if (!table) return;
  std::string name = lower(table);
  if (std::find(tablesRead_.begin(), tablesRead_.end(), name) == tablesRead_.end()) {
    tablesRead_.push_back(std::move(name));
  }
}

int ClientStatements::authorize(int action, const char* first, const char* second,
                                const char* database) {
  const bool isTemporary = database && isSameSqlName(database, "temp");
  switch (action) {
    case SQLITE_SELECT:
    case SQLITE_RECURSIVE:
    case SQLITE_REINDEX:
    case SQLITE_ANALYZE:
      return SQLITE_OK;
    case SQLITE_FUNCTION:
      if (second && isSameSqlName(second, "load_extension")) {
        return refuse("extensions cannot be loaded");
      }
      return SQLITE_OK;
    case SQLITE_READ:
      if (isInternal(first) || (first && isPrying(first))) {
        return refuse(std::string(first) + " is the store's own");
      }
      if (first && beginsWith(first, "pragma_")) return refuse(kNoPragmas);
      noteRead(first);
      return SQLITE_OK;
    case SQLITE_CREATE_TABLE:
    case SQLITE_CREATE_VIEW:
      if (isTemporary) return refuse("there are no temporary tables");
      if (first && !isInternal(first)) tablesMade_.emplace_back(first);
      [[fallthrough]];
    case SQLITE_INSERT:
    case SQLITE_UPDATE:
    case SQLITE_DELETE:
    case SQLITE_CREATE_INDEX:
    case SQLITE_CREATE_TRIGGER:
    case SQLITE_DROP_INDEX:
    case SQLITE_DROP_TABLE:
    case SQLITE_DROP_TRIGGER:
    case SQLITE_DROP_VIEW:
    case SQLITE_ALTER_TABLE:
      if (isInternal(first) || isInternal(second)) {
        return refuse(kNamesAreTheStores);
      }
      return SQLITE_OK;
    case SQLITE_TRANSACTION:
    case SQLITE_SAVEPOINT:
      return refuse("transactions are begun and ended by requests of their own");
    case SQLITE_PRAGMA:
      // No statement of a client runs one, but what records the changes of a branch looks at a
      // table in the middle of the statement that changes it.
      if (running_ && first && beginsWith(first, "table_")) return SQLITE_OK;
      return refuse(kNoPragmas);
    case SQLITE_ATTACH:
    case SQLITE_DETACH:
      return refuse("an account has one database");
    case SQLITE_CREATE_TEMP_INDEX:
    case SQLITE_CREATE_TEMP_TABLE:
    case SQLITE_CREATE_TEMP_TRIGGER:
    case SQLITE_CREATE_TEMP_VIEW:
      return refuse("there are no temporary tables");
    case SQLITE_CREATE_VTABLE:
      return refuse("there are no virtual tables");
    default:
      return refuse("the statement does what clients may not do");
  }
}

// Files as tables.

ClientStatements::Stamp ClientStatements::stamp() {
  // A transaction may be rolled back, in whole or in part, and nothing would tell of it.
  if (connection_.inTransaction()) return {-1, ++unmatched_};
  const StatementUse version(connection_.kept("PRAGMA data_version"));
  version->step();
  return {version->integer(0), connection_.totalChanges()};
}

bool ClientStatements::areCurrent(const std::vector<std::string>& fileTables) {
  if (fileTables.empty()) return true;
  const Stamp now = stamp();
  bool current = true;
  for (const std::string& name : fileTables) {
    const auto found = fileTables_.find(name);
    if (found == fileTables_.end()) {
      current = false;
      continue;
    }
    if (found->second.checked == now) continue;
    const std::string known = found->second.table->name;
    std::shared_ptr<const FileTable> table = findFileTable(known);
    if (table && *table == *found->second.table) {
      found->second.checked = now;
      continue;
    }
    current = false;
    forgetFileTable(connection_, known);
    fileTables_.erase(found);
    if (table) registerTable(std::move(table), now);
  }
  return current;
}

std::vector<std::string> ClientStatements::namesOfFileTables() const {
  std::vector<std::string> names;
  for (const auto& [name, known] : fileTables_) names.push_back(name);
  return names;
}

bool ClientStatements::learnMissing(std::string_view reason) {
  const std::string_view name = missingTable(reason);
  // A name that is known already is not found for another reason: it has a schema in front.
  if (name.empty() || fileTables_.count(lower(name)) > 0) return false;
  const Stamp now = stamp();
  std::shared_ptr<const FileTable> table = findFileTable(name);
  if (!table) return false;
  registerTable(std::move(table), now);
  return true;
}

void ClientStatements::registerTable(std::shared_ptr<const FileTable> table, const Stamp& checked) {
  if (fileTables_.size() >= kMostFileTables) {
    for (const auto& [name, known] : fileTables_) forgetFileTable(connection_, known.table->name);
    fileTables_.clear();
  }
  const std::string name = lower(table->name);
  registerFileTable(connection_, table, conversions_);
  fileTables_[name] = {std::move(table), checked};
}

std::shared_ptr<const FileTable> ClientStatements::registered(std::string_view name) const {
  const auto found = fileTables_.find(lower(name));
  return found == fileTables_.end() ? nullptr : found->second.table;
}

std::vector<ClientStatements::NamedFile> ClientStatements::filesCalled(std::string_view name) {
  const StatementUse find(
      connection_.kept("SELECT name, number FROM nox_files WHERE name = ?1 COLLATE NOCASE"));
  find->bindText(0, name);
  std::vector<NamedFile> files;
  while (find->step()) files.push_back({std::string(find->bytes(0)), find->integer(1)});
  return files;
}

FileColumns ClientStatements::columnsOf(std::int64_t fileNumber) {
  FileColumnsReader reader;
  Statement records =
      connection_.prepare("SELECT id, body FROM " +
                          SqliteConnection::tableName(fileNumber, Part::Dict) + " ORDER BY id");
  while (records.step()) reader.add(records.bytes(0), records.bytes(1));
  return reader.finish();
}

std::vector<FileTable> ClientStatements::tablesOf(const std::string& file, std::int64_t number) {
  FileColumns columns = columnsOf(number);
  std::vector<FileTable> tables;
  tables.push_back({file, number, false, std::move(columns.single)});
  for (FileColumn& column : columns.multivalued) {
    std::string name = file;
    name += kItemSeparator;
    name += column.name;
    tables.push_back({std::move(name), number, true, {std::move(column)}});
  }
  return tables;
}

std::shared_ptr<const FileTable> ClientStatements::findFileTable(std::string_view name) {
  const auto onlyFile = [&](std::string_view called) -> std::vector<NamedFile> {
    std::vector<NamedFile> files = filesCalled(called);
    if (files.size() > 1) {
      throw StoreError(StoreError::Kind::NoTable, "files " + files[0].name + " and " +
                                                      files[1].name + " are the same name to SQL");
    }
    return files;
  };
  for (NamedFile& file : onlyFile(name)) {
    return std::make_shared<FileTable>(
        FileTable{file.name, file.number, false, columnsOf(file.number).single});
  }
  for (std::size_t at = name.find(kItemSeparator); at != std::string_view::npos;
       at = name.find(kItemSeparator, at + 1)) {
    for (const NamedFile& file : onlyFile(name.substr(0, at))) {
      for (FileTable& table : tablesOf(file.name, file.number)) {
        if (table.perValue && isSameSqlName(table.name, name)) {
          return std::make_shared<FileTable>(std::move(table));
        }
      }
    }
  }
  return nullptr;
}

}  // namespace nox::agent
