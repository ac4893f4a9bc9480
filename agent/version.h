// Which agent this is.
#pragma once

namespace nox::agent {

constexpr char kProductName[] = "noxd";
/// As in "1.0.0".
extern const char* const kVersion;

}  // namespace nox::agent
