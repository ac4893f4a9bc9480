// Statement, a prepared statement of SQLite that ends with its owner.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace nox::agent {

/// Thin: what SQLite answers, with errors thrown as StoreError. Parameters and columns count from
/// 0.
class Statement {
public:
  Statement() = default;
  /// Prepares for many uses. Throws StoreError.
  Statement(sqlite3* db, std::string_view sql);

  explicit operator bool() const { return handle_ != nullptr; }
  sqlite3_stmt* handle() const { return handle_.get(); }

  /// The bytes must stay until the next `reset`.
  void bindText(int parameter, std::string_view text);
  void bindBytes(int parameter, std::string_view bytes);
  void bindInteger(int parameter, std::int64_t value);

  /// True with a row, false at the end. Throws StoreError; the statement is reset then.
  bool step();
  /// For a statement without rows: runs and resets it.
  void run();
  void reset() noexcept;

  // Valid until the next `step` or `reset`.
  std::string_view bytes(int column) const;
  std::int64_t integer(int column) const;
  bool isNull(int column) const;

private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const noexcept;
  };
  std::unique_ptr<sqlite3_stmt, Finalize> handle_;
};

/// Resets a statement that is kept when its use ends, also by an exception: a statement that stays
/// in the middle of its rows keeps its connection's read transaction open.
class StatementUse {
public:
  explicit StatementUse(Statement& statement) : statement_(statement) {}
  ~StatementUse() { statement_.reset(); }
  StatementUse(const StatementUse&) = delete;
  StatementUse& operator=(const StatementUse&) = delete;
  Statement* operator->() const { return &statement_; }

private:
  Statement& statement_;
};

}  // namespace nox::agent
