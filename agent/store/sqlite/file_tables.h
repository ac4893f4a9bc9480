// Files as tables of SQL: modules that SQLite asks for rows, which they take from the records.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "agent/store/file_columns.h"
#include "agent/store/store.h"

namespace nox::agent {

class SqliteConnection;

/// What a statement can name: a file, with a row per record, or a multivalued item of it, with a
/// row per value. It is read-only. A condition on the id is a search by key.
struct FileTable {
  static constexpr const char* kId = "ID";
  static constexpr const char* kPosition = "POS";
  static constexpr const char* kValue = "VALUE";

  std::string name;             // as SQL knows it
  std::int64_t fileNumber = 0;  // whose records they are
  bool perValue = false;        // ID, POS, VALUE; else ID and the columns
  std::vector<FileColumn> columns;

  bool operator==(const FileTable& other) const {
    return name == other.name && fileNumber == other.fileNumber && perValue == other.perValue &&
           columns == other.columns;
  }
};

/// Makes the connection know the table, in place of another one of its name. Statements that were
/// prepared with the old one keep it. Throws StoreError.
void registerFileTable(SqliteConnection& connection, std::shared_ptr<const FileTable> table,
                       const SqlConversions& conversions);
/// Makes the connection forget it.
void forgetFileTable(SqliteConnection& connection, const std::string& name);

}  // namespace nox::agent
