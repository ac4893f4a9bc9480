// The SQL statements that a session holds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <nox/nox.h>

#include "agent/sql/row_batches.h"
#include "agent/store/store.h"

namespace nox::agent {

class Session;

/// Ids count from 1, at most kMost at a time (IE/001); each names a statement or a subroutine that
/// was loaded. Failures carry the codes of the SQL requests; 26/000 for an id that names nothing,
/// or the other of the two. What a reply carries is the caller's.
class SqlStatements {
public:
  static constexpr std::size_t kMost = 256;
  /// Queries with rows left to read: each keeps a connection to the store.
  static constexpr std::size_t kMostReading = 32;

  /// What an execution answers.
  struct Outcome {
    std::unique_ptr<noxp::sql::ResultSetProt> rows;  // the first batch; null where there are none
    std::int64_t changes = 0;                        // of a statement without rows
  };
  struct Executed {
    int id = 0;
    Outcome outcome;
  };

  explicit SqlStatements(Session& session);
  ~SqlStatements();

  /// Tables and columns must be there.
  int compile(std::string_view sql);
  /// Tables may be missing until the statement is executed.
  int precompile(std::string_view sql);
  /// The values stay bound for all executions to come. 02/001 where there are too many or too few.
  void bind(int id, noxp::ParameterListProt* parameters);
  /// 02/001 where values are missing.
  Outcome execute(int id);
  /// Compiles and executes; a statement that fails is not kept.
  Executed compileAndExecute(std::string_view sql);
  /// At most `rows` rows (below 1: the session's fetch size), none at the end. 24/000 for a
  /// statement without rows, one that was not executed, and one whose transaction has ended.
  std::unique_ptr<noxp::sql::ResultSetProt> fetch(int id, int rows);
  std::unique_ptr<noxp::sql::ResultSetMetaDataProt> describe(int id);
  /// IE/002 for an id that names nothing.
  void release(int id);

  /// IE/004 where there is no such subroutine.
  int load(std::string_view subroutine);
  /// The parameters as the subroutine left them. IE/003 where it fails or aborts itself.
  noxp::ACEBinaryFormatParameterListProt call(int id, noxp::ParameterListProt* parameters);

  /// Facts about the account's tables, by the name of a property: TABLES, COLUMNS, PRIMARYKEYS,
  /// INDEXES, PROCEDURES, TYPES; `patterns` are LIKE patterns for the names. Rows beyond a frame
  /// are fetched with the id 0. 0A/000 for another property.
  std::unique_ptr<noxp::sql::ResultSetProt> databaseMetaData(std::string_view property,
                                                             noxp::ParameterListProt* patterns);

  /// After a reply went out: fills the next batch of the query that the reply was about, so that it
  /// is there when the client asks.
  void prepareNextBatch();
  void closeAll();
  std::size_t size() const { return open_.size(); }

private:
  struct Query {
    std::vector<SqlValue> values;  // as bound last
    std::unique_ptr<SqlStatement> statement;
    std::unique_ptr<RowBatches> batches;  // of the last execution, where it has rows
  };
  struct CatalogQuery {
    std::vector<SqlColumn> columns;
    std::unique_ptr<SqlRows> rows;
    std::unique_ptr<RowBatches> batches;
  };
  struct LoadedSubroutine {
    std::string name;
  };
  using Held = std::variant<Query, LoadedSubroutine>;

  std::unique_ptr<SqlStatement> prepare(std::string_view sql, bool mustExist);
  int keep(Held held);
  void requireRoom() const;
  void requireRights(SqlStatement& statement) const;
  void requireRoomToRead() const;
  Query& query(int id);
  Outcome execute(Query& query);
  /// The next batch, which is followed by another one when the reply has gone out.
  std::unique_ptr<noxp::sql::ResultSetProt> take(RowBatches& batches, std::size_t rows);
  /// Where that fails, the query is over.
  std::unique_ptr<noxp::sql::ResultSetProt> take(Query& query, std::size_t rows);
  void stopReading(const RowBatches* batches);
  std::size_t rowsOrFetchSize(int rows) const;
  RowBatches::Bounds bounds() const;

  Session& session_;
  std::map<int, Held> open_;
  int lastId_ = 0;
  CatalogQuery catalog_;  // answered last; its id is 0
  // What the reply that is going out has a batch of, and how many rows were wanted.
  RowBatches* reading_ = nullptr;
  std::size_t rowsWanted_ = 0;
};

}  // namespace nox::agent
