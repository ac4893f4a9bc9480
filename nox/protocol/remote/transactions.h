// Transactions: local ones on the client's connection, and the branches of distributed ones.
//
// A distributed branch is named by an XAXidProt and driven by an external transaction manager
// through start, end, prepare, commit and rollback. Nothing is checked here. Each of these requests
// is answered with a TransactionResponseProt.
#pragma once

#include "nox/core/archive.h"
#include "nox/core/owned.h"
#include "nox/protocol/message.h"

namespace nox::noxp::remote {

class NOX_EXPORT BeginTransactionRequestProt
    : public Request<BeginTransactionRequestProt, TypeCode::BeginTransactionRequest> {
public:
  ~BeginTransactionRequestProt() override;
  Archive& serialize(Archive& ar, unsigned int version) override;
};

class NOX_EXPORT CommitTransactionRequestProt
    : public Request<CommitTransactionRequestProt, TypeCode::CommitTransactionRequest> {
public:
  ~CommitTransactionRequestProt() override;
  Archive& serialize(Archive& ar, unsigned int version) override;
};

class NOX_EXPORT RollbackTransactionRequestProt
    : public Request<RollbackTransactionRequestProt, TypeCode::RollbackTransactionRequest> {
public:
  ~RollbackTransactionRequestProt() override;
  Archive& serialize(Archive& ar, unsigned int version) override;
};

/// Names the branch of a distributed transaction. It travels inside the XA requests, yet it is a
/// request by its base: a dispatcher that is sent one as a root object must have an answer.
class NOX_EXPORT XAXidProt : public Request<XAXidProt, TypeCode::XAXid> {
public:
  XAXidProt() = default;
  /// Copies the transaction id alone; the format of a copy is 0.
  XAXidProt(const XAXidProt& other);
  /// The same; of null, a default identifier.
  explicit XAXidProt(const XAXidProt* other);
  /// Copies the transaction id and leaves this object's format as it was.
  XAXidProt& operator=(const XAXidProt& other);

  NOXPString* getTransactionId() const { return transactionId_.get(); }
  /// Stores a copy; null makes the id empty.
  void setTransactionId(CopiedString transactionId) { transactionId_.assign(transactionId); }
  int getFormat() const { return format_; }
  void setFormat(int format) { format_ = format; }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  OwnedString transactionId_;
  int format_ = 0;
};

/// What the XA requests have in common: the identifier of the branch. It starts empty and is filled
/// through getXid(). A copied request has the same transaction id and, as every copied XAXidProt,
/// the format 0.
class NOX_EXPORT XARequestProt : public RequestProt {
public:
  XAXidProt* getXid() const { return xid_.get(); }

protected:
  Owned<XAXidProt> xid_;
};

class NOX_EXPORT XAStartTransactionRequestProt
    : public Message<XAStartTransactionRequestProt, TypeCode::XAStartTransactionRequest,
                     XARequestProt> {
public:
  ~XAStartTransactionRequestProt() override;
  Archive& serialize(Archive& ar, unsigned int version) override;
};

class NOX_EXPORT XAEndTransactionRequestProt
    : public Message<XAEndTransactionRequestProt, TypeCode::XAEndTransactionRequest,
                     XARequestProt> {
public:
  ~XAEndTransactionRequestProt() override;
  Archive& serialize(Archive& ar, unsigned int version) override;
};

class NOX_EXPORT XAPrepareTransactionRequestProt
    : public Message<XAPrepareTransactionRequestProt, TypeCode::XAPrepareTransactionRequest,
                     XARequestProt> {
public:
  ~XAPrepareTransactionRequestProt() override;
  Archive& serialize(Archive& ar, unsigned int version) override;
};

class NOX_EXPORT XACommitTransactionRequestProt
    : public Message<XACommitTransactionRequestProt, TypeCode::XACommitTransactionRequest,
                     XARequestProt> {
public:
  ~XACommitTransactionRequestProt() override;
  Archive& serialize(Archive& ar, unsigned int version) override;
};

class NOX_EXPORT XARollbackTransactionRequestProt
    : public Message<XARollbackTransactionRequestProt, TypeCode::XARollbackTransactionRequest,
                     XARequestProt> {
public:
  ~XARollbackTransactionRequestProt() override;
  Archive& serialize(Archive& ar, unsigned int version) override;
};

}  // namespace nox::noxp::remote
