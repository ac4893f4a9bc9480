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

namespace remote = noxp::remote;
namespace sql = noxp::sql;

namespace {

void begin(Session& session, sql::TransactionStartRequestProt& request, Reply& reply) {
  session.transactions().begin(request.getIsolationLevel());
  reply.send(OKResponseProt());
}

void commit(Session& session, sql::TransactionCommitRequestProt& /*request*/, Reply& reply) {
  session.transactions().commit();
  reply.send(OKResponseProt());
}

void rollback(Session& session, sql::TransactionRollbackRequestProt& /*request*/, Reply& reply) {
  session.transactions().rollback();
  reply.send(OKResponseProt());
}

void beginRemote(Session& session, remote::BeginTransactionRequestProt& /*request*/, Reply& reply) {
  constexpr int kStoreDefault = 0;
  session.transactions().begin(kStoreDefault);
  reply.send(remote::TransactionResponseProt());
}

void commitRemote(Session& session, remote::CommitTransactionRequestProt& /*request*/,
                  Reply& reply) {
  session.transactions().commit();
  reply.send(remote::TransactionResponseProt());
}

void rollbackRemote(Session& session, remote::RollbackTransactionRequestProt& /*request*/,
                    Reply& reply) {
  session.transactions().rollback();
  reply.send(remote::TransactionResponseProt());
}

BranchId branchOf(const remote::XARequestProt& request) {
  const remote::XAXidProt* const xid = request.getXid();
  if (!xid) return {};
  return {xid->getFormat(), std::string(textOf(xid->getTransactionId()))};
}

/// What all requests about branches do, but for the step itself.
template <class Request, void (Transactions::*step)(const BranchId&)>
void onBranch(Session& session, Request& request, Reply& reply) {
  (session.transactions().*step)(branchOf(request));
  reply.send(remote::TransactionResponseProt());
}

}  // namespace

void registerTransactionRequests(Dispatcher& dispatcher) {
  dispatcher.on<sql::TransactionStartRequestProt>("TransactionStart", begin).isSql = true;
  dispatcher.on<sql::TransactionCommitRequestProt>("TransactionCommit", commit).isSql = true;
  dispatcher.on<sql::TransactionRollbackRequestProt>("TransactionRollback", rollback).isSql = true;
  dispatcher.on<remote::BeginTransactionRequestProt>("BeginTransaction", beginRemote);
  dispatcher.on<remote::CommitTransactionRequestProt>("CommitTransaction", commitRemote);
  dispatcher.on<remote::RollbackTransactionRequestProt>("RollbackTransaction", rollbackRemote);
  dispatcher.on<remote::XAStartTransactionRequestProt>(
      "XAStart", onBranch<remote::XAStartTransactionRequestProt, &Transactions::startBranch>);
  dispatcher.on<remote::XAEndTransactionRequestProt>(
      "XAEnd", onBranch<remote::XAEndTransactionRequestProt, &Transactions::endBranch>);
  dispatcher.on<remote::XAPrepareTransactionRequestProt>(
      "XAPrepare", onBranch<remote::XAPrepareTransactionRequestProt, &Transactions::prepareBranch>);
  dispatcher.on<remote::XACommitTransactionRequestProt>(
      "XACommit", onBranch<remote::XACommitTransactionRequestProt, &Transactions::commitBranch>);
  dispatcher.on<remote::XARollbackTransactionRequestProt>(
      "XARollback",
      onBranch<remote::XARollbackTransactionRequestProt, &Transactions::rollbackBranch>);
}

}  // namespace nox::agent
