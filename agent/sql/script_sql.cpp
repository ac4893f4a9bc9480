#include "agent/sql/script_sql.h"

#include <memory>
#include <utility>

#include "agent/failure.h"
#include "agent/session/session.h"
#include "agent/sql/sql_failure.h"

namespace nox::agent {

namespace {

void gather(SqlStatement& statement, ScriptSqlResult& result) {
  for (const SqlColumn& column : statement.columns()) result.columns.push_back(column.name);
  std::size_t bytes = 0;
  while (const SqlRow* const row = statement.next()) {
    auto& values = result.rows.emplace_back();
    values.reserve(row->size());
    for (const std::optional<std::string_view>& value : *row) {
      values.emplace_back();
      if (value) values.back().emplace(*value);
      bytes += value ? value->size() : 0;
    }
    if (result.rows.size() > kMostScriptRows || bytes > kMostScriptBytes) {
      throw Failure("22", "003", "the query has more rows than a subroutine can take");
    }
  }
}

}  // namespace

ScriptSqlResult runSql(Session& session, std::string_view text,
                       const std::vector<SqlValue>& parameters) {
  ScriptSqlResult result;
  try {
    const auto statement = session.store().prepare(text, true);
    if (!statement->isReadOnly()) session.requireWrite();
    const auto count = static_cast<std::size_t>(statement->parameterCount().value_or(0));
    if (parameters.size() != count) {
      throw Failure("02", "001",
                    std::to_string(parameters.size()) + " values for " + std::to_string(count) +
                        " parameters");
    }
    statement->execute(parameters);
    result.isQuery = statement->isQuery();
    if (result.isQuery) {
      gather(*statement, result);
    } else {
      result.changes = statement->changes();
    }
  } catch (const StoreError& error) {
    throwAsSqlFailure(error);
  }
  return result;
}

}  // namespace nox::agent
