#include "nox/protocol/sql/transaction_requests.h"

#include "nox/core/archive.h"

namespace nox::noxp::sql {

namespace {

constexpr unsigned int kVersionWithoutIsolationLevel = 0;

}  // namespace

Archive& TransactionStartRequestProt::serialize(Archive& ar, unsigned int version) {
  if (version != kVersionWithoutIsolationLevel) ar.process(isolationLevel_, "isolationLevel");
  return ar;
}

Archive& TransactionCommitRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar;
}

Archive& TransactionRollbackRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar;
}

}  // namespace nox::noxp::sql
