#include "nox/protocol/remote/metadata_messages.h"

#include <iterator>

#include "nox/core/archive.h"
#include "nox/core/exceptions.h"
#include "nox/diag/file_loggers.h"

namespace nox::noxp::remote {

EISMetaDataRequestProt::~EISMetaDataRequestProt() {
  // Deliberate: the line has always named another class.
  NOX_LOG(filelog::debug) << "RollbackTransactionRequestProt::~EISMetaDataRequestProt\n"
                          << EndLog();
}

Archive& EISMetaDataRequestProt::serialize(Archive& ar, unsigned int /*version*/) { return ar; }

namespace {

struct Fact {
  const char* repositoryKey;
  const char* keyName;    // the wire name of the blob that holds the key
  const char* valueName;  // and of the one that holds the value
};

constexpr Fact kFacts[] = {
    {"EIS_PRODUCT_NAME", "productNameKey", "productName"},
    {"EIS_PRODUCT_VERSION", "productVersionKey", "productVersion"},
    {"EIS_MAX_CONNECTIONS", "maxConnectionsKey", "maxConnections"},
    {"EIS_USER_NAME", "userNameKey", "userName"},
};

}  // namespace

Archive& EISMetaDataResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  if (!ar.isWriting()) {
    NOX_LOG(filelog::critical) << "false" << EndLog();
    throw new AssertionFailure("false");
  }
  int numberOfRows = static_cast<int>(std::size(kFacts));
  ar.process(numberOfRows, "numberOfRows");
  for (const Fact& fact : kFacts) {
    NOXPBlob key(fact.repositoryKey);
    ar.process(&key, fact.keyName);
    ar.process(repository_ ? repository_->getRepositoryEntry(fact.repositoryKey) : nullptr,
               fact.valueName);
  }
  return ar;
}

Archive& EISMetaDataReplyProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(numberOfRows_, "numberOfRows")
      .process(productNameKey_, "productNameKey")
      .process(productName_, "productName")
      .process(productVersionKey_, "productVersionKey")
      .process(productVersion_, "productVersion")
      .process(maxConnectionsKey_, "maxConnectionsKey")
      .process(maxConnections_, "maxConnections")
      .process(userNameKey_, "userNameKey")
      .process(userName_, "userName");
}

}  // namespace nox::noxp::remote
