#include "agent/store/sqlite/sqlite_statement.h"

#include <sqlite3.h>

#include "agent/store/sqlite/sqlite_error.h"

namespace nox::agent {

namespace {

// A null pointer would bind null.
const char* notNull(const char* data) { return data != nullptr ? data : ""; }

}  // namespace

void Statement::Finalize::operator()(sqlite3_stmt* statement) const noexcept {
  sqlite3_finalize(statement);
}

Statement::Statement(sqlite3* db, std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  const int code = sqlite3_prepare_v3(db, sql.data(), static_cast<int>(sql.size()),
                                      SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  if (code != SQLITE_OK) throw storeError(db, code);
  handle_.reset(statement);
}

void Statement::bindText(int parameter, std::string_view text) {
  const int code = sqlite3_bind_text64(handle(), parameter + 1, notNull(text.data()), text.size(),
                                       SQLITE_STATIC, SQLITE_UTF8);
  if (code != SQLITE_OK) throw storeError(sqlite3_db_handle(handle()), code);
}

void Statement::bindBytes(int parameter, std::string_view bytes) {
  const int code = sqlite3_bind_blob64(handle(), parameter + 1, notNull(bytes.data()), bytes.size(),
                                       SQLITE_STATIC);
  if (code != SQLITE_OK) throw storeError(sqlite3_db_handle(handle()), code);
}

void Statement::bindInteger(int parameter, std::int64_t value) {
  const int code = sqlite3_bind_int64(handle(), parameter + 1, value);
  if (code != SQLITE_OK) throw storeError(sqlite3_db_handle(handle()), code);
}

bool Statement::step() {
  const int code = sqlite3_step(handle());
  if (code == SQLITE_ROW) return true;
  if (code == SQLITE_DONE) return false;
  const StoreError error = storeError(sqlite3_db_handle(handle()), code);
  reset();
  throw error;
}

void Statement::run() {
  while (step()) {
  }
  reset();
}

void Statement::reset() noexcept { sqlite3_reset(handle()); }

std::string_view Statement::bytes(int column) const {
  // In this order: asking for the bytes may change how the value is stored.
  const auto* data = static_cast<const char*>(sqlite3_column_blob(handle(), column));
  const auto length = static_cast<std::size_t>(sqlite3_column_bytes(handle(), column));
  return data != nullptr ? std::string_view(data, length) : std::string_view();
}

std::int64_t Statement::integer(int column) const { return sqlite3_column_int64(handle(), column); }

bool Statement::isNull(int column) const {
  return sqlite3_column_type(handle(), column) == SQLITE_NULL;
}

}  // namespace nox::agent
