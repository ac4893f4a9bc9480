#include "agent/store/sqlite/records.h"

namespace nox::agent {

namespace {

std::string layoutOfPart(const std::string& table) {
  // The rows lie in the tree of the key itself: one search per record, keys in byte-wise order.
  return "CREATE TABLE " + table +
         "(id TEXT NOT NULL PRIMARY KEY, body BLOB NOT NULL) WITHOUT ROWID";
}

}  // namespace

void putRecord(SqliteConnection& connection, const FilePart& file, std::string_view id,
               std::string_view body) {
  connection.onRecord(file, RecordAction::Write, [&](Statement& statement) {
    statement.bindText(0, id);
    statement.bindBytes(1, body);
    statement.step();
  });
}

bool putNewRecord(SqliteConnection& connection, const FilePart& file, std::string_view id,
                  std::string_view body) {
  return connection.onRecord(file, RecordAction::WriteNew, [&](Statement& statement) {
    statement.bindText(0, id);
    statement.bindBytes(1, body);
    statement.step();
    return connection.changes() > 0;
  });
}

bool removeRecord(SqliteConnection& connection, const FilePart& file, std::string_view id) {
  return connection.onRecord(file, RecordAction::Remove, [&](Statement& statement) {
    statement.bindText(0, id);
    statement.step();
    return connection.changes() > 0;
  });
}

std::uint64_t removeAllRecords(SqliteConnection& connection, const FilePart& file) {
  connection.prepare("DELETE FROM " + connection.tableOf(file)).run();
  return static_cast<std::uint64_t>(connection.changes());
}

bool addFile(SqliteConnection& connection, const std::string& file) {
  if (!isFileName(file)) {
    throw StoreError(StoreError::Kind::Failed, "\"" + file + "\" is no file name");
  }
  Statement insert = connection.prepare(
      "INSERT INTO nox_files(name) VALUES(?1) ON CONFLICT(name) DO NOTHING RETURNING number");
  insert.bindText(0, file);
  if (!insert.step()) return false;
  const std::int64_t number = insert.integer(0);
  insert.run();
  connection.noteFilesChanged();
  for (const Part part : {Part::Data, Part::Dict}) {
    connection.prepare(layoutOfPart(SqliteConnection::tableName(number, part))).run();
  }
  return true;
}

bool dropFile(SqliteConnection& connection, const std::string& file) {
  const std::optional<std::int64_t> number = connection.fileNumber(file);
  if (!number) return false;
  connection.noteFilesChanged();
  for (const Part part : {Part::Data, Part::Dict}) {
    connection.prepare("DROP TABLE " + SqliteConnection::tableName(*number, part)).run();
  }
  Statement remove = connection.prepare("DELETE FROM nox_files WHERE number = ?1");
  remove.bindInteger(0, *number);
  remove.run();
  return true;
}

std::vector<std::string> listFiles(SqliteConnection& connection) {
  std::vector<std::string> files;
  const StatementUse find(connection.kept("SELECT name FROM nox_files ORDER BY name"));
  while (find->step()) files.emplace_back(find->bytes(0));
  return files;
}

}  // namespace nox::agent
