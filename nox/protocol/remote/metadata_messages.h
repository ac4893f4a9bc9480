// What data system stands behind the server: the question and the server's answer.
#pragma once

#include "nox/protocol/message.h"
#include "nox/protocol/metadata_repository.h"

namespace nox::noxp::remote {

/// Asks for the facts of the repository; answered by EISMetaDataResponseProt. Carries nothing.
class NOX_EXPORT EISMetaDataRequestProt
    : public Request<EISMetaDataRequestProt, TypeCode::EISMetaDataRequest> {
public:
  EISMetaDataRequestProt() = default;
  EISMetaDataRequestProt(const EISMetaDataRequestProt&) = default;
  EISMetaDataRequestProt& operator=(const EISMetaDataRequestProt&) = default;
  ~EISMetaDataRequestProt() override;

  Archive& serialize(Archive& ar, unsigned int version) override;
};

/// Four facts of a repository, each behind its key; a missing one is a null blob. The server's side
/// of the answer: it can only be written. Reading one throws `new AssertionFailure("false")`;
/// clients register the class of ClientObjectFactory for its code.
class NOX_EXPORT EISMetaDataResponseProt
    : public Response<EISMetaDataResponseProt, TypeCode::EISMetaDataResponse> {
public:
  EISMetaDataResponseProt() = default;
  /// Borrows `repository`, which must outlive this reply; null has no facts.
  EISMetaDataResponseProt(MetaDataRepositoryProt* repository) : repository_(repository) {}

  MetaDataRepositoryProt* getRepository() const { return repository_; }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  MetaDataRepositoryProt* repository_ = nullptr;
};

/// The same answer as a client reads it.
class NOX_EXPORT EISMetaDataReplyProt
    : public Response<EISMetaDataReplyProt, TypeCode::EISMetaDataResponse> {
public:
  /// The number of facts that follow: 4.
  int getNumberOfRows() const { return numberOfRows_; }
  NOXPBlob* getProductNameKey() const { return productNameKey_.get(); }
  NOXPBlob* getProductName() const { return productName_.get(); }
  NOXPBlob* getProductVersionKey() const { return productVersionKey_.get(); }
  NOXPBlob* getProductVersion() const { return productVersion_.get(); }
  NOXPBlob* getMaxConnectionsKey() const { return maxConnectionsKey_.get(); }
  NOXPBlob* getMaxConnections() const { return maxConnections_.get(); }
  NOXPBlob* getUserNameKey() const { return userNameKey_.get(); }
  NOXPBlob* getUserName() const { return userName_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  int numberOfRows_ = 0;
  OwnedBlob productNameKey_;
  OwnedBlob productName_;
  OwnedBlob productVersionKey_;
  OwnedBlob productVersion_;
  OwnedBlob maxConnectionsKey_;
  OwnedBlob maxConnections_;
  OwnedBlob userNameKey_;
  OwnedBlob userName_;
};

}  // namespace nox::noxp::remote
