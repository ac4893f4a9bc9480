// Streams over memory, and the stream that goes nowhere.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "nox/core/input_stream.h"
#include "nox/core/out_stream.h"

namespace nox {

/// Reads from a caller's buffer, which it neither copies nor frees. A copy shares the buffer and
/// has a position of its own.
class NOX_EXPORT MemoryBufferInputStream : public InputStream {
public:
  /// `size` is cut to 32 bits.
  MemoryBufferInputStream(const char* buffer, std::size_t size);
  ~MemoryBufferInputStream() override;
  /// Never fails; 0 once the buffer is used up.
  std::int64_t readMax(char* buf, int max) override;
  /// The same: memory needs no waiting.
  std::int64_t readMax(char* buf, int max, int timeout) override;
  char* getBuffer() const { return buffer_; }
  std::size_t getBufferLength() const { return length_; }

private:
  friend class BinaryReader;  // reads fields straight from the buffer
  friend class FrameStream;   // aims at one frame after the other

  std::uint32_t position_ = 0;
  std::uint32_t length_;
  char* buffer_;
};

/// Gathers all that is sent in a string.
class NOX_EXPORT MemoryBufferOutStream : public OutStream {
public:
  using OutStream::send;
  ~MemoryBufferOutStream() override;
  void send(const char* data, std::size_t n) override;
  void flush() override;
  std::string& str() { return bytes_; }

private:
  std::string bytes_;
};

/// Takes everything and keeps nothing: for running a writer for its side effects.
class NOX_EXPORT NullOutStream : public OutStream {
public:
  using OutStream::send;
  ~NullOutStream() override;
  void send(const char* data, std::size_t n) override;
  void flush() override;
};

}  // namespace nox
