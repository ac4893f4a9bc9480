// The bytes of one connection, plain or TLS, moved by calls that never wait for long.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "agent/descriptor.h"

namespace nox::agent {

/// Whether a call that failed with `error` was only ended by its tick, or a signal.
bool isTick(int error);

/// For one thread, but for what says so. Every call returns within about kTick, so that
/// the caller can look at its deadlines: one that trickles bytes gains nothing by it. As long as
/// the peer keeps pace a call costs one system call.
class Transport {
public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::milliseconds kTick{250};

  /// What the calls return instead of a count of bytes.
  static constexpr int kNothingYet = 0;
  static constexpr int kEnded = -1;  // by the peer, by shutDown...(), or by an error

  explicit Transport(Descriptor socket) : socket_(std::move(socket)) {}
  Transport(const Transport&) = delete;
  Transport& operator=(const Transport&) = delete;
  virtual ~Transport();

  /// What has to be agreed before the first byte. False when the peer is not up to it, or not done
  /// by the deadline; `reason` says why.
  virtual bool handshake(Clock::time_point deadline, std::string& reason) = 0;
  /// Up to `room` bytes.
  virtual int receive(char* to, std::size_t room) = 0;
  /// Some of the bytes; after kNothingYet the same are sent again.
  virtual int send(const char* from, std::size_t n) = 0;
  /// Tells the peer that this was all.
  virtual void sayGoodbye() = 0;

  /// Waits without a tick until there may be something to receive, or until `until`. After a
  /// `receive` that returned kNothingYet.
  void waitReadable(std::optional<Clock::time_point> until);
  /// Whether something can be received now.
  bool isReadable() const;
  /// Throws what still comes away, until the peer closes, `until` or `stop()`: a socket that is
  /// closed with unread bytes takes the last reply back from the peer.
  template <class Stop>
  void linger(Clock::time_point until, Stop stop) {
    while (!stop() && Clock::now() < until && discard()) {
    }
  }

  /// From any thread: whether the peer has closed its side. So it looks, too, after shutDown...().
  bool hasPeerClosed() const;

  // From any thread; what waits for the peer ends.
  void shutDownReading();
  void shutDown();

protected:
  int descriptor() const { return socket_.get(); }
  void shutDownWriting();

private:
  /// Whether bytes have been taken off the socket that `receive` has not looked at.
  virtual bool hasBuffered() const { return false; }
  bool discard();

  Descriptor socket_;
};

std::unique_ptr<Transport> makePlainTransport(Descriptor socket);

}  // namespace nox::agent
