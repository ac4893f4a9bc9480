// Copying short runs of bytes without a call.
#pragma once

#include <cstddef>
#include <cstring>

namespace nox {

constexpr std::size_t kShortText = 15;  // what a std::string holds without allocating

/// memcpy for regions that do not overlap, `n` mostly below 33: copies of constant length, which
/// the compiler turns into moves, that may overlap each other.
inline void copyBytes(char* to, const char* from, std::size_t n) {
  if (n > 32) {
    std::memcpy(to, from, n);
  } else if (n >= 16) {
    std::memcpy(to, from, 16);
    std::memcpy(to + n - 16, from + n - 16, 16);
  } else if (n >= 8) {
    std::memcpy(to, from, 8);
    std::memcpy(to + n - 8, from + n - 8, 8);
  } else if (n >= 4) {
    std::memcpy(to, from, 4);
    std::memcpy(to + n - 4, from + n - 4, 4);
  } else if (n > 0) {
    to[0] = from[0];
    to[n / 2] = from[n / 2];
    to[n - 1] = from[n - 1];
  }
}

}  // namespace nox
