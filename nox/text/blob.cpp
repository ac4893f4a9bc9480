#include "nox/text/blob.h"

#include <algorithm>
#include <cstring>
#include <limits>

NOXPBlob::NOXPBlob(const char* text) : NOXPBlob(text, text ? std::strlen(text) : 0) {}

NOXPBlob::NOXPBlob(const char* data, std::size_t n) { put(0, data, n); }

NOXPBlob::NOXPBlob(const NOXPBlob& other) {
  put(0, reinterpret_cast<const char*>(other.buffer_), other.length());
}

NOXPBlob& NOXPBlob::operator=(const NOXPBlob& other) {
  if (this != &other) put(0, reinterpret_cast<const char*>(other.buffer_), other.length());
  return *this;
}

void NOXPBlob::assign(const char* data, std::size_t n) { put(0, data, n); }

void NOXPBlob::append(const char* text) {
  if (text) append(text, std::strlen(text));
}

void NOXPBlob::append(const char* data, std::size_t n) { put(length(), data, n); }

void NOXPBlob::put(std::size_t offset, const char* data, std::size_t n) {
  if (!data) n = 0;
  // Bytes of our own storage move with it when it grows.
  const auto begin = reinterpret_cast<std::uintptr_t>(buffer_);
  const auto from = reinterpret_cast<std::uintptr_t>(data);
  const bool isOwn = n > 0 && from >= begin && from - begin < everUsed_;

  constexpr std::size_t kMax = std::numeric_limits<std::size_t>::max();
  if (!grow(n > kMax - offset ? kMax : offset + n)) return;
  const void* source = isOwn ? buffer_ + (from - begin) : reinterpret_cast<const void*>(data);
  if (n > 0) std::memmove(buffer_ + offset, source, n);
  length_ = offset + n;
  everUsed_ = std::max(everUsed_, length_);
}

void NOXPBlob::setSize(std::size_t n) {
  const std::uint64_t used = everUsed_;
  if (!setSizeUnfilled(n)) return;
  if (n > used) std::memset(buffer_ + used, 0, n - used);
}

bool NOXPBlob::setSizeUnfilled(std::size_t n) {
  if (!grow(n)) return false;
  length_ = n;
  everUsed_ = std::max(everUsed_, length_);
  return true;
}

bool NOXPBlob::grow(std::size_t n) {
  if (onHeap_ ? n <= capacity_ : n < kInlineSize) {
    if (!onHeap_) {
      buffer_ = inline_;
      capacity_ = n;
    }
    return true;
  }

  void* block = nullptr;
  const bool fits = n <= std::numeric_limits<std::size_t>::max() - kHeapSlack;
  if (fits) block = onHeap_ ? std::realloc(buffer_, n + kHeapSlack) : std::malloc(n + kHeapSlack);
  if (!block) {
    if (onHeap_) std::free(buffer_);
    onHeap_ = false;
    buffer_ = nullptr;
    length_ = capacity_ = everUsed_ = 0;
    return false;
  }
  // Not only the bytes in use: those beyond a length that shrank come back when it grows again.
  if (!onHeap_ && everUsed_ > 0) std::memcpy(block, inline_, everUsed_);
  onHeap_ = true;
  buffer_ = static_cast<unsigned char*>(block);
  capacity_ = n + kHeapSlack;
  return true;
}
