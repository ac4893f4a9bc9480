// The SQL requests, transactions apart.
#include <algorithm>
#include <cstdint>
#include <limits>

#include <nox/nox.h>

#include "agent/requests/fields.h"
#include "agent/session/dispatcher.h"
#include "agent/session/reply.h"
#include "agent/session/session.h"
#include "agent/sql/statements.h"

namespace nox::agent {

namespace {

using noxp::sql::BindRequestProt;
using noxp::sql::CallSubroutineRequestProt;
using noxp::sql::CompileAndExecuteRequestProt;
using noxp::sql::CompileRequestProt;
using noxp::sql::DatabaseMetaDataRequestProt;
using noxp::sql::ExecuteRequestProt;
using noxp::sql::FetchRequestProt;
using noxp::sql::LoadSubroutineRequestProt;
using noxp::sql::MetaDataRequestProt;
using noxp::sql::PrecompileRequestProt;
using noxp::sql::ReleaseStatementRequestProt;
using noxp::sql::SQLOKResponseProt;
using noxp::sql::SQLParamsResponseProt;
using noxp::sql::SQLResultResponseProt;
using noxp::sql::SQLRSMDResponseProt;
using noxp::sql::SQLUpdateResponseProt;

/// A count beyond what the reply can hold is told as the most that it can.
int updateCount(std::int64_t changes) {
  return static_cast<int>(std::min<std::int64_t>(changes, std::numeric_limits<int>::max()));
}

void sendOutcome(int id, const SqlStatements::Outcome& outcome, Reply& reply) {
  if (outcome.rows) {
    reply.send(SQLResultResponseProt(id, outcome.rows.get()));
  } else {
    reply.send(SQLUpdateResponseProt(id, updateCount(outcome.changes)));
  }
}

void compile(Session& session, CompileRequestProt& request, Reply& reply) {
  reply.send(SQLOKResponseProt(session.statements().compile(textOf(request.getSQL()))));
}

void precompile(Session& session, PrecompileRequestProt& request, Reply& reply) {
  reply.send(SQLOKResponseProt(session.statements().precompile(textOf(request.getSQL()))));
}

void bind(Session& session, BindRequestProt& request, Reply& reply) {
  session.statements().bind(request.getStatementId(), request.getParams());
  reply.send(SQLOKResponseProt(request.getStatementId()));
}

void execute(Session& session, ExecuteRequestProt& request, Reply& reply) {
  const int id = request.getStatementId();
  sendOutcome(id, session.statements().execute(id), reply);
}

void compileAndExecute(Session& session, CompileAndExecuteRequestProt& request, Reply& reply) {
  const auto executed = session.statements().compileAndExecute(textOf(request.getSQL()));
  sendOutcome(executed.id, executed.outcome, reply);
}

void fetch(Session& session, FetchRequestProt& request, Reply& reply) {
  const int id = request.getStatementId();
  const auto rows = session.statements().fetch(id, request.getFetchSize());
  reply.send(SQLResultResponseProt(id, rows.get()));
}

void describe(Session& session, MetaDataRequestProt& request, Reply& reply) {
  const int id = request.getStatementId();
  const auto description = session.statements().describe(id);
  reply.send(SQLRSMDResponseProt(id, description.get()));
}

void release(Session& session, ReleaseStatementRequestProt& request, Reply& reply) {
  session.statements().release(request.getStatementId());
  reply.send(SQLOKResponseProt(request.getStatementId()));
}

void load(Session& session, LoadSubroutineRequestProt& request, Reply& reply) {
  reply.send(SQLOKResponseProt(session.statements().load(textOf(request.getSubroutine()))));
}

void call(Session& session, CallSubroutineRequestProt& request, Reply& reply) {
  const int id = request.getStatementId();
  auto parameters = session.statements().call(id, request.getParams());
  reply.send(SQLParamsResponseProt(id, &parameters));
}

void databaseMetaData(Session& session, DatabaseMetaDataRequestProt& request, Reply& reply) {
  const auto rows = session.statements().databaseMetaData(request.getRequestProtedProperty(),
                                                          request.getParams());
  reply.send(SQLResultResponseProt(0, rows.get()));
}

}  // namespace

void registerSqlRequests(Dispatcher& dispatcher) {
  dispatcher.on<CompileRequestProt>("SqlCompile", compile).isSql = true;
  dispatcher.on<PrecompileRequestProt>("SqlPrecompile", precompile).isSql = true;
  dispatcher.on<BindRequestProt>("SqlBind", bind).isSql = true;
  dispatcher.on<ExecuteRequestProt>("SqlExecute", execute).isSql = true;
  dispatcher.on<CompileAndExecuteRequestProt>("SqlCompileAndExecute", compileAndExecute).isSql =
      true;
  dispatcher.on<FetchRequestProt>("SqlFetch", fetch).isSql = true;
  dispatcher.on<MetaDataRequestProt>("SqlMetaData", describe).isSql = true;
  dispatcher.on<ReleaseStatementRequestProt>("SqlRelease", release).isSql = true;
  dispatcher.on<LoadSubroutineRequestProt>("SqlLoad", load).isSql = true;
  dispatcher.on<CallSubroutineRequestProt>("SqlCall", call).isSql = true;
  dispatcher.on<DatabaseMetaDataRequestProt>("SqlDatabaseMetaData", databaseMetaData).isSql = true;
}

}  // namespace nox::agent
