#include "agent/version.h"

namespace nox::agent {

const char* const kVersion = NOXD_VERSION;

}  // namespace nox::agent
