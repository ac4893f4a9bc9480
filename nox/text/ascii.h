// A scan for text that reads the same in UTF-8 and in every code page that contains ASCII.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace nox::detail {

/// Has a bit set where a byte of `v` is 0 or above 7F, and none when there is no such byte: the
/// subtraction sets the top bit of the lowest zero byte, and borrows only from a zero byte.
inline std::uint64_t notPlainAscii(std::uint64_t v) {
  return (v | (v - 0x0101010101010101u)) & 0x8080808080808080u;
}

/// Whether all `n` bytes lie in 01-7F.
inline bool isPlainAscii(const char* text, std::size_t n) {
  const auto load8 = [](const char* from) {
    std::uint64_t v;
    std::memcpy(&v, from, sizeof v);
    return v;
  };
  if (n >= 8) {
    const char* const last = text + n - 8;  // this step and the one before it may overlap
    for (; text < last; text += 8) {
      if (notPlainAscii(load8(text))) return false;
    }
    return !notPlainAscii(load8(last));
  }
  if (n >= 4) {
    std::uint32_t first, last;
    std::memcpy(&first, text, sizeof first);
    std::memcpy(&last, text + n - 4, sizeof last);
    return !notPlainAscii(std::uint64_t{first} << 32 | last);
  }
  for (std::size_t i = 0; i < n; ++i) {
    if (static_cast<unsigned char>(text[i] - 1) >= 0x7F) return false;
  }
  return true;
}

}  // namespace nox::detail
