// The factory of the SQL service, for agents and clients alike.
#pragma once

#include "nox/core/object_factory.h"

namespace nox::noxp::sql {

/// Knows every class of the SQL service: requests, replies, result sets, their descriptions and the
/// generic replies. Logging in (15) and the reply of old (101) are deliberately absent.
class NOX_EXPORT SQLObjectFactory : public ObjectFactory {
public:
  SQLObjectFactory();
  Serializable* create() override;
};

}  // namespace nox::noxp::sql
