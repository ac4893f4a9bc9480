// SQL as subroutines run it: all rows at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/store/store.h"

namespace nox::agent {

class Session;

struct ScriptSqlResult {
  bool isQuery = false;
  std::vector<std::string> columns;  // names
  /// Values as UTF-8 text or bytes; nothing for null.
  std::vector<std::vector<std::optional<std::string>>> rows;
  std::int64_t changes = 0;  // of a statement that is no query
};

constexpr std::size_t kMostScriptRows = 100'000;
constexpr std::size_t kMostScriptBytes = 32u * 1024u * 1024u;  // of all values together

/// Runs one statement with its parameters and the session's rights, in the transaction that is
/// open. Failures carry the codes of the SQL requests; 22/003 where the
/// rows are more than the two limits allow.
ScriptSqlResult runSql(Session& session, std::string_view text,
                       const std::vector<SqlValue>& parameters);

}  // namespace nox::agent
