// The factory with which a client decodes what any of the services answers.
#pragma once

#include "nox/core/object_factory.h"

namespace nox {

/// Knows every reply and every payload of all families, so that a client needs no factory of its
/// own. For the metadata reply it knows the class that can be read.
class NOX_EXPORT ClientObjectFactory : public ObjectFactory {
public:
  ClientObjectFactory();
  Serializable* create() override;
};

}  // namespace nox
