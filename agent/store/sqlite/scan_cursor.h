// ScanCursor: the records of a part in key order, as they were when it was made.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "agent/store/sqlite/connection_pool.h"
#include "agent/store/sqlite/sqlite_statement.h"
#include "agent/store/store.h"

namespace nox::agent {

class SqliteSession;

/// Reads on a connection of its own, whose read transaction keeps the state. In a transaction that
/// has written it reads on the transaction's connection, and moves what is left of its rows to a
/// temporary table before the transaction changes anything.
class ScanCursor : public RecordCursor {
public:
  /// `session`: the one whose transaction `lease` belongs to; null for a connection of its own.
  ScanCursor(ConnectionLease lease, SqliteSession* session, const FilePart& file, bool withBodies,
             std::string_view from);
  ~ScanCursor() override;

  bool next() override;
  std::string_view key() const override { return key_; }
  std::string_view body() const override { return body_; }

  /// Takes the rows that are left along. When that fails, `next` throws what happened.
  void detach() noexcept;
  /// The transaction is over and nothing more is written on its connection.
  void forgetSession() { session_ = nullptr; }

private:
  /// A temporary database for rows that are taken along.
  struct Rows;

  void release() noexcept;

  ConnectionLease lease_;
  SqliteSession* session_;
  const bool withBodies_;
  const std::string from_;
  bool ownsTransaction_ = false;
  Statement statement_;
  bool stepped_ = false;  // the statement stands on the row that `next` is to give
  bool over_ = false;
  std::unique_ptr<Rows> rows_;
  std::exception_ptr failure_;
  std::string_view key_;
  std::string_view body_;
  // The row where it stood when it was detached.
  std::string keptKey_;
  std::string keptBody_;
};

}  // namespace nox::agent
