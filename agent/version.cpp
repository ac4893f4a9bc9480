#include "agent/version.h"

namespace nox::agent {

const char* version() { return NOXD_VERSION; }

}  // namespace nox::agent
