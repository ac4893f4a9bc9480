// Numbers as they stand on the wire: big-endian, at any address.
#pragma once

#include <cstdint>
#include <cstdlib>  // _byteswap_ulong
#include <cstring>

namespace nox {

inline std::uint32_t byteSwap32(std::uint32_t value) {
#if defined(_MSC_VER)
  return _byteswap_ulong(value);
#else
  return __builtin_bswap32(value);
#endif
}

// Every platform of libnox (x86-64, ARM64) is little-endian.
inline int loadBigEndian32(const char* from) {
  std::uint32_t value;
  std::memcpy(&value, from, sizeof value);
  return static_cast<int>(byteSwap32(value));
}

inline unsigned int loadBigEndian16(const char* from) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(from);
  return static_cast<unsigned int>(bytes[0]) << 8 | bytes[1];
}

inline void storeBigEndian32(char* to, std::uint32_t value) {
  value = byteSwap32(value);
  std::memcpy(to, &value, sizeof value);
}

inline void storeBigEndian16(char* to, unsigned int value) {
  to[0] = static_cast<char>(value >> 8);
  to[1] = static_cast<char>(value);
}

}  // namespace nox
