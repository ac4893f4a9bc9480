// The agent's conversions, as the store uses them for what SQL shows of files.
#pragma once

#include <string_view>

#include "agent/store/store.h"

namespace nox::agent {

/// Converts for output. A value that cannot be converted stays as it is; codes that are unknown
/// give no conversion.
SqlConversion sqlConversions(std::string_view codes);

}  // namespace nox::agent
