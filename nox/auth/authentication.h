// The request that logs a client in, and the factory with which the agent reads it.
#pragma once

#include <memory>

#include "nox/auth/credentials.h"
#include "nox/core/object_factory.h"
#include "nox/protocol/message.h"

namespace nox {
namespace noxp {

/// Carries credentials to the agent, which notes its verdict here; the verdict itself never
/// travels. Goes out as version 0, although `getVersion()` is 1, unless the sender calls
/// `setClassVersion`.
class NOX_EXPORT AuthenticationRequestProt
    : public Request<AuthenticationRequestProt, TypeCode::AuthenticationRequest> {
public:
  AuthenticationRequestProt() = default;
  /// Takes `credentials` over. Null means none, which travels as a null object.
  explicit AuthenticationRequestProt(Adopted<UserCredentials> credentials);
  /// Deliberate: a copy shares the credentials with its source; they end with the last holder.
  AuthenticationRequestProt(const AuthenticationRequestProt&) = default;
  AuthenticationRequestProt& operator=(const AuthenticationRequestProt&) = default;

  UserCredentials* getCredentials() const { return credentials_.get(); }
  bool getauthenticationAllRight() const { return authenticationAllRight_; }
  bool authenticatedOK() const { return authenticationAllRight_; }
  void setauthenticationAllRight(bool verdict) { authenticationAllRight_ = verdict; }

  unsigned int getVersion() override;
  /// Credentials that are there are read in place. Where there are none, those that a BinaryReader
  /// creates from their type code become the request's; an object of another kind throws
  /// `new UnexpectedType`.
  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  std::shared_ptr<UserCredentials> credentials_;
  bool authenticationAllRight_ = false;
};

namespace auth {

/// Knows the authentication request, both kinds of credentials, and parameter lists.
class NOX_EXPORT AuthObjectFactory : public ObjectFactory {
public:
  AuthObjectFactory();
  Serializable* create() override;
};

}  // namespace auth
}  // namespace noxp
}  // namespace nox
