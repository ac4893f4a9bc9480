// The facts about an account's tables that clients can ask for.
#include <algorithm>
#include <iterator>
#include <utility>

#include <sqlite3.h>

#include "agent/store/sqlite/client_statements.h"
#include "agent/store/sqlite/sql_types.h"
#include "agent/store/sqlite/sqlite_session.h"

namespace nox::agent {

namespace {

using Value = std::optional<std::string>;
using Row = std::vector<Value>;

constexpr const char* kSubroutineFile = "NOX.SUBS";

std::string flag(bool value) { return value ? "1" : "0"; }

/// A number that is not said is null.
Value numberOrNull(int number) { return number > 0 ? Value(std::to_string(number)) : std::nullopt; }

std::vector<SqlColumn> textColumns(std::initializer_list<const char*> names) {
  std::vector<SqlColumn> columns;
  for (const char* const name : names) {
    SqlColumn column = columnOfType("TEXT");
    column.name = name;
    column.readOnly = true;
    columns.push_back(std::move(column));
  }
  return columns;
}

/// LIKE patterns by their place; what is empty or not there takes every name.
class Patterns {
public:
  explicit Patterns(const std::vector<std::string>& patterns) : patterns_(patterns) {}

  bool take(std::size_t place, const std::string& name) const {
    constexpr unsigned int kEscape = '\\';
    if (place >= patterns_.size() || patterns_[place].empty()) return true;
    return sqlite3_strlike(patterns_[place].c_str(), name.c_str(), kEscape) == 0;
  }

private:
  const std::vector<std::string>& patterns_;
};

/// Walks what SQL can name: the account's own tables and views, and the tables of its files.
class CatalogReader {
public:
  CatalogReader(SqliteConnection& connection, const std::vector<std::string>& patterns)
      : connection_(connection),
        statements_(ClientStatements::of(connection)),
        patterns_(patterns) {}

  CatalogRows read(Catalog what) {
    switch (what) {
      case Catalog::Tables:
        return tables();
      case Catalog::Columns:
        return columns();
      case Catalog::PrimaryKeys:
        return primaryKeys();
      case Catalog::Indexes:
        return indexes();
      case Catalog::Procedures:
        return procedures();
      case Catalog::Types:
        return types();
    }
    return {};
  }

private:
  struct OwnTable {
    std::string name;
    bool isView = false;
  };

  /// Those whose name is asked for, by name.
  std::vector<OwnTable> ownTables() {
    const StatementUse find(connection_.kept(
        "SELECT name, type = 'view' FROM main.sqlite_schema WHERE type IN ('table', 'view')"
        " AND name NOT LIKE 'sqlite\\_%' ESCAPE '\\' AND name NOT LIKE 'nox\\_%' ESCAPE '\\'"
        " ORDER BY name"));
    std::vector<OwnTable> tables;
    while (find->step()) {
      OwnTable table{std::string(find->bytes(0)), find->integer(1) != 0};
      if (patterns_.take(0, table.name)) tables.push_back(std::move(table));
    }
    return tables;
  }

  template <class Use>
  void forFileTables(Use use) {
    std::vector<std::pair<std::string, std::int64_t>> files;
    {
      const StatementUse find(connection_.kept("SELECT name, number FROM nox_files ORDER BY name"));
      while (find->step()) files.emplace_back(find->bytes(0), find->integer(1));
    }
    for (const auto& [file, number] : files) {
      for (const FileTable& table : statements_.tablesOf(file, number)) {
        if (patterns_.take(0, table.name)) use(table);
      }
    }
  }

  CatalogRows tables() {
    CatalogRows result{textColumns({"TABLE_NAME", "TABLE_TYPE"}), {}};
    for (const OwnTable& table : ownTables()) {
      result.rows.push_back({table.name, table.isView ? "VIEW" : "TABLE"});
    }
    forFileTables([&](const FileTable& table) { result.rows.push_back({table.name, "FILE"}); });
    return result;
  }

  CatalogRows columns() {
    CatalogRows result{
        textColumns({"TABLE_NAME", "COLUMN_NAME", "ORDINAL_POSITION", "DATA_TYPE", "TYPE_NAME",
                     "COLUMN_SIZE", "DECIMAL_DIGITS", "NULLABLE", "COLUMN_DEFAULT",
                     "IS_AUTOINCREMENT", "IS_READONLY", "CONVERSION"}),
        {}};
    const auto add = [&](const std::string& table, int position, const SqlColumn& column,
                         Value byDefault, Value conversion) {
      if (!patterns_.take(1, column.name)) return;
      result.rows.push_back(
          {table, column.name, std::to_string(position), std::to_string(column.dataType),
           column.typeName, numberOrNull(column.precision), numberOrNull(column.scale),
           flag(column.nullable), std::move(byDefault), flag(column.autoIncrement),
           flag(column.readOnly), std::move(conversion)});
    };
    for (const OwnTable& table : ownTables()) {
      addOwnColumns(table, add);
    }
    forFileTables([&](const FileTable& table) {
      const auto addOne = [&](std::string name, const char* type, int position,
                              const FileColumn* item) {
        SqlColumn column = columnOfType(type);
        column.name = std::move(name);
        column.nullable = false;
        column.readOnly = true;
        const bool converts = item && !item->conversion.empty();
        add(table.name, position, column, std::nullopt,
            converts ? Value(item->conversion) : std::nullopt);
      };
      const auto typeOf = [](const FileColumn& item) { return item.numeric ? "NUMERIC" : "TEXT"; };
      addOne(FileTable::kId, "TEXT", 1, nullptr);
      if (table.perValue) {
        addOne(FileTable::kPosition, "INTEGER", 2, nullptr);
        addOne(FileTable::kValue, typeOf(table.columns.front()), 3, &table.columns.front());
        return;
      }
      int position = 1;
      for (const FileColumn& item : table.columns) {
        addOne(item.name, typeOf(item), ++position, &item);
      }
    });
    return result;
  }

  template <class Add>
  void addOwnColumns(const OwnTable& table, const Add& add) {
    try {
      statements_.withFiles([&] {
        const StatementUse find(connection_.kept(
            "SELECT name, type, \"notnull\", dflt_value FROM pragma_table_xinfo(?1)"
            " WHERE hidden <> 1 ORDER BY cid"));
        find->bindText(0, table.name);
        std::vector<std::pair<SqlColumn, Value>> found;
        while (find->step()) {
          SqlColumn column = columnOfType(find->bytes(1));
          column.name = find->bytes(0);
          column.nullable = find->integer(2) == 0;
          column.readOnly = table.isView;
          column.autoIncrement = !table.isView && countsUp(table.name, column.name);
          found.emplace_back(std::move(column),
                             find->isNull(3) ? std::nullopt : Value(find->bytes(3)));
        }
        int position = 0;
        for (auto& [column, byDefault] : found) {
          add(table.name, ++position, column, std::move(byDefault), std::nullopt);
        }
      });
    } catch (const StoreError& error) {
      // A view may have lost the tables that it was made of; it has no columns then.
      if (!table.isView || error.kind() == StoreError::Kind::Interrupted) throw;
    }
  }

  bool countsUp(const std::string& table, const std::string& column) const {
    int counts = 0;
    const int code =
        sqlite3_table_column_metadata(connection_.handle(), "main", table.c_str(), column.c_str(),
                                      nullptr, nullptr, nullptr, nullptr, &counts);
    return code == SQLITE_OK && counts != 0;
  }

  CatalogRows primaryKeys() {
    CatalogRows result{textColumns({"TABLE_NAME", "COLUMN_NAME", "KEY_SEQ"}), {}};
    for (const OwnTable& table : ownTables()) {
      if (table.isView) continue;
      const StatementUse find(
          connection_.kept("SELECT name, pk FROM pragma_table_info(?1) WHERE pk > 0 ORDER BY pk"));
      find->bindText(0, table.name);
      while (find->step()) {
        result.rows.push_back(
            {table.name, std::string(find->bytes(0)), std::string(find->bytes(1))});
      }
    }
    forFileTables([&](const FileTable& table) {
      result.rows.push_back({table.name, FileTable::kId, "1"});
      if (table.perValue) result.rows.push_back({table.name, FileTable::kPosition, "2"});
    });
    return result;
  }

  CatalogRows indexes() {
    CatalogRows result{
        textColumns({"TABLE_NAME", "INDEX_NAME", "IS_UNIQUE", "ORDINAL_POSITION", "COLUMN_NAME"}),
        {}};
    for (const OwnTable& table : ownTables()) {
      if (table.isView) continue;
      // An expression has no name: null.
      const StatementUse find(connection_.kept(
          "SELECT list.name, list.\"unique\", part.seqno + 1, part.name"
          " FROM pragma_index_list(?1) AS list, pragma_index_info(list.name) AS part"
          " ORDER BY list.name, part.seqno"));
      find->bindText(0, table.name);
      while (find->step()) {
        const std::string index(find->bytes(0));
        if (!patterns_.take(1, index)) continue;
        result.rows.push_back({table.name, index, flag(find->integer(1) != 0),
                               std::string(find->bytes(2)),
                               find->isNull(3) ? std::nullopt : Value(find->bytes(3))});
      }
    }
    return result;
  }

  CatalogRows procedures() {
    CatalogRows result{textColumns({"PROCEDURE_NAME"}), {}};
    const std::optional<std::int64_t> number = connection_.fileNumber(kSubroutineFile);
    if (!number) return result;
    Statement find = connection_.prepare(
        "SELECT id FROM main." + SqliteConnection::tableName(*number, Part::Data) + " ORDER BY id");
    while (find.step()) {
      std::string name(find.bytes(0));
      if (patterns_.take(0, name)) result.rows.push_back({std::move(name)});
    }
    return result;
  }

  CatalogRows types() {
    CatalogRows result{textColumns({"TYPE_NAME", "DATA_TYPE", "LITERAL_PREFIX", "LITERAL_SUFFIX",
                                    "CASE_SENSITIVE", "IS_BLOB"}),
                       {}};
    const auto add = [&](const char* name, int code, Value prefix, Value suffix) {
      if (!patterns_.take(0, name)) return;
      result.rows.push_back({name, std::to_string(code), std::move(prefix), std::move(suffix),
                             flag(code == SqlType::kText), flag(code == SqlType::kBlob)});
    };
    add("BLOB", SqlType::kBlob, "x'", "'");
    add("INTEGER", SqlType::kInteger, std::nullopt, std::nullopt);
    add("NUMERIC", SqlType::kNumeric, std::nullopt, std::nullopt);
    add("REAL", SqlType::kReal, std::nullopt, std::nullopt);
    add("TEXT", SqlType::kText, "'", "'");
    return result;
  }

  SqliteConnection& connection_;
  ClientStatements& statements_;
  const Patterns patterns_;
};

}  // namespace

CatalogRows SqliteSession::catalog(Catalog what, const std::vector<std::string>& patterns) {
  const ConnectionLease connection = readConnection();
  return CatalogReader(*connection, patterns).read(what);
}

}  // namespace nox::agent
