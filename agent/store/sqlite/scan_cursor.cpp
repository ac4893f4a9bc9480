#include "agent/store/sqlite/scan_cursor.h"

#include <sqlite3.h>

#include "agent/store/sqlite/sqlite_error.h"
#include "agent/store/sqlite/sqlite_session.h"

namespace nox::agent {

struct ScanCursor::Rows {
  Rows() {
    sqlite3* db = nullptr;
    // Without a name: a file that the engine removes, of which it keeps little in memory.
    const int code = sqlite3_open_v2(
        "", &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    database.reset(db);
    if (code != SQLITE_OK) throw storeError(db, code, "a temporary table");
    Statement(db, "PRAGMA journal_mode = OFF").run();
    Statement(db, "CREATE TABLE rows(number INTEGER PRIMARY KEY, id TEXT, body BLOB)").run();
    insert = Statement(db, "INSERT INTO rows(id, body) VALUES(?1, ?2)");
    select = Statement(db, "SELECT id, body FROM rows ORDER BY number");
    Statement(db, "BEGIN").run();
  }

  void add(std::string_view id, std::string_view body) {
    insert.bindText(0, id);
    insert.bindBytes(1, body);
    insert.run();
  }

  struct Close {
    void operator()(sqlite3* db) const noexcept { sqlite3_close_v2(db); }
  };
  std::unique_ptr<sqlite3, Close> database;
  Statement insert;
  Statement select;
};

ScanCursor::ScanCursor(ConnectionLease lease, SqliteSession* session, const FilePart& file,
                       bool withBodies, std::string_view from)
    : lease_(std::move(lease)), session_(session), withBodies_(withBodies), from_(from) {
  // The number of the file and its rows are read from one state.
  if (session_ == nullptr) {
    lease_->execute("BEGIN");
    ownsTransaction_ = true;
  }
  statement_ = lease_->prepare((withBodies ? "SELECT id, body FROM " : "SELECT id FROM ") +
                               lease_->tableOf(file) + " WHERE id >= ?1 ORDER BY id");
  statement_.bindText(0, from_);
  stepped_ = statement_.step();
  if (!stepped_) {
    over_ = true;
    release();
  } else if (session_ != nullptr) {
    session_->addCursor(*this);
  }
}

ScanCursor::~ScanCursor() { release(); }

bool ScanCursor::next() {
  key_ = body_ = {};
  if (failure_) std::rethrow_exception(failure_);
  if (over_) return false;
  Statement& rows = rows_ ? rows_->select : statement_;
  if (!std::exchange(stepped_, false) && !rows.step()) {
    over_ = true;
    release();
    return false;
  }
  key_ = rows.bytes(0);
  if (withBodies_) body_ = rows.bytes(1);
  return true;
}

void ScanCursor::detach() noexcept {
  try {
    // What was given out stays valid until the next call of `next`.
    keptKey_ = key_;
    keptBody_ = body_;
    auto rows = std::make_unique<Rows>();
    if (!stepped_) stepped_ = statement_.step();
    while (stepped_) {
      rows->add(statement_.bytes(0), withBodies_ ? statement_.bytes(1) : std::string_view());
      stepped_ = statement_.step();
    }
    rows_ = std::move(rows);
  } catch (...) {
    failure_ = std::current_exception();
  }
  key_ = keptKey_;
  body_ = keptBody_;
  release();
}

void ScanCursor::release() noexcept {
  if (session_ != nullptr) session_->removeCursor(*this);
  session_ = nullptr;
  statement_ = Statement();
  if (ownsTransaction_) lease_->rollback();  // it has only read
  ownsTransaction_ = false;
  lease_ = ConnectionLease();
}

}  // namespace nox::agent
