// Transactions: those of the SQL service and of the remote one, which are the same, and the
// branches of distributed ones.
#include <string>

#include <nox/nox.h>

#include "agent/requests/fields.h"
#include "agent/session/dispatcher.h"
#include "agent/session/reply.h"
#include "agent/session/session.h"
#include "agent/session/transactions.h"

namespace nox::agent {

using namespace noxp::remote;
using noxp::sql::TransactionCommitRequestProt;
using noxp::sql::TransactionRollbackRequestProt;
using noxp::sql::TransactionStartRequestProt;

namespace {

void begin(Session& session, TransactionStartRequestProt& request, Reply& reply) {
  session.transactions().begin(request.getIsolationLevel());
  reply.send(OKResponseProt());
}

void commit(Session& session, TransactionCommitRequestProt& /*request*/, Reply& reply) {
  session.transactions().commit();
  reply.send(OKResponseProt());
}

void rollback(Session& session, TransactionRollbackRequestProt& /*request*/, Reply& reply) {
  session.transactions().rollback();
  reply.send(OKResponseProt());
}

void beginRemote(Session& session, BeginTransactionRequestProt& /*request*/, Reply& reply) {
  constexpr int kStoreDefault = 0;
  session.transactions().begin(kStoreDefault);
  reply.send(TransactionResponseProt());
}

void commitRemote(Session& session, CommitTransactionRequestProt& /*request*/, Reply& reply) {
  session.transactions().commit();
  reply.send(TransactionResponseProt());
}

void rollbackRemote(Session& session, RollbackTransactionRequestProt& /*request*/, Reply& reply) {
  session.transactions().rollback();
  reply.send(TransactionResponseProt());
}

BranchId branchOf(const XARequestProt& request) {
  const XAXidProt* const xid = request.getXid();
  if (!xid) return {};
  return {xid->getFormat(), std::string(textOf(xid->getTransactionId()))};
}

/// What all requests about branches do, but for the step itself.
template <class Request, void (Transactions::*step)(const BranchId&)>
void onBranch(Session& session, Request& request, Reply& reply) {
  (session.transactions().*step)(branchOf(request));
  reply.send(TransactionResponseProt());
}

}  // namespace

void registerTransactionRequests(Dispatcher& dispatcher) {
  dispatcher.on<TransactionStartRequestProt>("TransactionStart", begin).isSql = true;
  dispatcher.on<TransactionCommitRequestProt>("TransactionCommit", commit).isSql = true;
  dispatcher.on<TransactionRollbackRequestProt>("TransactionRollback", rollback).isSql = true;
  dispatcher.on<BeginTransactionRequestProt>("BeginTransaction", beginRemote);
  dispatcher.on<CommitTransactionRequestProt>("CommitTransaction", commitRemote);
  dispatcher.on<RollbackTransactionRequestProt>("RollbackTransaction", rollbackRemote);
  dispatcher.on<XAStartTransactionRequestProt>(
      "XAStart", onBranch<XAStartTransactionRequestProt, &Transactions::startBranch>);
  dispatcher.on<XAEndTransactionRequestProt>(
      "XAEnd", onBranch<XAEndTransactionRequestProt, &Transactions::endBranch>);
  dispatcher.on<XAPrepareTransactionRequestProt>(
      "XAPrepare", onBranch<XAPrepareTransactionRequestProt, &Transactions::prepareBranch>);
  dispatcher.on<XACommitTransactionRequestProt>(
      "XACommit", onBranch<XACommitTransactionRequestProt, &Transactions::commitBranch>);
  dispatcher.on<XARollbackTransactionRequestProt>(
      "XARollback", onBranch<XARollbackTransactionRequestProt, &Transactions::rollbackBranch>);
}

}  // namespace nox::agent
