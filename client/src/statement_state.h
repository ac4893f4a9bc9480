// What a Statement is made of, and what answers to SQL have in common.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include <nox/nox.h>

#include "client/src/link.h"
#include "client/src/row_source.h"
#include "nox/client/statement.h"

namespace nox::client {

struct Statement::State {
  State(std::shared_ptr<detail::Link> owner, int statementId)
      : link(std::move(owner)), id(statementId) {}

  std::shared_ptr<detail::Link> link;  // null once it is closed
  const int id;
  std::weak_ptr<detail::RowSource> rows;  // of the last execution
  std::unique_ptr<detail::Description> description;

  detail::Link& use();
  void endRows();
  void close() noexcept;
  const detail::Description& describe();
};

namespace detail {

// A statement of another kind than its caller expects.
constexpr const char* kWrongKind = "07005";
constexpr const char* kWrongCount = "02001";  // of values for a statement's parameters

/// The answer to an execution.
struct SqlAnswer {
  int statementId = 0;
  bool hasRows = false;
  std::unique_ptr<noxp::sql::ResultSetProt> rows;
  std::int64_t changes = 0;
};
SqlAnswer takeSqlAnswer(Link& link, Serializable& request);

Rows requireRows(SqlResult result);
std::int64_t requireNoRows(SqlResult result);

}  // namespace detail
}  // namespace nox::client
