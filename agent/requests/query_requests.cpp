// Queries and their rows: 226 and 227.
#include <memory>

#include <nox/nox.h>

#include "agent/commands/queries.h"
#include "agent/lists/select_lists.h"
#include "agent/requests/fields.h"
#include "agent/session/dispatcher.h"
#include "agent/session/reply.h"
#include "agent/session/session.h"

namespace nox::agent {

namespace {

using noxp::remote::StatementExecuteQueryRequestProt;
using noxp::remote::StatementFetchRequestProt;

void executeQuery(Session& session, StatementExecuteQueryRequestProt& request, Reply& reply) {
  // In version 0 the list stays behind, and the request has an empty one of its own.
  if (request.getSerializedVersion() != 0) session.lists().activate(request.getSelectList());
  reply.send(*session.queries().execute(bytesOf(request.getQuery())));
}

void fetchRows(Session& session, StatementFetchRequestProt& request, Reply& reply) {
  reply.send(*session.queries().fetch(request.getStatementId(), request.getRowsToFetch()));
}

}  // namespace

void registerQueryRequests(Dispatcher& dispatcher) {
  dispatcher.on<StatementExecuteQueryRequestProt>("ExecuteQuery", executeQuery);
  dispatcher.on<StatementFetchRequestProt>("FetchRows", fetchRows);
}

}  // namespace nox::agent
