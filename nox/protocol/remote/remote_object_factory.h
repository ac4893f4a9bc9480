// The factory of the remote data service: what its agent can read.
#pragma once

#include "nox/core/object_factory.h"

namespace nox::noxp::remote {

/// Knows the requests of the remote service and the payloads inside them; no reply, since the agent
/// reads none, and neither SelectListCommitRequestProt, SelectListCloseRequestProt nor
/// SelectListProt5. An agent that serves those derives its own factory and registers them.
class NOX_EXPORT RemoteObjectFactory : public ObjectFactory {
public:
  RemoteObjectFactory();
  ~RemoteObjectFactory() override;

  /// A new factory of this kind, the caller's; null when memory ran out.
  Serializable* create() override;
};

}  // namespace nox::noxp::remote
