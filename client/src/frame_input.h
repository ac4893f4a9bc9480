// What the wire reader reads from: whole frames, each within a deadline.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nox/nox.h>

#include "client/src/deadline.h"
#include "client/src/transport.h"

namespace nox::client::detail {

constexpr std::size_t kLengthSize = 4;  // of a frame's length, which goes before it

/// Takes as much off the transport as has come, and hands out what the reader asks for. Reads are
/// exact; they throw TransportFailure when the deadline passes or the connection ends first.
class FrameInput final : public InputStream {
public:
  /// Length and '['.
  static constexpr std::size_t kHead = 5;

  /// The transport stays the caller's. A frame of more than `maxFrame` bytes is refused.
  FrameInput(Transport& transport, std::size_t maxFrame);

  void setDeadline(const Deadline& deadline) { deadline_ = deadline; }
  /// Waits for the head of the next frame, which stays to be read, and returns the frame's length
  /// with those 4 bytes. What is no head is refused.
  std::size_t awaitFrame();
  /// Whether a whole frame lies here.
  bool hasFrame() const;
  /// Takes what has come without waiting. False when the connection has ended.
  bool drain();
  std::size_t buffered() const { return end_ - begin_; }
  /// Keeps a copy of what the reader takes, from the next awaitFrame() on.
  void keepCopies() { keepsCopies_ = true; }
  const std::string& copy() const { return copy_; }

  std::int64_t readMax(char* to, int n) override;
  /// The same: the deadline is the stream's own.
  std::int64_t readMax(char* to, int n, int timeout) override;

private:
  std::size_t frameLength() const;
  std::size_t receive(char* to, std::size_t room);
  void fill();
  void makeRoom(std::size_t n);

  Transport& transport_;
  const std::size_t maxFrame_;
  Deadline deadline_;
  std::vector<char> buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  bool keepsCopies_ = false;
  std::string copy_;
};

}  // namespace nox::client::detail
