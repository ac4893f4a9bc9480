#include "nox/core/memory_streams.h"

#include <algorithm>
#include <cstring>

namespace nox {

MemoryBufferInputStream::MemoryBufferInputStream(const char* buffer, std::size_t size)
    : length_(static_cast<std::uint32_t>(size)), buffer_(const_cast<char*>(buffer)) {}

MemoryBufferInputStream::~MemoryBufferInputStream() = default;

std::int64_t MemoryBufferInputStream::readMax(char* buf, int max) {
  if (!buf || !buffer_ || max <= 0) return 0;
  const std::uint32_t n = std::min(length_ - position_, static_cast<std::uint32_t>(max));
  if (n == 0) return 0;
  std::memcpy(buf, buffer_ + position_, n);
  position_ += n;
  return n;
}

std::int64_t MemoryBufferInputStream::readMax(char* buf, int max, int /*timeout*/) {
  return readMax(buf, max);
}

MemoryBufferOutStream::~MemoryBufferOutStream() = default;

void MemoryBufferOutStream::send(const char* data, std::size_t n) {
  if (n > 0) bytes_.append(data, n);
}

void MemoryBufferOutStream::flush() {}

NullOutStream::~NullOutStream() = default;

void NullOutStream::send(const char* /*data*/, std::size_t /*n*/) {}

void NullOutStream::flush() {}

}  // namespace nox
