// The SQL service's transactions: begin, commit, roll back.
#pragma once

#include "nox/protocol/message.h"

namespace nox::noxp::sql {

/// Opens a transaction. The level travels only with a class version other than 0, which a sender
/// must set (`setClassVersion(1)`); without it the server chooses.
class NOX_EXPORT TransactionStartRequestProt
    : public Request<TransactionStartRequestProt, TypeCode::TransactionStartRequest> {
public:
  TransactionStartRequestProt() = default;
  explicit TransactionStartRequestProt(int isolationLevel) : isolationLevel_(isolationLevel) {}

  int getIsolationLevel() const { return isolationLevel_; }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  int isolationLevel_ = 0;
};

class NOX_EXPORT TransactionCommitRequestProt
    : public Request<TransactionCommitRequestProt, TypeCode::TransactionCommitRequest> {
public:
  Archive& serialize(Archive& ar, unsigned int version) override;
};

class NOX_EXPORT TransactionRollbackRequestProt
    : public Request<TransactionRollbackRequestProt, TypeCode::TransactionRollbackRequest> {
public:
  Archive& serialize(Archive& ar, unsigned int version) override;
};

}  // namespace nox::noxp::sql
