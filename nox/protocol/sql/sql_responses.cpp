#include "nox/protocol/sql/sql_responses.h"

#include <new>
#include <string>

#include "nox/core/archive.h"
#include "nox/diag/file_loggers.h"

namespace nox::noxp::sql {

namespace {

/// A new reply, or null without memory.
template <class Reply, class Object>
ResponseProt* replyWith(int statementId, Object* object) {
  return new (std::nothrow) Reply(statementId, object);
}

}  // namespace

Archive& SQLResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(statementId_, "statementId");
}

Archive& SQLOKResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  std::string ok = "OK";  // a reader's text ends here, unchecked
  return ar.process(statementId_, "statementId").process(ok, "OK");
}

Archive& SQLUpdateResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(statementId_, "statementId").process(updateCount_, "updateCount");
}

ResponseProt* SQLResultResponseProt::resultSet(int statementId, ResultSetProt* rs) {
  return replyWith<SQLResultResponseProt>(statementId, rs);
}

Archive& SQLResultResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  if (!ar.isWriting()) rs_.own(std::make_unique<ResultSetProt>());
  return ar.process(statementId_, "statementId").process(rs_.get(), "rs");
}

ResponseProt* SQLRSMDResponseProt::resultSetMetaData(int statementId, ResultSetMetaDataProt* rsmd) {
  return replyWith<SQLRSMDResponseProt>(statementId, rsmd);
}

Archive& SQLRSMDResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  if (!ar.isWriting()) rsmd_.own(std::make_unique<ResultSetMetaDataProt>());
  return ar.process(statementId_, "statementId").process(rsmd_.get(), "rsmd");
}

ResponseProt* SQLParamsResponseProt::callResults(int statementId, ParameterListProt* params) {
  return replyWith<SQLParamsResponseProt>(statementId, params);
}

Archive& SQLParamsResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  if (!ar.isWriting()) parameterList_.own(std::make_unique<ACEBinaryFormatParameterListProt>());
  return ar.process(statementId_, "statementId").process(parameterList_.get(), "parameterList");
}

SQLErrorResponseProt::SQLErrorResponseProt(int statementId, const SQLExtError& e)
    : Message(statementId), err_(Copied<SQLExtError>(&e)) {
  NOX_LOG(filelog::error) << " " << err_->getMsg() << EndLog();
}

SQLErrorResponseProt::SQLErrorResponseProt(int statementId, const SQLExtError& e, const char* file,
                                           int line)
    : Message(statementId), err_(Copied<SQLExtError>(&e)) {
  NOX_LOG(filelog::error) << err_->getMsg() << file << static_cast<long>(line) << EndLog();
}

Archive& SQLErrorResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  if (!ar.isWriting()) err_.emplaceEmpty();
  return ar.process(statementId_, "statementId").process(err_, "err");
}

Archive& LegacySQLResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  // Whatever a peer puts into these fields is read and dropped. Deliberate: the statement id is a
  // string operation here.
  Serializable* const nothing = nullptr;
  NOXPString dropped;
  NOXPString* const statementId = ar.isWriting() ? nullptr : &dropped;
  int updateCount = 0;
  int wasAnUpdate = 0;
  return ar.process(nothing, "rs")
      .process(nothing, "rsmd")
      .process(statementId, "statementId")
      .process(updateCount, "updateCount")
      .process(wasAnUpdate, "wasAnUpdate")
      .process(nothing, "parameterList");
}

}  // namespace nox::noxp::sql
