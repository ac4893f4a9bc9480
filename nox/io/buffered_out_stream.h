// Gathers a message in memory and hands it to another stream as one frame.
#pragma once

#include <cstddef>
#include <memory>

#include "nox/core/out_stream.h"

namespace nox {

/// A frame is a 4-byte big-endian length and that many bytes of content. Content of up to 10,236
/// bytes lies inside the object; a grown block is kept for the next frames. Content that is not
/// flushed is lost with the stream. One thread at a time, for a stream together with its copies.
///
/// Copies see the same content: the inline store is copied, a grown block is shared until one of
/// the holders changes it, and so is an owned target.
class NOX_EXPORT BufferedOutStream : public OutStream {
public:
  using OutStream::send;

  /// Frames go to `os`, which is deleted with this stream when `owner` is set. Without a target
  /// they go to a NullOutStream of this stream's own.
  BufferedOutStream(OutStream* os, bool owner);
  BufferedOutStream(const BufferedOutStream& other);
  BufferedOutStream& operator=(const BufferedOutStream& other);
  ~BufferedOutStream() override;

  /// Appends to the frame; `data` may lie inside it. Throws std::bad_alloc when there is no memory
  /// for it or the content would pass 2^31 - 5 bytes; the content gathered so far stays.
  void send(const char* data, std::size_t n) override;
  /// `flushSz()`.
  void flush() override;
  /// Sends the frame, also an empty one, with one `send` and one `flush` of the target and starts
  /// the next. Returns the bytes sent, with those of the length. When the target throws, the
  /// content stays gathered.
  std::size_t flushSz();

  /// The content gathered so far, not NUL-terminated; a grown block begins 4 bytes before it. Valid
  /// until the next growth.
  unsigned char* getBuffer() { return reinterpret_cast<unsigned char*>(data_); }
  std::size_t getLength() const { return static_cast<std::size_t>(end_ - data_); }

  /// Room for `n` more bytes at the end of the content; `commit` counts in those that were filled.
  /// For writers that know how much they will write. Throws as `send` does.
  char* reserve(std::size_t n) {
    if (!hasRoom(n)) growFor(n);
    return end_;
  }
  /// Whether `n` more bytes fit without growth.
  bool hasRoom(std::size_t n) const { return n <= static_cast<std::size_t>(limit_ - end_); }
  void commit(std::size_t n) { end_ += n; }
  /// Forgets the content and keeps the block.
  void discard();

private:
  static constexpr int StartResizeStep = 10240;
  static constexpr std::size_t kLengthSize = 4;
  static constexpr std::size_t kInlineSize = 10240;
  // A frame's length is 31 bits, and the 4 bytes before the content count towards the block.
  static constexpr std::size_t kMaxContent = 0x7FFFFFFF - kLengthSize;

  bool shared() const { return block_ && block_.use_count() > 1; }
  void growFor(std::size_t n);
  void moveTo(std::size_t blockSize);
  void copyFrom(const BufferedOutStream& other);

  std::shared_ptr<OutStream> ownedTarget_;  // set when the target is this stream's
  OutStream* target_;
  std::shared_ptr<char> block_;  // set once grown
  std::size_t capacity_ = kInlineSize;
  char* data_;           // the content: 4 bytes into the inline store or the block
  char* end_;            // behind the content
  mutable char* limit_;  // behind the room for content; end_ while the block is shared
  int resizeStep_ = StartResizeStep;
  char inline_[kInlineSize];
};

}  // namespace nox
