#include "agent/store/sqlite/file_tables.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <exception>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include <sqlite3.h>

#include "agent/multivalue.h"
#include "agent/names.h"
#include "agent/store/sqlite/sql_text.h"
#include "agent/store/sqlite/sqlite_connection.h"
#include "agent/store/sqlite/sqlite_error.h"

namespace nox::agent {

namespace {

// Columns by their numbers; in a table of a file the dictionary's follow the id.
constexpr int kIdColumn = 0;
constexpr int kPositionColumn = 1;

// How a cursor is to be opened: what a plan tells it, as bits of one number.
constexpr int kById = 1;
constexpr int kFromId = 2;
constexpr int kUpToId = 4;
constexpr int kDescending = 8;
constexpr int kIdsOnly = 16;

// What a plan costs, in the engine's own measure; only the proportions count.
constexpr double kCostByKey = 10;
constexpr double kCostOfRange = 100'000;
constexpr double kCostOfAll = 1'000'000;

/// What a module keeps: the table, and who reads it.
struct Module {
  SqliteConnection& connection;
  const std::shared_ptr<const FileTable> table;
  const std::vector<SqlConversion> conversions;  // of the table's columns; empty: none
};

/// SQLite frees the first member, which its own structures begin with.
struct Table : sqlite3_vtab {
  explicit Table(const Module& itsModule) : sqlite3_vtab(), module(itsModule) {}
  const Module module;
};

struct FinalizeStatement {
  void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
};
using Rows = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

std::string_view textOf(sqlite3_value* value) {
  const auto* const data = static_cast<const char*>(sqlite3_value_blob(value));
  const int length = sqlite3_value_bytes(value);
  return data ? std::string_view(data, static_cast<std::size_t>(length)) : std::string_view();
}

/// A whole number that is written as the engine would write it, so that its text stays the same.
std::optional<std::int64_t> plainInteger(std::string_view text) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  const std::string_view digits = text.substr(text.front() == '-' ? 1 : 0);
  if (digits.front() == '0' && text.size() > 1) return std::nullopt;
  return number;
}

std::string selectFor(const FileTable& table, int plan) {
  std::string sql = (plan & kIdsOnly) != 0 ? "SELECT id FROM main." : "SELECT id, body FROM main.";
  sql += SqliteConnection::tableName(table.fileNumber, Part::Data);
  if ((plan & kById) != 0) return sql + " WHERE id = ?1";
  if ((plan & kFromId) != 0) sql += " WHERE id >= ?1";
  if ((plan & kUpToId) != 0) sql += (plan & kFromId) != 0 ? " AND id <= ?2" : " WHERE id <= ?1";
  return sql + ((plan & kDescending) != 0 ? " ORDER BY id DESC" : " ORDER BY id");
}

/// Walks the records, and within each the values of its attribute where those are the rows.
class Cursor : public sqlite3_vtab_cursor {
public:
  explicit Cursor(const Module& module)
      : sqlite3_vtab_cursor(), module_(module), table_(*module.table) {}

  int open(int plan, sqlite3_value** bounds) {
    // In the order in which bestIndex() asked for them, which is that of the parameters.
    std::array<sqlite3_value*, 2> given{};
    std::size_t count = 0;
    for (const int bit : {kById, kFromId, kUpToId}) {
      if ((plan & bit) == 0) continue;
      sqlite3_value* const bound = *bounds++;
      if (bit != kById && sqlite3_value_type(bound) == SQLITE_BLOB) {
        plan &= ~bit;  // all text is less than bytes; the engine sees to that itself
      } else {
        given[count++] = bound;
      }
    }
    if (!rows_ || plan != plan_) {
      const SqliteConnection::OwnSql own(module_.connection);
      const std::string sql = selectFor(table_, plan);
      sqlite3_stmt* prepared = nullptr;
      const int code =
          sqlite3_prepare_v2(module_.connection.handle(), sql.c_str(), -1, &prepared, nullptr);
      rows_.reset(prepared);
      if (code != SQLITE_OK) {
        // The file was deleted after the statement had been prepared.
        sqlite3_free(pVtab->zErrMsg);
        pVtab->zErrMsg = sqlite3_mprintf("no such table: %s", table_.name.c_str());
        return code;
      }
      plan_ = plan;
    }
    sqlite3_reset(rows_.get());
    for (std::size_t i = 0; i < count; ++i) {
      const int code = bind(static_cast<int>(i) + 1, given[i]);
      if (code != SQLITE_OK) return code;
    }
    values_.reset();
    return next();
  }

  int next() {
    if (values_) {
      values_->next();
      ++position_;
      if (*values_) return SQLITE_OK;
      values_.reset();
    }
    for (;;) {
      const SqliteConnection::OwnSql own(module_.connection);
      const int code = sqlite3_step(rows_.get());
      atEnd_ = code != SQLITE_ROW;
      if (atEnd_) {
        sqlite3_reset(rows_.get());
        return code == SQLITE_DONE ? SQLITE_OK : code;
      }
      if (!table_.perValue) return SQLITE_OK;
      const std::string_view values = attribute(table_.columns.front());
      if (values.empty()) continue;  // no values, no rows
      values_.emplace(values, kValue);
      position_ = 1;
      return SQLITE_OK;
    }
  }

  bool isAtEnd() const { return atEnd_; }

  void giveColumn(sqlite3_context* context, int number) const {
    if (number == kIdColumn) return giveText(context, id());
    if (table_.perValue) {
      if (number == kPositionColumn) return sqlite3_result_int64(context, position_);
      return giveValue(context, 0, **values_);
    }
    const std::size_t item = static_cast<std::size_t>(number) - 1;
    giveValue(context, item, attribute(table_.columns[item]));
  }

private:
  void giveValue(sqlite3_context* context, std::size_t item, std::string_view value) const {
    if (const SqlConversion& convert = module_.conversions[item]) {
      return giveText(context, convert(value));
    }
    if (table_.columns[item].numeric && !value.empty()) {
      // As a number it also sorts as one.
      if (const auto number = plainInteger(value)) return sqlite3_result_int64(context, *number);
    }
    giveText(context, value);
  }

  /// As text, which ids are. A null matches nothing.
  int bind(int parameter, sqlite3_value* value) {
    if (sqlite3_value_type(value) == SQLITE_NULL) return sqlite3_bind_null(rows_.get(), parameter);
    const auto* const text = reinterpret_cast<const char*>(sqlite3_value_text(value));
    return sqlite3_bind_text(rows_.get(), parameter, text, sqlite3_value_bytes(value),
                             SQLITE_TRANSIENT);
  }

  std::string_view id() const { return textOf(sqlite3_column_value(rows_.get(), 0)); }

  std::string_view attribute(const FileColumn& column) const {
    if (column.attribute == 0) return id();
    const std::string_view body = textOf(sqlite3_column_value(rows_.get(), 1));
    return extract(body, {static_cast<int>(column.attribute), 0, 0});
  }

  static void giveText(sqlite3_context* context, std::string_view text) {
    // A null pointer would be null.
    const char* const data = text.data() ? text.data() : "";
    sqlite3_result_text64(context, data, text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
  }

  const Module& module_;
  const FileTable& table_;
  Rows rows_;
  int plan_ = 0;
  bool atEnd_ = true;
  std::optional<Fields> values_;
  std::int64_t position_ = 0;
};

/// No exception passes through the engine: what is thrown inside becomes a code of its own.
template <class Work>
int guarded(Work work) noexcept {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    return SQLITE_NOMEM;
  } catch (const std::exception&) {
    return SQLITE_ERROR;
  }
}

std::string declarationOf(const FileTable& table) {
  std::string sql = "CREATE TABLE x(\"ID\" TEXT NOT NULL";
  // The type decides how values are compared, never how they are shown.
  const auto type = [](const FileColumn& column) { return column.numeric ? "NUMERIC" : "TEXT"; };
  if (table.perValue) {
    sql += ", \"POS\" INTEGER NOT NULL, \"VALUE\" ";
    sql += type(table.columns.front());
    return sql + " NOT NULL, PRIMARY KEY(\"ID\", \"POS\")) WITHOUT ROWID";
  }
  for (const FileColumn& column : table.columns) {
    sql += ", " + quotedName(column.name) + " " + type(column) + " NOT NULL";
  }
  return sql + ", PRIMARY KEY(\"ID\")) WITHOUT ROWID";
}

int connect(sqlite3* db, void* module, int /*count*/, const char* const* /*arguments*/,
            sqlite3_vtab** table, char** /*error*/) {
  return guarded([&] {
    const auto& itsModule = *static_cast<const Module*>(module);
    const int code = sqlite3_declare_vtab(db, declarationOf(*itsModule.table).c_str());
    if (code != SQLITE_OK) return code;
    // Nothing of the client's can be reached through it but what the client may read anyway.
    sqlite3_vtab_config(db, SQLITE_VTAB_INNOCUOUS);
    *table = std::make_unique<Table>(itsModule).release();
    return SQLITE_OK;
  });
}

int disconnect(sqlite3_vtab* table) {
  const std::unique_ptr<Table> ended(static_cast<Table*>(table));
  return SQLITE_OK;
}

/// Whether the plan may use the condition: ids are compared as the bytes that they are.
bool isOnId(sqlite3_index_info* info, int i) {
  const auto& constraint = info->aConstraint[i];
  return constraint.usable != 0 && constraint.iColumn == kIdColumn &&
         std::string_view(sqlite3_vtab_collation(info, i)) == "BINARY";
}

int bestIndex(sqlite3_vtab* table, sqlite3_index_info* info) {
  const FileTable& itsTable = *static_cast<Table*>(table)->module.table;
  int equal = -1;
  int from = -1;
  int upTo = -1;
  for (int i = 0; i < info->nConstraint; ++i) {
    if (!isOnId(info, i)) continue;
    switch (info->aConstraint[i].op) {
      case SQLITE_INDEX_CONSTRAINT_EQ:
        equal = i;
        break;
      case SQLITE_INDEX_CONSTRAINT_GT:
      case SQLITE_INDEX_CONSTRAINT_GE:
        from = i;
        break;
      case SQLITE_INDEX_CONSTRAINT_LT:
      case SQLITE_INDEX_CONSTRAINT_LE:
        upTo = i;
        break;
      default:
        break;
    }
  }

  // The engine looks at each condition once more: the bounds may be wider than what was asked.
  int plan = 0;
  int arguments = 0;
  const auto use = [&](int constraint, int bit) {
    if (constraint < 0) return;
    plan |= bit;
    info->aConstraintUsage[constraint].argvIndex = ++arguments;
  };
  if (equal >= 0) {
    use(equal, kById);
    info->estimatedCost = kCostByKey;
    info->estimatedRows = 1;
    if (!itsTable.perValue) info->idxFlags = SQLITE_INDEX_SCAN_UNIQUE;
  } else {
    use(from, kFromId);
    use(upTo, kUpToId);
    info->estimatedCost = arguments > 0 ? kCostOfRange : kCostOfAll;
    info->estimatedRows = static_cast<sqlite3_int64>(info->estimatedCost / 10);
  }
  if (info->nOrderBy == 1 && info->aOrderBy[0].iColumn == kIdColumn) {
    info->orderByConsumed = 1;
    if (info->aOrderBy[0].desc != 0 && equal < 0) plan |= kDescending;
  }
  constexpr sqlite3_uint64 kIdUsed = 1;
  if (!itsTable.perValue && (info->colUsed & ~kIdUsed) == 0) plan |= kIdsOnly;
  info->idxNum = plan;
  return SQLITE_OK;
}

int open(sqlite3_vtab* table, sqlite3_vtab_cursor** cursor) {
  return guarded([&] {
    *cursor = std::make_unique<Cursor>(static_cast<Table*>(table)->module).release();
    return SQLITE_OK;
  });
}

int close(sqlite3_vtab_cursor* cursor) {
  const std::unique_ptr<Cursor> ended(static_cast<Cursor*>(cursor));
  return SQLITE_OK;
}

int filter(sqlite3_vtab_cursor* cursor, int plan, const char* /*text*/, int /*count*/,
           sqlite3_value** bounds) {
  return guarded([&] { return static_cast<Cursor*>(cursor)->open(plan, bounds); });
}

int next(sqlite3_vtab_cursor* cursor) {
  return guarded([&] { return static_cast<Cursor*>(cursor)->next(); });
}

int eof(sqlite3_vtab_cursor* cursor) { return static_cast<Cursor*>(cursor)->isAtEnd() ? 1 : 0; }

int column(sqlite3_vtab_cursor* cursor, sqlite3_context* context, int number) {
  return guarded([&] {
    static_cast<const Cursor*>(cursor)->giveColumn(context, number);
    return SQLITE_OK;
  });
}

int rowid(sqlite3_vtab_cursor* /*cursor*/, sqlite3_int64* /*id*/) {
  return SQLITE_ERROR;  // the tables have none
}

/// Without a way to create tables of the module, its name is the only table that there is.
sqlite3_module makeFunctions() {
  sqlite3_module functions{};
  functions.xConnect = connect;
  functions.xDisconnect = disconnect;
  functions.xDestroy = disconnect;
  functions.xBestIndex = bestIndex;
  functions.xOpen = open;
  functions.xClose = close;
  functions.xFilter = filter;
  functions.xNext = next;
  functions.xEof = eof;
  functions.xColumn = column;
  functions.xRowid = rowid;
  return functions;
}

const sqlite3_module kFunctions = makeFunctions();

void destroyModule(void* module) {
  const std::unique_ptr<Module> ended(static_cast<Module*>(module));
}

}  // namespace

void registerFileTable(SqliteConnection& connection, std::shared_ptr<const FileTable> table,
                       const SqlConversions& conversions) {
  const std::string name = table->name;
  std::vector<SqlConversion> made;
  for (const FileColumn& column : table->columns) {
    const bool converts = !column.conversion.empty() && conversions;
    made.push_back(converts ? conversions(column.conversion) : SqlConversion());
  }
  auto* const module = new Module{connection, std::move(table), std::move(made)};
  // The engine calls the destructor also where it fails.
  const int code = sqlite3_create_module_v2(connection.handle(), name.c_str(), &kFunctions, module,
                                            destroyModule);
  if (code != SQLITE_OK) throw storeError(connection.handle(), code, name);
}

void forgetFileTable(SqliteConnection& connection, const std::string& name) {
  sqlite3_create_module_v2(connection.handle(), name.c_str(), nullptr, nullptr, nullptr);
}

}  // namespace nox::agent
