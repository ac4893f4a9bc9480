#include "nox/protocol/remote/transactions.h"

#include "nox/diag/file_loggers.h"
#include "nox/protocol/remote/trace.h"

namespace nox::noxp::remote {

namespace {

/// Deliberate: every XA request traces with "<= " alone, whether its xid was processed or not.
void traceXid(const char* arrowAndClass, const XARequestProt* request) {
  const XAXidProt* xid = request->getXid();
  traceField(filelog::debug, arrowAndClass, request, "_xid->getTransactionId()",
             xid ? xid->getTransactionId() : nullptr);
}

}  // namespace

BeginTransactionRequestProt::~BeginTransactionRequestProt() {
  NOX_LOG(filelog::debug) << "BeginTransactionRequestProt::~BeginTransactionRequestProt\n"
                          << EndLog();
}

Archive& BeginTransactionRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar;
}

CommitTransactionRequestProt::~CommitTransactionRequestProt() {
  NOX_LOG(filelog::debug) << "CommitTransactionRequestProt::~CommitTransactionRequestProt\n"
                          << EndLog();
}

Archive& CommitTransactionRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar;
}

RollbackTransactionRequestProt::~RollbackTransactionRequestProt() {
  NOX_LOG(filelog::debug) << "RollbackTransactionRequestProt::~RollbackTransactionRequestProt\n"
                          << EndLog();
}

Archive& RollbackTransactionRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar;
}

XAXidProt::XAXidProt(const XAXidProt& other)
    : Message(other), transactionId_(other.transactionId_) {
  // Deliberate: the format is not copied, here and in the assignment.
  NOX_LOG(filelog::debug) << "XAXidProt::XAXidProt(XAXidProt &rhs)" << EndLog();
}

XAXidProt::XAXidProt(const XAXidProt* other) {
  if (other) *this = *other;
  NOX_LOG(filelog::debug) << "XAXidProt::XAXidProt(XAXidProt *rhs)" << EndLog();
}

XAXidProt& XAXidProt::operator=(const XAXidProt& other) {
  Message::operator=(other);
  transactionId_ = other.transactionId_;
  return *this;
}

Archive& XAXidProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(transactionId_, "_transactionId").process(format_, "_format");
}

XAStartTransactionRequestProt::~XAStartTransactionRequestProt() {
  NOX_LOG(filelog::debug) << "XAStartTransactionRequestProt::~XAStartTransactionRequestProt\n"
                          << EndLog();
}

Archive& XAStartTransactionRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  // Deliberate: this one alone gives its xid no name and traces afterwards.
  ar& xid_.get();
  traceXid("<= XAStartTransactionRequestProt", this);
  return ar;
}

XAEndTransactionRequestProt::~XAEndTransactionRequestProt() {
  NOX_LOG(filelog::debug) << "XAEndTransactionRequestProt::~XAEndTransactionRequestProt\n"
                          << EndLog();
}

Archive& XAEndTransactionRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  traceXid("<= XAEndTransactionRequestProt", this);
  return ar.process(xid_, "_xid");
}

XAPrepareTransactionRequestProt::~XAPrepareTransactionRequestProt() {
  NOX_LOG(filelog::debug) << "XAPrepareTransactionRequestProt::~XAPrepareTransactionRequestProt\n"
                          << EndLog();
}

Archive& XAPrepareTransactionRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  traceXid("<= XAPrepareTransactionRequestProt", this);
  return ar.process(xid_, "_xid");
}

XACommitTransactionRequestProt::~XACommitTransactionRequestProt() {
  NOX_LOG(filelog::debug) << "XACommitTransactionRequestProt::~XACommitTransactionRequestProt\n"
                          << EndLog();
}

Archive& XACommitTransactionRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  traceXid("<= XACommitTransactionRequestProt", this);
  return ar.process(xid_, "_xid");
}

XARollbackTransactionRequestProt::~XARollbackTransactionRequestProt() {
  NOX_LOG(filelog::debug) << "XARollbackTransactionRequestProt::~XARollbackTransactionRequestProt\n"
                          << EndLog();
}

Archive& XARollbackTransactionRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  traceXid("<= XARollbackTransactionRequestProt", this);
  return ar.process(xid_, "_xid");
}

}  // namespace nox::noxp::remote
