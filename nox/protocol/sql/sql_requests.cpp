#include "nox/protocol/sql/sql_requests.h"

#include <utility>

#include "nox/core/archive.h"

namespace nox::noxp::sql {

SQLRequestStartProt::SQLRequestStartProt(NOXPString* sql) : sql_(Adopted<NOXPString>(sql)) {}
SQLRequestStartProt::SQLRequestStartProt(std::string sql) {
  sql_->assign(sql.data(), sql.size(), false);
}

SQLRequestProt::SQLRequestProt(int id)
    : SQLRequestStartProt(static_cast<NOXPString*>(nullptr)), statementId_(id) {}
SQLRequestProt::SQLRequestProt(int id, NOXPString* sql)
    : SQLRequestStartProt(sql), statementId_(id) {}
SQLRequestProt::SQLRequestProt(int id, std::string sql)
    : SQLRequestStartProt(std::move(sql)), statementId_(id) {}

CompileRequestProt::CompileRequestProt(NOXPString* sql) : Message(sql) {}

Archive& CompileRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  // Deliberate: unnamed, although the two requests below call the same text "sql".
  return ar.process(sql_, nullptr);
}

PrecompileRequestProt::PrecompileRequestProt(NOXPString* sql) : Message(sql) {}

Archive& PrecompileRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(sql_, "sql");
}

CompileAndExecuteRequestProt::CompileAndExecuteRequestProt(NOXPString* sql) : Message(sql) {}

Archive& CompileAndExecuteRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(sql_, "sql");
}

ExecuteRequestProt::ExecuteRequestProt(int statementId) : Message(statementId) {}

Archive& ExecuteRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(statementId_, "statementId");
}

BindRequestProt::BindRequestProt(int statementId) : Message(statementId), params_(nullptr) {}

BindRequestProt::BindRequestProt(int statementId, ParameterListProt* params)
    : Message(statementId), params_(Adopted<ParameterListProt>(params)) {}

Archive& BindRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(statementId_, "statementId").process(params_, "params");
}

CallSubroutineRequestProt::CallSubroutineRequestProt(int statementId, ParameterListProt* params)
    : Message(statementId, params) {}

Archive& CallSubroutineRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  // Deliberate: the layout of version 0, whatever version this request has.
  return BindRequestProt::serialize(ar, 0);
}

FetchRequestProt::FetchRequestProt(int statementId, unsigned long fetchSize)
    : Message(statementId), fetchSize_(static_cast<int>(fetchSize & 0xFFFFFFFFul)) {}

Archive& FetchRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(statementId_, "statementId").process(fetchSize_, "fetchSize");
}

MetaDataRequestProt::MetaDataRequestProt(int statementId) : Message(statementId) {}

Archive& MetaDataRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(statementId_, "statementId");
}

ReleaseStatementRequestProt::ReleaseStatementRequestProt(int statementId) : Message(statementId) {}

Archive& ReleaseStatementRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(statementId_, "statementId");
}

LoadSubroutineRequestProt::LoadSubroutineRequestProt(NOXPString* subroutine)
    : subroutine_(Adopted<NOXPString>(subroutine)) {}

Archive& LoadSubroutineRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(subroutine_, nullptr);
}

DatabaseMetaDataRequestProt::DatabaseMetaDataRequestProt(std::string requestedProperty,
                                                         ParameterListProt* params)
    : requestedProperty_(std::move(requestedProperty)),
      params_(Adopted<ParameterListProt>(params)) {}

Archive& DatabaseMetaDataRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(requestedProperty_, "requestedProperty").process(params_, "params");
}

}  // namespace nox::noxp::sql
