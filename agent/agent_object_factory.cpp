#include "agent/agent_object_factory.h"

#include "agent/http/http_request.h"

namespace nox::agent {

namespace common = noxp::common;
namespace remote = noxp::remote;
namespace sql = noxp::sql;

LoginObjectFactory::LoginObjectFactory() { add<HttpRequest>("HTTPRequest"); }

Serializable* LoginObjectFactory::create() { return newOrNull<LoginObjectFactory>(); }

AgentObjectFactory::AgentObjectFactory() {
  add<sql::CompileRequestProt>("CompileRequest");
  add<sql::PrecompileRequestProt>("PrecompileRequest");
  add<sql::ExecuteRequestProt>("ExecuteRequest");
  add<sql::BindRequestProt>("BindRequest");
  add<sql::FetchRequestProt>("FetchRequest");
  add<sql::MetaDataRequestProt>("MetaDataRequest");
  add<sql::ReleaseStatementRequestProt>("ReleaseStatementRequest");
  add<sql::LoadSubroutineRequestProt>("LoadSubroutineRequest");
  add<sql::CallSubroutineRequestProt>("CallSubroutineRequest");
  add<sql::TransactionStartRequestProt>("TransactionStartRequest");
  add<sql::TransactionCommitRequestProt>("TransactionCommitRequest");
  add<sql::TransactionRollbackRequestProt>("TransactionRollbackRequest");
  add<sql::CompileAndExecuteRequestProt>("CompileAndExecuteRequest");
  add<sql::DatabaseMetaDataRequestProt>("DatabaseMetaDataRequest");
  add<remote::SelectListCommitRequestProt>("SelectListCommitRequest");
  add<remote::SelectListCloseRequestProt>("SelectListCloseRequest");
  add<common::LoggingRequestProt>("LoggingRequest");
  add<common::EchoRequestProt>("EchoRequest");
  add<HttpRequest>("HTTPRequest");
}

Serializable* AgentObjectFactory::create() { return newOrNull<AgentObjectFactory>(); }

}  // namespace nox::agent
