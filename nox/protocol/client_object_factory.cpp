#include "nox/protocol/client_object_factory.h"

#include "nox/auth/credentials.h"
#include "nox/diag/file_loggers.h"
#include "nox/protocol/common_messages.h"
#include "nox/protocol/parameter_list.h"
#include "nox/protocol/remote/metadata_messages.h"
#include "nox/protocol/remote/monitoring.h"
#include "nox/protocol/remote/remote_responses.h"
#include "nox/protocol/remote/select_list.h"
#include "nox/protocol/remote/select_list_requests.h"
#include "nox/protocol/remote/transactions.h"
#include "nox/protocol/sql/result_set.h"
#include "nox/protocol/sql/sql_responses.h"
#include "nox/protocol/sql_ext_error.h"
#include "nox/protocol/status_replies.h"

namespace nox {

ClientObjectFactory::ClientObjectFactory() {
  // Generic and common.
  add<OKResponseProt>("OKResponse");
  add<ErrorResponseProt>("ErrorResponse");
  add<SQLExtError>("SQLExtError");
  add<noxp::InputOutputResponseProt>("InputOutputResponse");
  add<noxp::common::EchoResponseProt>("EchoResponse");
  add<noxp::common::SetPropertiesResponseProt>("SetPropertiesResponse");
  add<noxp::ACEBinaryFormatParameterListProt>("ACEBinaryFormatParameterListProt");
  add<LocalUserCredentials>("UserCredentials");
  add<AccountUserCredentialsProt>("AccountUserCredentials");

  // SQL.
  add<noxp::sql::LegacySQLResponseProt>("LegacySQLResponse");
  add<noxp::sql::SQLResponseProt>("SQLResponse");
  add<noxp::sql::SQLOKResponseProt>("SQLOKResponse");
  add<noxp::sql::SQLUpdateResponseProt>("SQLUpdateResponse");
  add<noxp::sql::SQLResultResponseProt>("SQLResultResponse");
  add<noxp::sql::SQLRSMDResponseProt>("SQLRSMDResponse");
  add<noxp::sql::SQLParamsResponseProt>("SQLParamsResponse");
  add<noxp::sql::SQLErrorResponseProt>("SQLErrorResponse");
  add<noxp::sql::ResultSetProt>("ResultSet");
  add<noxp::sql::RowProt>("Row");
  add<noxp::sql::ResultSetMetaDataProt>("ResultSetMetaData");
  add<noxp::sql::ColumnMetaDataProt>("ColumnMetaData");

  // Remote.
  add<noxp::remote::ToviResponseProt>("ToviResponse");
  add<noxp::remote::ExecuteResponseProt>("ExecuteResponse");
  add<noxp::remote::TransactionResponseProt>("TransactionResponse");
  add<noxp::remote::SubroutineResponseProt>("SubroutineResponse");
  add<noxp::remote::DateTimeResponseProt>("DateTimeResponse");
  add<noxp::remote::ReadCommonResponseProt>("ReadCommonResponse");
  add<noxp::remote::ConvResponseProt>("ConvResponse");
  add<noxp::remote::SwitchAccountResponseProt>("SwitchAccountResponse");
  add<noxp::remote::StatementFetchResponseProt>("StatementFetchResponse");
  add<noxp::remote::MonitoringResponseProt>("MonitoringResponse");
  add<noxp::remote::EISMetaDataReplyProt>("EISMetaDataResponse");
  add<noxp::remote::SelectListFetchResponseProt>("SelectListFetchResponse");
  add<noxp::remote::SelectListProt>("SelectListProt");
  add<noxp::remote::SelectListProt5>("SelectListProt5");
  add<noxp::remote::XAXidProt>("XAXid");
}

Serializable* ClientObjectFactory::create() {
  NOX_LOG(filelog::debug) << "ClientObjectFactory::create()" << EndLog();
  return newOrNull<ClientObjectFactory>();
}

}  // namespace nox
