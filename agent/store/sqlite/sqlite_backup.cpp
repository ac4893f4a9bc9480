#include "agent/store/sqlite/sqlite_backup.h"

#include <memory>

#include <sqlite3.h>

#include "agent/store/sqlite/new_file.h"
#include "agent/store/sqlite/sqlite_error.h"

namespace nox::agent {

namespace {

struct CloseDatabase {
  void operator()(sqlite3* db) const noexcept { sqlite3_close_v2(db); }
};
using Database = std::unique_ptr<sqlite3, CloseDatabase>;

constexpr int kAllPages = -1;

}  // namespace

void copyDatabase(SqliteConnection& connection, const std::filesystem::path& file) {
  NewFile copy(file);
  {
    sqlite3* db = nullptr;
    const int opened = sqlite3_open_v2(copy.path().c_str(), &db,
                                       SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    const Database target(db);
    if (opened != SQLITE_OK) throw storeError(db, opened, file.string());
    // A copy that is not finished is thrown away, and a finished one is synchronised as a file.
    Statement(db, "PRAGMA journal_mode = OFF").run();
    Statement(db, "PRAGMA synchronous = OFF").run();
    // In one step: it reads one state, however much is written to the log meanwhile.
    sqlite3_backup* backup = sqlite3_backup_init(db, "main", connection.handle(), "main");
    if (backup == nullptr) throw storeError(db, sqlite3_errcode(db), file.string());
    sqlite3_backup_step(backup, kAllPages);
    const int finished = sqlite3_backup_finish(backup);
    if (finished != SQLITE_OK) throw storeError(db, finished, file.string());
  }
  copy.publish();
}

}  // namespace nox::agent
