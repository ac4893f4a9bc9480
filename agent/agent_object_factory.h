// The factories with which the agent reads, before and after a client has logged in.
#pragma once

#include <nox/nox.h>

namespace nox::agent {

/// Before login: credentials and HTTP.
class LoginObjectFactory : public noxp::auth::AuthObjectFactory {
public:
  LoginObjectFactory();
  Serializable* create() override;
};

/// After login: everything the three families ask, and HTTP.
class AgentObjectFactory : public noxp::remote::RemoteObjectFactory {
public:
  AgentObjectFactory();
  Serializable* create() override;
};

}  // namespace nox::agent
