// How much of its stack a thread has left.
#pragma once

#include <cstddef>

namespace nox::agent {

/// In bytes, for the calling thread; the largest number where the system does not tell.
std::size_t nativeStackLeft();

}  // namespace nox::agent
