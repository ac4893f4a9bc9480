// Which release of the agent this is.
#pragma once

namespace nox::agent {

/// As in "1.0.0".
const char* version();

}  // namespace nox::agent
