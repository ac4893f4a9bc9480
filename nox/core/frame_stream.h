// The memory stream over one received frame; internal to the reader.
#pragma once

#include <cstddef>
#include <string>

#include "nox/core/memory_streams.h"

namespace nox {

/// Holds the bytes of a frame, or refers to them where the connection is itself a memory stream.
/// The reader takes it again for the next frame, unless somebody still shares the bytes.
class FrameStream final : public MemoryBufferInputStream {
public:
  FrameStream() : MemoryBufferInputStream(nullptr, 0) {}
  FrameStream(const FrameStream&) = delete;
  FrameStream& operator=(const FrameStream&) = delete;
  ~FrameStream() override;

  /// A block of at least `n` bytes whose first `keep` survive the move; the rest is left unset.
  /// Throws std::bad_alloc.
  char* block(std::size_t n, std::size_t keep);
  /// What an inflated body goes into.
  std::string& inflated() { return inflated_; }

  void readBlock(std::size_t n) { aim(block_, n, false); }
  void readInflated() { aim(inflated_.data(), inflated_.size(), false); }
  /// Reads bytes of somebody else's.
  void readBorrowed(char* bytes, std::size_t n) { aim(bytes, n, true); }
  /// Makes borrowed bytes this stream's own by copying them. Throws std::bad_alloc.
  void own();
  /// The same where nothing may be thrown: without memory the stream is left empty.
  void ownOrForget() noexcept;
  /// Gives large blocks back, so that one huge message does not stay for the life of a connection.
  void shrink();
  void freeBlock();

private:
  void aim(char* bytes, std::size_t n, bool borrowed);

  char* block_ = nullptr;
  std::size_t capacity_ = 0;
  std::string inflated_;
  bool borrowed_ = false;
};

}  // namespace nox
