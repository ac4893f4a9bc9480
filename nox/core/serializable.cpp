#include "nox/core/serializable.h"

namespace nox {

Serializable::~Serializable() = default;

unsigned int Serializable::getVersion() { return 0; }

}  // namespace nox
