// How much the tests of endurance do.
#pragma once

#include <cstdlib>

namespace nox::agent::test {

/// A number from the environment, or `otherwise`.
inline int setting(const char* name, int otherwise) {
  const char* const value = std::getenv(name);
  return value ? std::atoi(value) : otherwise;
}

}  // namespace nox::agent::test
