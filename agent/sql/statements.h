// The SQL statements that a session holds.
#pragma once

#include <map>
#include <memory>
#include <string_view>

#include <nox/nox.h>

namespace nox::agent {

class Session;

/// Ids count from 1, at most kMost. Failures carry the codes of the SQL requests.
class SqlStatements {
public:
  static constexpr std::size_t kMost = 256;

  explicit SqlStatements(Session& session);
  ~SqlStatements();

  /// After a reply went out: fills the next batch of the query that was fetched last, so that it is
  /// there when the client asks.
  void prepareNextBatch();
  void closeAll();

  struct Impl;
  Impl& impl() { return *impl_; }

private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace nox::agent
