// Requests that run a query to build a select list, and that fetch a statement's rows.
//
// A query is answered with an ExecuteResponseProt, a fetch with a StatementFetchResponseProt.
#pragma once

#include "nox/core/archive.h"
#include "nox/core/owned.h"
#include "nox/protocol/message.h"
#include "nox/protocol/remote/select_list.h"

namespace nox::noxp::remote {

/// Runs a query, over the records of a select list if one is given.
///
/// In version 0 of the layout the query travels as plain text and the list stays behind: the text
/// then ends at its first NUL and goes through the process code page. A client calls
/// `setClassVersion(1)` so that bytes and list travel as they are.
class NOX_EXPORT StatementExecuteQueryRequestProt
    : public Request<StatementExecuteQueryRequestProt, TypeCode::StatementExecuteQueryRequest> {
public:
  /// A server-side request with an empty query and an empty list of its own.
  StatementExecuteQueryRequestProt();
  /// Takes the query over and borrows the list. A null query is an empty one, a null list travels
  /// as the null object.
  StatementExecuteQueryRequestProt(Adopted<NOXPBlob> query, Borrowed<SelectListProt> selectList);
  /// Copies the text and borrows the list.
  StatementExecuteQueryRequestProt(const char* query, Borrowed<SelectListProt> selectList);
  /// A copy is deep and owns its list, whoever owned the original's.
  StatementExecuteQueryRequestProt(const StatementExecuteQueryRequestProt& other) = default;
  /// The same; of null, a default request.
  explicit StatementExecuteQueryRequestProt(const StatementExecuteQueryRequestProt* other);
  StatementExecuteQueryRequestProt& operator=(const StatementExecuteQueryRequestProt& other) =
      default;

  NOXPBlob* getQuery() const { return query_.get(); }
  SelectListProt* getSelectList() const { return selectList_.get(); }
  bool ownsSelectList() const { return selectList_.owns(); }

  /// Keeps `version` for getSerializedVersion().
  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  OwnedBlob query_;  // never absent
  MaybeOwned<SelectListProt> selectList_;
};

/// Fetches the next rows of a prepared statement.
class NOX_EXPORT StatementFetchRequestProt
    : public Request<StatementFetchRequestProt, TypeCode::StatementFetchRequest> {
public:
  StatementFetchRequestProt() = default;
  StatementFetchRequestProt(int statementId, int rowsToFetch);
  StatementFetchRequestProt(const StatementFetchRequestProt& other) = default;
  /// Of null, a default request.
  explicit StatementFetchRequestProt(const StatementFetchRequestProt* other);
  StatementFetchRequestProt& operator=(const StatementFetchRequestProt& other) = default;

  int getStatementId() const { return statementId_; }
  int getRowsToFetch() const { return rowsToFetch_; }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  int statementId_ = 0;
  int rowsToFetch_ = 0;
};

}  // namespace nox::noxp::remote
