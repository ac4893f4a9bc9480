// Argument: what subroutines are called with.
#pragma once

#include <optional>
#include <string>

namespace nox::agent {

/// A parameter, or a value of a row: bytes, or nothing for null.
using Argument = std::optional<std::string>;

}  // namespace nox::agent
