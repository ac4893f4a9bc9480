// Where Rows come from: a statement's answer, batch by batch.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <nox/nox.h>

#include "client/src/link.h"
#include "nox/client/statement.h"

namespace nox::client::detail {

/// What a statement's columns and parameters are.
struct Description {
  std::vector<Column> columns;
  std::vector<Column> parameters;
};
Description describe(Link& link, int statementId);

/// Releases a statement on the server, without waiting.
void releaseStatement(Link& link, int statementId) noexcept;

/// One execution's rows; only the current batch is in memory.
class RowSource {
public:
  enum class Ownership {
    Statement,  // the statement was made for these rows, and goes with them
    Borrowed    // it is somebody else's
  };

  /// `first` is the batch that came with the execution.
  RowSource(std::shared_ptr<Link> link, int statementId, Ownership ownership,
            std::unique_ptr<noxp::sql::ResultSetProt> first);
  RowSource(const RowSource&) = delete;
  RowSource& operator=(const RowSource&) = delete;
  ~RowSource();

  void setFetchSize(int rows) { fetchSize_ = rows; }
  bool next();
  const Row& row() const { return row_; }
  const std::vector<Column>& columns();
  std::size_t columnIndex(std::string_view name);
  /// Ends: releases what is owned. No more rows.
  void close() noexcept;
  /// The statement was executed again: these rows are no more.
  void invalidate();

private:
  bool show(noxp::sql::RowProt* row);

  std::shared_ptr<Link> link_;  // null once closed
  const int statementId_;
  const Ownership ownership_;
  int fetchSize_;
  std::unique_ptr<noxp::sql::ResultSetProt> batch_;
  Row row_;
  bool isAtEnd_ = false;
  bool isInvalid_ = false;
  std::unique_ptr<Description> description_;
};

}  // namespace nox::client::detail
