// SqliteSqlStatement: a client's statement, which borrows a connection while it has work there.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/store/sqlite/client_statements.h"
#include "agent/store/sqlite/sqlite_session.h"
#include "agent/store/store.h"

namespace nox::agent {

/// Holds the text only; SQLite's own statements stay with the connections, which keep them. A query
/// keeps its connection until its last row, and sees one state of the store.
class SqliteSqlStatement : public SqlStatement, private SqliteSession::Query {
public:
  /// All values of a statement that writes and answers rows (RETURNING) are gathered before its
  /// change is committed; this many bytes at most.
  static constexpr std::size_t kMostReturnedBytes = 16u * 1024u * 1024u;

  SqliteSqlStatement(SqliteSession& session, std::string sql);
  ~SqliteSqlStatement() override;

  std::optional<int> parameterCount() override;
  bool isQuery() override;
  bool isReadOnly() override;
  std::vector<SqlColumn> columns() override;
  std::vector<SqlColumn> parameters() override;
  void execute(const std::vector<SqlValue>& values) override;
  std::int64_t changes() override { return changes_; }
  const SqlRow* next() override;
  bool give(SqlRowTaker& taker) override;
  bool isOverWithTransaction() override { return overWithTransaction_; }
  void close() override;

private:
  /// What preparing it has shown.
  struct Facts {
    int parameters = 0;
    bool isQuery = false;
    bool isReadOnly = false;
  };
  /// What a column keeps from row to row.
  struct ColumnState {
    std::array<char, 24> number{};  // the text of the number that it holds
    bool holdsBytes = false;        // did in the row before
  };
  using ReturnedRow = std::vector<std::optional<std::string>>;

  const Facts& facts();
  /// Prepares it on a connection to read with, and lends both to `use`.
  template <class Use>
  auto prepared(Use use);
  void read(const std::vector<SqlValue>& values);
  void write(const std::vector<SqlValue>& values);
  const SqlRow* rowOf(ClientStatement& statement);
  void endWithTransaction() noexcept override;

  SqliteSession& session_;
  const std::string sql_;
  std::optional<Facts> facts_;
  std::int64_t changes_ = 0;

  // A query that is open.
  ConnectionLease lease_;
  std::unique_ptr<ClientStatement> statement_;
  bool atFirst_ = false;  // the first row was fetched, and not asked for yet
  SqlRow row_;
  std::vector<ColumnState> states_;

  // What a writing statement has returned, the first row last.
  std::vector<ReturnedRow> returned_;
  ReturnedRow returnedRow_;

  bool isInTransaction_ = false;  // and told of its end
  bool overWithTransaction_ = false;
};

}  // namespace nox::agent
