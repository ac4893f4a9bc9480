#include "nox/protocol/sql/sql_object_factory.h"

#include "nox/diag/file_loggers.h"
#include "nox/protocol/common_messages.h"
#include "nox/protocol/parameter_list.h"
#include "nox/protocol/sql/result_set.h"
#include "nox/protocol/sql/sql_requests.h"
#include "nox/protocol/sql/sql_responses.h"
#include "nox/protocol/sql/transaction_requests.h"
#include "nox/protocol/sql_ext_error.h"
#include "nox/protocol/status_replies.h"

namespace nox::noxp::sql {

SQLObjectFactory::SQLObjectFactory() {
  add<OKResponseProt>("OKResponse");
  add<ErrorResponseProt>("ErrorResponse");
  add<common::SetPropertiesRequestProt>("SetPropertiesRequestProt");
  add<common::SetPropertiesResponseProt>("SetPropertiesResponseProt");
  add<CompileRequestProt>("CompileRequest");
  add<PrecompileRequestProt>("PrecompileRequest");
  add<ExecuteRequestProt>("ExecuteRequest");
  add<BindRequestProt>("BindRequest");
  add<FetchRequestProt>("FetchRequest");
  add<DatabaseMetaDataRequestProt>("DatabaseMetaDataRequest");
  add<MetaDataRequestProt>("MetaDataRequest");
  add<ReleaseStatementRequestProt>("ReleaseStatementRequest");
  add<LoadSubroutineRequestProt>("LoadSubroutineRequest");
  add<CallSubroutineRequestProt>("CallSubroutineRequest");
  add<TransactionStartRequestProt>("TransactionStartRequest");
  add<TransactionCommitRequestProt>("TransactionCommitRequest");
  add<TransactionRollbackRequestProt>("TransactionRollbackRequest");
  add<CompileAndExecuteRequestProt>("CompileAndExecuteRequest");
  add<ACEBinaryFormatParameterListProt>("ACEBinaryFormatParameterListProt");
  add<SQLResponseProt>("SQLResponseProt");
  // Deliberate: the next two names are the established ones, the second that of another class.
  add<SQLErrorResponseProt>("SQLErrorResponseProtProt");
  add<SQLExtError>("SQLErrorResponseProt");
  add<ResultSetProt>("ResultSetProt");
  add<RowProt>("RowProt");
  add<SQLOKResponseProt>("SQLOKResponse");
  add<SQLUpdateResponseProt>("SQLUpdateResponse");
  add<SQLResultResponseProt>("SQLResultResponse");
  add<SQLRSMDResponseProt>("SQLRSMDResponse");
  add<SQLParamsResponseProt>("SQLParamsResponse");
  add<ResultSetMetaDataProt>("ResultSetMetaDataProt");
  add<ColumnMetaDataProt>("ColumnMetaDataProt");
  add<InputOutputResponseProt>("InputOutputResponseProt");
}

Serializable* SQLObjectFactory::create() {
  NOX_LOG(filelog::debug) << "SQLObjectFactory::create()" << EndLog();
  return newOrNull<SQLObjectFactory>();
}

}  // namespace nox::noxp::sql
