#include "agent/store/sqlite/sqlite_sql.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <utility>

#include <sqlite3.h>

#include "agent/store/sqlite/sql_text.h"
#include "agent/store/sqlite/sql_types.h"
#include "agent/store/sqlite/sqlite_error.h"

namespace nox::agent {

namespace {

// What a client's statement may be, so that it costs no more stack and memory than is there.
constexpr int kMostBytesOfText = 1'000'000;
constexpr int kDeepestExpression = 500;
constexpr int kMostParameters = 32'766;
constexpr int kLongestPattern = 5'000;
constexpr int kDeepestTrigger = 100;

/// Gives a statement back to its connection when its use ends.
class Borrowed {
public:
  Borrowed(SqliteConnection& connection, const std::string& sql)
      : statements_(ClientStatements::of(connection)), statement_(statements_.take(sql)) {}
  ~Borrowed() { giveBack(); }
  Borrowed(const Borrowed&) = delete;
  Borrowed& operator=(const Borrowed&) = delete;

  ClientStatement& operator*() const { return *statement_; }
  sqlite3_stmt* handle() const { return statement_->handle.get(); }
  std::unique_ptr<ClientStatement> keep() { return std::move(statement_); }
  void giveBack() noexcept {
    if (statement_) statements_.giveBack(std::move(statement_));
  }

private:
  ClientStatements& statements_;
  std::unique_ptr<ClientStatement> statement_;
};

/// As the whole number that the text is, or the nearest one with a point.
int bindNumber(sqlite3_stmt* statement, int parameter, std::string_view text) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  const char* const end = text.data() + text.size();
  std::int64_t whole = 0;
  const auto asWhole = std::from_chars(text.data(), end, whole);
  if (asWhole.ec == std::errc() && asWhole.ptr == end) {
    return sqlite3_bind_int64(statement, parameter, whole);
  }
  double number = 0;
  const auto asNumber = std::from_chars(text.data(), end, number);
  if (asNumber.ec != std::errc() || asNumber.ptr != end) {
    throw StoreError(StoreError::Kind::NotANumber,
                     "parameter " + std::to_string(parameter) + " is no number");
  }
  return sqlite3_bind_double(statement, parameter, number);
}

/// The bytes stay the caller's.
void bind(SqliteConnection& connection, sqlite3_stmt* statement,
          const std::vector<SqlValue>& values) {
  for (int parameter = 1; parameter <= static_cast<int>(values.size()); ++parameter) {
    const SqlValue& value = values[static_cast<std::size_t>(parameter) - 1];
    const std::string& bytes = value.bytes;
    int code = SQLITE_OK;
    switch (value.kind) {
      case SqlValue::Kind::Null:
        code = sqlite3_bind_null(statement, parameter);
        break;
      case SqlValue::Kind::Text:
        code = sqlite3_bind_text64(statement, parameter, bytes.data(), bytes.size(), SQLITE_STATIC,
                                   SQLITE_UTF8);
        break;
      case SqlValue::Kind::Number:
        code = bindNumber(statement, parameter, bytes);
        break;
      case SqlValue::Kind::Bytes:
        code = sqlite3_bind_blob64(statement, parameter, bytes.data(), bytes.size(), SQLITE_STATIC);
        break;
    }
    if (code != SQLITE_OK) throw storeError(connection.handle(), code);
  }
}

bool changesRows(std::string_view sql) {
  const std::string verb = firstWord(withoutLeadingBlanks(sql));
  return verb == "INSERT" || verb == "UPDATE" || verb == "DELETE" || verb == "REPLACE" ||
         verb == "WITH";
}

/// `data` is what a look at the value has given; null where it is empty.
std::string_view bytesOf(const void* data, sqlite3_value* value) {
  const auto length = static_cast<std::size_t>(sqlite3_value_bytes(value));
  return {data ? static_cast<const char*>(data) : "", length};
}

std::string orEmpty(const char* text) { return text ? text : ""; }

/// A column of a file's table, which is never null and never written.
SqlColumn fileColumn(const FileTable& table, std::string_view name) {
  SqlColumn column = columnOfType("TEXT");
  const auto found =
      std::find_if(table.columns.begin(), table.columns.end(), [&](const FileColumn& candidate) {
        return name == (table.perValue ? FileTable::kValue : candidate.name);
      });
  if (table.perValue && name == FileTable::kPosition) {
    column = columnOfType("INTEGER");
  } else if (found != table.columns.end()) {
    if (found->numeric) column = columnOfType("NUMERIC");
    if (found->width > 0) column.displayWidth = static_cast<int>(found->width);
  }
  column.nullable = false;
  column.readOnly = true;
  return column;
}

/// A column of one of the account's tables, or of an expression where there is no table.
SqlColumn resultColumn(ClientStatements& statements, SqliteConnection& connection,
                       sqlite3_stmt* statement, int i) {
  const std::string table = orEmpty(sqlite3_column_table_name(statement, i));
  const std::string origin = orEmpty(sqlite3_column_origin_name(statement, i));
  SqlColumn column;
  if (const auto file = table.empty() ? nullptr : statements.registered(table)) {
    column = fileColumn(*file, origin);
  } else {
    column = columnOfType(orEmpty(sqlite3_column_decltype(statement, i)));
    column.readOnly = table.empty();
    int notNull = 0;
    int isKey = 0;
    int counts = 0;
    if (!table.empty() &&
        sqlite3_table_column_metadata(connection.handle(), "main", table.c_str(), origin.c_str(),
                                      nullptr, nullptr, &notNull, &isKey, &counts) == SQLITE_OK) {
      column.nullable = notNull == 0;
      column.autoIncrement = counts != 0;
    }
  }
  column.name = orEmpty(sqlite3_column_name(statement, i));
  column.table = table;
  return column;
}

}  // namespace

// The seams of the connection and the session.

void prepareForClientSql(SqliteConnection& connection, const SqlConversions& conversions) {
  sqlite3* const db = connection.handle();
  // A name in double quotes is a name: one that is not there is an error, and no text.
  sqlite3_db_config(db, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
  sqlite3_db_config(db, SQLITE_DBCONFIG_DQS_DDL, 0, nullptr);
  sqlite3_limit(db, SQLITE_LIMIT_SQL_LENGTH, kMostBytesOfText);
  sqlite3_limit(db, SQLITE_LIMIT_EXPR_DEPTH, kDeepestExpression);
  sqlite3_limit(db, SQLITE_LIMIT_VARIABLE_NUMBER, kMostParameters);
  sqlite3_limit(db, SQLITE_LIMIT_LIKE_PATTERN_LENGTH, kLongestPattern);
  sqlite3_limit(db, SQLITE_LIMIT_TRIGGER_DEPTH, kDeepestTrigger);
  connection.sqlState() = std::make_unique<ClientStatements>(connection, conversions);
}

int authorizeClientSql(SqliteConnection& connection, int action, const char* first,
                       const char* second, const char* database, const char* /*trigger*/) {
  return ClientStatements::of(connection).authorize(action, first, second, database);
}

std::unique_ptr<SqlStatement> SqliteSession::prepare(std::string_view sql, bool mustExist) {
  auto statement = std::make_unique<SqliteSqlStatement>(*this, std::string(sql));
  try {
    statement->isQuery();
  } catch (const StoreError& error) {
    const bool isMissing =
        error.kind() == StoreError::Kind::NoTable || error.kind() == StoreError::Kind::NoColumn;
    if (mustExist || !isMissing) throw;
  }
  return statement;
}

// The statement.

SqliteSqlStatement::SqliteSqlStatement(SqliteSession& session, std::string sql)
    : session_(session), sql_(std::move(sql)) {}

SqliteSqlStatement::~SqliteSqlStatement() {
  SqliteSqlStatement::close();
  if (isInTransaction_) session_.leave(*this);
}

template <class Use>
auto SqliteSqlStatement::prepared(Use use) {
  const ConnectionLease lease = session_.readConnection();
  const Borrowed statement(*lease, sql_);
  return use(*lease, statement.handle());
}

const SqliteSqlStatement::Facts& SqliteSqlStatement::facts() {
  if (!facts_) {
    facts_ = prepared([](SqliteConnection& /*connection*/, sqlite3_stmt* statement) {
      return Facts{sqlite3_bind_parameter_count(statement), sqlite3_column_count(statement) > 0,
                   sqlite3_stmt_readonly(statement) != 0};
    });
  }
  return *facts_;
}

std::optional<int> SqliteSqlStatement::parameterCount() {
  try {
    return facts().parameters;
  } catch (const StoreError& error) {
    if (error.kind() == StoreError::Kind::NoTable || error.kind() == StoreError::Kind::NoColumn) {
      return std::nullopt;
    }
    throw;
  }
}

bool SqliteSqlStatement::isQuery() { return facts().isQuery; }

bool SqliteSqlStatement::isReadOnly() { return facts().isReadOnly; }

std::vector<SqlColumn> SqliteSqlStatement::columns() {
  return prepared([](SqliteConnection& connection, sqlite3_stmt* statement) {
    ClientStatements& statements = ClientStatements::of(connection);
    std::vector<SqlColumn> columns;
    const int count = sqlite3_column_count(statement);
    columns.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
      columns.push_back(resultColumn(statements, connection, statement, i));
    }
    return columns;
  });
}

std::vector<SqlColumn> SqliteSqlStatement::parameters() {
  return prepared([](SqliteConnection& /*connection*/, sqlite3_stmt* statement) {
    std::vector<SqlColumn> parameters;
    for (int i = 1; i <= sqlite3_bind_parameter_count(statement); ++i) {
      SqlColumn parameter = columnOfType("TEXT");
      const char* const name = sqlite3_bind_parameter_name(statement, i);
      // Without the sign in front, as ":name".
      parameter.name = name && *name != '?' ? name + 1 : "?" + std::to_string(i);
      parameters.push_back(std::move(parameter));
    }
    return parameters;
  });
}

void SqliteSqlStatement::execute(const std::vector<SqlValue>& values) {
  close();
  overWithTransaction_ = false;
  changes_ = 0;
  if (session_.inTransaction() && !isInTransaction_) {
    session_.join(*this);
    isInTransaction_ = true;
  }
  if (isReadOnly()) {
    read(values);
  } else {
    write(values);
  }
}

void SqliteSqlStatement::read(const std::vector<SqlValue>& values) {
  ConnectionLease lease = session_.readConnection();
  Borrowed statement(*lease, sql_);
  bind(*lease, statement.handle(), values);
  // With the first row begins what the query sees.
  if (!ClientStatements::Run(ClientStatements::of(*lease)).step(*statement)) return;
  statement_ = statement.keep();
  lease_ = std::move(lease);
  atFirst_ = true;
}

void SqliteSqlStatement::write(const std::vector<SqlValue>& values) {
  SqliteSession::Write write(session_);
  {
    Borrowed statement(write.connection(), sql_);
    bind(write.connection(), statement.handle(), values);
    std::size_t bytes = 0;
    ClientStatements::Run run(ClientStatements::of(write.connection()));
    while (run.step(*statement)) {
      ReturnedRow& row = returned_.emplace_back();
      for (const std::optional<std::string_view>& value : *rowOf(*statement)) {
        row.emplace_back();
        if (value) row.back().emplace(*value);
        bytes += sizeof(row.back()) + (value ? value->size() : 0);
      }
      if (bytes > kMostReturnedBytes) {
        returned_.clear();
        throw StoreError(StoreError::Kind::Failed, "the statement returns more than 16 MiB");
      }
    }
    if (changesRows(sql_)) changes_ = write.connection().changes();
  }
  try {
    write.finish();
  } catch (...) {
    returned_.clear();
    throw;
  }
  std::reverse(returned_.begin(), returned_.end());
}

const SqlRow* SqliteSqlStatement::rowOf(ClientStatement& statement) {
  sqlite3_stmt* const handle = statement.handle.get();
  const auto count = static_cast<std::size_t>(sqlite3_column_count(handle));
  row_.resize(count);
  states_.resize(count);
  for (std::size_t i = 0; i < count; ++i) {
    // One look-up of the value; the connection is this thread's.
    sqlite3_value* const value = sqlite3_column_value(handle, static_cast<int>(i));
    ColumnState& state = states_[i];
    if (state.holdsBytes) {
      // As in the row before, most likely. A number among texts is made a text by this.
      if (const void* const data = sqlite3_value_blob(value)) {
        row_[i] = bytesOf(data, value);
        continue;
      }
    }
    const int type = sqlite3_value_type(value);
    state.holdsBytes = type == SQLITE_TEXT || type == SQLITE_BLOB;
    switch (type) {
      case SQLITE_NULL:
        row_[i].reset();
        break;
      case SQLITE_INTEGER: {
        auto& text = state.number;
        const std::int64_t number = sqlite3_value_int64(value);
        const auto written = std::to_chars(text.data(), text.data() + text.size(), number);
        row_[i] = {text.data(), static_cast<std::size_t>(written.ptr - text.data())};
        break;
      }
      case SQLITE_FLOAT:
        row_[i] = bytesOf(sqlite3_value_text(value), value);
        break;
      default:  // of a text, too, its bytes: there is nothing to be converted or copied
        row_[i] = bytesOf(sqlite3_value_blob(value), value);
        break;
    }
  }
  return &row_;
}

const SqlRow* SqliteSqlStatement::next() {
  if (!returned_.empty()) {
    returnedRow_ = std::move(returned_.back());
    returned_.pop_back();
    row_.assign(returnedRow_.begin(), returnedRow_.end());
    return &row_;
  }
  if (!statement_) return nullptr;
  try {
    if (std::exchange(atFirst_, false) ||
        ClientStatements::Run(ClientStatements::of(*lease_)).step(*statement_)) {
      return rowOf(*statement_);
    }
  } catch (...) {
    close();
    throw;
  }
  close();
  return nullptr;
}

bool SqliteSqlStatement::give(SqlRowTaker& taker) {
  if (!statement_) return SqlStatement::give(taker);
  try {
    ClientStatements::Run run(ClientStatements::of(*lease_));
    while (std::exchange(atFirst_, false) || run.step(*statement_)) {
      if (!taker.take(*rowOf(*statement_))) return true;
    }
  } catch (...) {
    close();
    throw;
  }
  close();
  return false;
}

void SqliteSqlStatement::close() {
  returned_.clear();
  if (statement_) ClientStatements::of(*lease_).giveBack(std::move(statement_));
  lease_ = ConnectionLease();
}

void SqliteSqlStatement::endWithTransaction() noexcept {
  isInTransaction_ = false;
  overWithTransaction_ = true;
  SqliteSqlStatement::close();
}

}  // namespace nox::agent
