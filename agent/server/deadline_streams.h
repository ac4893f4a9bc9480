// The streams between a connection and the library: whole frames in, whole frames out, and an end
// to peers that dawdle.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include <nox/nox.h>

#include "agent/server/transport.h"

namespace nox::agent {

/// Takes frames off the connection and lays them out in memory, so that their head is looked at
/// before anything is made of them and the next one begins behind them whatever they hold. As an
/// InputStream it gives the bytes as they come, for the one who speaks HTTP.
///
/// A frame costs one `receive` when it comes in one piece. The block grows as bytes arrive, never
/// because of a claim.
class DeadlineInputStream : public InputStream {
public:
  using Clock = Transport::Clock;

  enum class Arrival {
    Frame,    // it is in `frame()`
    Http,     // the words of an HTTP request, to be read from this stream
    Broken,   // no '[', or longer than it may be: the place in the stream is lost
    Nothing,  // not a byte of a frame for a tick
    Late,     // a part of a frame, and then not the rest in time
    Ended
  };

  /// Borrows `transport`.
  explicit DeadlineInputStream(Transport& transport);

  /// When all reading ends, whatever the time for a frame; nothing: never.
  void setDeadline(std::optional<Clock::time_point> deadline) { deadline_ = deadline; }

  /// Leaves the last frame behind and waits for the next. `cap`: the most that its length may say,
  /// in bytes; `time`: from its first byte to its last.
  Arrival nextFrame(std::size_t cap, std::chrono::milliseconds time);
  /// The frame that has arrived, with its length, valid until the next call of this stream. The
  /// object stays the same, so that a reader can be aimed at it once.
  MemoryBufferInputStream& frame() { return frame_; }
  /// Its bytes, those of the length included.
  std::size_t frameBytes() const { return frameBytes_; }

  /// Whether bytes have arrived behind the frame.
  bool hasMore() const { return buffered() > frameBytes_; }
  /// Whether all of the next frame has.
  bool hasNextFrame() const;

  /// Forgets the frame for good: nothing of it stays in memory.
  void wipeFrame();
  /// Gives a grown block back; nothing happens while bytes wait in it.
  void shrink();

  /// Exactly `max` bytes; fewer at the end; -1 with kErrnoTimeout at the deadline.
  std::int64_t readMax(char* buf, int max) override;
  std::int64_t readMax(char* buf, int max, int timeout) override;

private:
  std::size_t buffered() const { return end_ - begin_; }
  bool late(std::optional<Clock::time_point> frameDeadline) const;
  Arrival inspect(std::size_t cap, std::size_t& wanted);
  void makeRoom(std::size_t wanted);
  std::int64_t readUntil(char* buf, int max, std::optional<Clock::time_point> deadline);

  Transport& transport_;
  std::optional<Clock::time_point> deadline_;
  std::unique_ptr<char[]> block_;
  std::size_t capacity_;
  std::size_t begin_ = 0;  // of what has not been taken, in the block
  std::size_t end_ = 0;
  std::size_t frameBytes_ = 0;
  MemoryBufferInputStream frame_;
};

/// The peer is gone, or takes nothing any more. Thrown by value; nothing else can be sent.
class ConnectionLost : public std::runtime_error {
public:
  ConnectionLost() : std::runtime_error("the connection is lost") {}
};

/// A frame is longer than the agent sends. Thrown by value, before a byte of it has left.
class FrameTooLong : public std::runtime_error {
public:
  FrameTooLong() : std::runtime_error("the reply does not fit into a frame") {}
};

/// Each `send` is a frame, and goes out in one piece while the peer keeps pace; or with others,
/// where it is gathered.
class DeadlineOutStream : public OutStream {
public:
  using OutStream::send;

  /// Borrows `transport`.
  explicit DeadlineOutStream(Transport& transport) : transport_(transport) {}

  /// `cap`: the longest frame, without its length; `time`: how long the peer may take for one.
  void setLimits(std::size_t cap, std::chrono::milliseconds time) {
    cap_ = cap;
    time_ = time;
  }
  /// Throws ConnectionLost, from the first failure on each time, and FrameTooLong.
  void send(const char* data, std::size_t n) override;
  void flush() override {}

  /// Whether frames that are sent from now on may wait for `sendGathered`, or for one that may not.
  void gather(bool wanted) { isGathering_ = wanted; }
  /// Throws as `send` does.
  void sendGathered();
  /// Gives back the room for gathered frames; there are none.
  void shrink() { std::string().swap(gathered_); }

  /// Bytes that went out, or began to, or wait to.
  std::uint64_t bytes() const { return bytes_; }
  bool lost() const { return lost_; }

private:
  static constexpr std::size_t kMostGathered = 16u * 1024;  // bytes

  void sendNow(const char* data, std::size_t n);
  void sendRest(const char* data, std::size_t n);
  [[noreturn]] void lose();

  Transport& transport_;
  std::size_t cap_ = 0;
  std::chrono::milliseconds time_{0};
  std::uint64_t bytes_ = 0;
  bool lost_ = false;
  bool isGathering_ = false;
  std::string gathered_;
};

}  // namespace nox::agent
