#include "nox/protocol/remote/statement_requests.h"

#include <string>
#include <utility>

namespace nox::noxp::remote {

namespace {

// From this version on the query is a blob and the select list follows it.
constexpr unsigned int kVersionWithBlobAndList = 1;

}  // namespace

StatementExecuteQueryRequestProt::StatementExecuteQueryRequestProt() {
  selectList_.emplaceEmpty();
  serverSide = true;
}

StatementExecuteQueryRequestProt::StatementExecuteQueryRequestProt(
    Adopted<NOXPBlob> query, Borrowed<SelectListProt> selectList)
    : query_(std::move(query)), selectList_(selectList) {
  if (!query_) query_.emplaceEmpty();
}

StatementExecuteQueryRequestProt::StatementExecuteQueryRequestProt(
    const char* query, Borrowed<SelectListProt> selectList)
    : query_(CopiedBlob(query)), selectList_(selectList) {}

StatementExecuteQueryRequestProt::StatementExecuteQueryRequestProt(
    const StatementExecuteQueryRequestProt* other)
    : StatementExecuteQueryRequestProt() {
  if (other) *this = *other;
}

Archive& StatementExecuteQueryRequestProt::serialize(Archive& ar, unsigned int version) {
  serializedVersion = version;
  if (version >= kVersionWithBlobAndList) {
    return ar.process(query_, "_query").process(selectList_, "selectList");
  }
  std::string query;
  if (ar.isWriting()) {
    query.assign(reinterpret_cast<const char*>(query_->getBuf()), query_->length());
  }
  ar.process(query, "_query");
  if (!ar.isWriting()) query_->assign(query.data(), query.size());
  return ar;
}

StatementFetchRequestProt::StatementFetchRequestProt(int statementId, int rowsToFetch)
    : statementId_(statementId), rowsToFetch_(rowsToFetch) {}

StatementFetchRequestProt::StatementFetchRequestProt(const StatementFetchRequestProt* other) {
  if (other) *this = *other;
}

Archive& StatementFetchRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(statementId_, "_statementId").process(rowsToFetch_, "_rowsToFetch");
}

}  // namespace nox::noxp::remote
