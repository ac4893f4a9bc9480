#include "client/src/message_names.h"

#include <nox/nox.h>

namespace nox::client::detail {

namespace {

struct Name {
  int type;
  const char* name;
};

constexpr Name kRequests[] = {
    {TypeCode::CompileRequest, "Compile"},
    {TypeCode::PrecompileRequest, "Precompile"},
    {TypeCode::ExecuteRequest, "Execute"},
    {TypeCode::BindRequest, "Bind"},
    {TypeCode::FetchRequest, "Fetch"},
    {TypeCode::MetaDataRequest, "MetaData"},
    {TypeCode::ReleaseStatementRequest, "ReleaseStatement"},
    {TypeCode::LoadSubroutineRequest, "LoadSubroutine"},
    {TypeCode::CallSubroutineRequest, "CallSubroutine"},
    {TypeCode::TransactionStartRequest, "TransactionStart"},
    {TypeCode::TransactionCommitRequest, "TransactionCommit"},
    {TypeCode::TransactionRollbackRequest, "TransactionRollback"},
    {TypeCode::CompileAndExecuteRequest, "CompileAndExecute"},
    {TypeCode::AuthenticationRequest, "Authentication"},
    {TypeCode::DatabaseMetaDataRequest, "DatabaseMetaData"},
    {TypeCode::ReadRecordRequest, "ReadRecord"},
    {TypeCode::WriteRecordRequest, "WriteRecord"},
    {TypeCode::DeleteRecordRequest, "DeleteRecord"},
    {TypeCode::ExistsRecordRequest, "ExistsRecord"},
    {TypeCode::OpenFileRequest, "OpenFile"},
    {TypeCode::CloseFileRequest, "CloseFile"},
    {TypeCode::ClearFileRequest, "ClearFile"},
    {TypeCode::SelectFileRequest, "SelectFile"},
    {TypeCode::RemoteSubroutineRequest, "RemoteSubroutine"},
    {TypeCode::RemoteInputRequest, "RemoteInput"},
    {TypeCode::BeginTransactionRequest, "BeginTransaction"},
    {TypeCode::CommitTransactionRequest, "CommitTransaction"},
    {TypeCode::RollbackTransactionRequest, "RollbackTransaction"},
    {TypeCode::XAStartTransactionRequest, "XAStartTransaction"},
    {TypeCode::XAEndTransactionRequest, "XAEndTransaction"},
    {TypeCode::XAPrepareTransactionRequest, "XAPrepareTransaction"},
    {TypeCode::XACommitTransactionRequest, "XACommitTransaction"},
    {TypeCode::XARollbackTransactionRequest, "XARollbackTransaction"},
    {TypeCode::DateTimeRequest, "DateTime"},
    {TypeCode::RemoteExecuteRequest, "RemoteExecute"},
    {TypeCode::ReadCommonRequest, "ReadCommon"},
    {TypeCode::EISMetaDataRequest, "EISMetaData"},
    {TypeCode::ConvRequest, "Conv"},
    {TypeCode::SwitchAccountRequest, "SwitchAccount"},
    {TypeCode::ReleaseRecordLockRequest, "ReleaseRecordLock"},
    {TypeCode::StatementExecuteQueryRequest, "StatementExecuteQuery"},
    {TypeCode::StatementFetchRequest, "StatementFetch"},
    {TypeCode::MonitoringRequest, "Monitoring"},
    {TypeCode::SetPropertiesRequest, "SetProperties"},
    {TypeCode::SelectListFetchRequest, "SelectListFetch"},
    {TypeCode::SelectListCommitRequest, "SelectListCommit"},
    {TypeCode::SelectListCloseRequest, "SelectListClose"},
    {TypeCode::LoggingRequest, "Logging"},
    {TypeCode::EchoRequest, "Echo"},
};

constexpr Name kReplies[] = {
    {TypeCode::ErrorResponse, "Error"},
    {TypeCode::SQLResponse, "SQL"},
    {TypeCode::SQLOKResponse, "SQLOK"},
    {TypeCode::SQLUpdateResponse, "SQLUpdate"},
    {TypeCode::SQLResultResponse, "SQLResult"},
    {TypeCode::SQLRSMDResponse, "SQLRSMD"},
    {TypeCode::SQLParamsResponse, "SQLParams"},
    {TypeCode::SQLErrorResponse, "SQLError"},
    {TypeCode::ToviResponse, "Tovi"},
    {TypeCode::ExecuteResponse, "Execute"},
    {TypeCode::TransactionResponse, "Transaction"},
    {TypeCode::SubroutineResponse, "Subroutine"},
    {TypeCode::InputOutputResponse, "InputOutput"},
    {TypeCode::DateTimeResponse, "DateTime"},
    {TypeCode::ReadCommonResponse, "ReadCommon"},
    {TypeCode::ConvResponse, "Conv"},
    {TypeCode::SwitchAccountResponse, "SwitchAccount"},
    {TypeCode::StatementFetchResponse, "StatementFetch"},
    {TypeCode::MonitoringResponse, "Monitoring"},
    {TypeCode::SetPropertiesResponse, "SetProperties"},
    {TypeCode::EISMetaDataResponse, "EISMetaData"},
    {TypeCode::SelectListFetchResponse, "SelectListFetch"},
    {TypeCode::OKResponse, "OK"},
    {TypeCode::EchoResponse, "Echo"},
};

template <std::size_t count>
const char* find(const Name (&names)[count], int type) {
  for (const Name& name : names) {
    if (name.type == type) return name.name;
  }
  return "Unknown";
}

}  // namespace

const char* requestName(int type) { return find(kRequests, type); }

const char* replyName(int type) { return find(kReplies, type); }

bool isSecret(int type) {
  return type == TypeCode::AuthenticationRequest || type == TypeCode::SwitchAccountRequest;
}

}  // namespace nox::client::detail
