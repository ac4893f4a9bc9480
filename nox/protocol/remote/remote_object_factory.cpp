#include "nox/protocol/remote/remote_object_factory.h"

#include "nox/diag/file_loggers.h"
#include "nox/protocol/common_messages.h"
#include "nox/protocol/parameter_list.h"
#include "nox/protocol/remote/execution_requests.h"
#include "nox/protocol/remote/file_requests.h"
#include "nox/protocol/remote/metadata_messages.h"
#include "nox/protocol/remote/monitoring.h"
#include "nox/protocol/remote/record_requests.h"
#include "nox/protocol/remote/select_list.h"
#include "nox/protocol/remote/select_list_requests.h"
#include "nox/protocol/remote/session_requests.h"
#include "nox/protocol/remote/statement_requests.h"
#include "nox/protocol/remote/transactions.h"

namespace nox::noxp::remote {

RemoteObjectFactory::RemoteObjectFactory() {
  add<ACEBinaryFormatParameterListProt>("ACEBinaryFormatParameterListProt");
  add<ConvRequestProt>("ConvRequest");
  add<SwitchAccountRequestProt>("SwitchAccountRequest");
  add<ReadRecordRequestProt>("ReadRecordRequest");
  add<WriteRecordRequestProt>("WriteRecordRequest");
  add<DeleteRecordRequestProt>("DeleteRecordRequest");
  add<ExistsRecordRequestProt>("ExistsRecordRequest");
  add<OpenFileRequestProt>("OpenFileRequest");
  add<CloseFileRequestProt>("CloseFileRequest");
  add<ClearFileRequestProt>("ClearFileRequest");
  add<SelectFileRequestProt>("SelectFileRequest");
  add<RemoteSubroutineRequestProt>("RemoteSubroutineRequest");
  add<RemoteInputRequestProt>("RemoteInputRequest");
  add<BeginTransactionRequestProt>("BeginTransactionRequest");
  add<CommitTransactionRequestProt>("CommitTransactionRequest");
  add<RollbackTransactionRequestProt>("RollbackTransactionRequest");
  add<XAStartTransactionRequestProt>("XAStartTransactionRequest");
  add<XAEndTransactionRequestProt>("XAEndTransactionRequest");
  add<XAPrepareTransactionRequestProt>("XAPrepareTransactionRequest");
  add<XACommitTransactionRequestProt>("XACommitTransactionRequest");
  add<XARollbackTransactionRequestProt>("XARollbackTransactionRequest");
  add<RemoteExecuteRequestProt>("RemoteExecuteRequest");
  add<DateTimeRequestProt>("DateTimeRequest");
  add<ReadCommonRequestProt>("ReadCommonRequest");
  add<EISMetaDataRequestProt>("EISMetaDataRequest");
  add<SelectListProt>("SelectListProt");
  add<XAXidProt>("XAXid");
  add<ReleaseRecordLockRequestProt>("ReleaseRecordLockRequest");
  add<StatementExecuteQueryRequestProt>("StatementExecuteQueryRequest");
  add<StatementFetchRequestProt>("StatementFetchRequest");
  add<MonitoringRequestProt>("MonitoringRequest");
  add<common::SetPropertiesRequestProt>("SetPropertiesRequest");
  // Deliberate: the established name, which keeps its "Prot".
  add<SelectListFetchRequestProt>("SelectListFetchRequestProt");
}

RemoteObjectFactory::~RemoteObjectFactory() = default;

Serializable* RemoteObjectFactory::create() {
  NOX_LOG(filelog::debug) << "RemoteObjectFactory::create()" << EndLog();
  return newOrNull<RemoteObjectFactory>();
}

}  // namespace nox::noxp::remote
