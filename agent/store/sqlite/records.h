// What is done with records and files on one connection, inside a transaction that somebody else
// began.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "agent/names.h"
#include "agent/store/sqlite/sqlite_connection.h"
#include "agent/store/store.h"

namespace nox::agent {

void putRecord(SqliteConnection& connection, const FilePart& file, std::string_view id,
               std::string_view body);
/// False where there is such a record.
bool putNewRecord(SqliteConnection& connection, const FilePart& file, std::string_view id,
                  std::string_view body);
/// False where there is none.
bool removeRecord(SqliteConnection& connection, const FilePart& file, std::string_view id);
/// How many there were.
std::uint64_t removeAllRecords(SqliteConnection& connection, const FilePart& file);

/// False where there is one.
bool addFile(SqliteConnection& connection, const std::string& file);
/// False where there is none.
bool dropFile(SqliteConnection& connection, const std::string& file);
std::vector<std::string> listFiles(SqliteConnection& connection);

}  // namespace nox::agent
