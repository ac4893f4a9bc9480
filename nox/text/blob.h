// NOXPBlob: the protocol's byte array, with a store of its own for short contents.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "nox/core/export.h"

namespace nox {
class BinaryReader;
}

/// A growable byte array. Contents below 500 bytes lie inside the object; once on the heap a blob
/// stays there. Not shared between threads. No operation throws: when memory runs out the blob is
/// left empty.
class NOX_EXPORT NOXPBlob {
public:
  NOXPBlob() noexcept {}  // not defaulted, so that `NOXPBlob()` never zeroes the inline store
  /// The bytes of a C string without its terminator; null gives an empty blob.
  NOXPBlob(const char* text);
  NOXPBlob(const char* data, std::size_t n);
  NOXPBlob(const NOXPBlob& other);
  NOXPBlob& operator=(const NOXPBlob& other);
  ~NOXPBlob() {
    if (onHeap_) std::free(buffer_);
  }

  /// Replaces the content; `data` may lie inside this blob.
  void assign(const char* data, std::size_t n);
  void append(const char* text);
  /// Adds `n` bytes; `data` may lie inside this blob.
  void append(const char* data, std::size_t n);
  /// Sets the length to 0 and keeps the storage.
  void clear() { length_ = 0; }
  std::size_t length() const { return static_cast<std::size_t>(length_); }
  /// Changes the length without touching the bytes in use: shrinking and growing again gives the
  /// old bytes back. Bytes that were never in use are zero, since a blob may go out as it is.
  void setSize(std::size_t n);
  /// The current storage, null in a blob that never held anything. Ends with the next growth.
  const unsigned char* getBuf() const { return buffer_; }
  unsigned char* getBuf() { return buffer_; }

private:
  friend class nox::BinaryReader;

  static constexpr std::size_t kInlineSize = 500;
  static constexpr std::size_t kHeapSlack = 1000;

  /// Makes room for `n` bytes. False, with the blob emptied, when there is no memory for them.
  bool grow(std::size_t n);
  /// Like setSize, but leaves new bytes unset: for a caller that fills all of them at once.
  bool setSizeUnfilled(std::size_t n);
  /// Copies `n` bytes behind the first `offset` ones; the length becomes the sum.
  void put(std::size_t offset, const char* data, std::size_t n);

  bool onHeap_ = false;
  unsigned char* buffer_ = nullptr;
  std::uint64_t length_ = 0;
  std::uint64_t capacity_ = 0;
  std::uint64_t everUsed_ = 0;  // bytes from the start that were ever in use, and so hold data
  unsigned char inline_[kInlineSize];
};
