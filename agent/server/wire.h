// Wire: a connection as requests that come in and replies that go out.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include <nox/nox.h>

#include "agent/failure.h"
#include "agent/server/deadline_streams.h"
#include "agent/server/transport.h"

namespace nox::agent {

class HttpRequest;

class Wire {
public:
  using Clock = Transport::Clock;

  enum class Event {
    Request,     // see takeRequest()
    Unreadable,  // a whole frame without a request; see problem(). The next one may be good
    Http,        // see readHttp()
    Broken,      // the place in the stream is lost
    Nothing,     // not a byte for a tick
    Ended        // by the peer, or because it was too slow
  };

  struct Limits {
    std::size_t frame = 0;  // bytes, of what comes; also of what a compressed frame holds
    std::size_t reply = 0;  // bytes
    std::chrono::milliseconds frameTime{0};  // from the first byte of a frame to its last
    std::chrono::milliseconds sendTime{0};   // for one reply
  };

  /// Borrows `transport`.
  explicit Wire(Transport& transport);

  /// What is read from now on, and within what limits. `factory` is borrowed.
  void expect(ObjectFactory& factory, const Limits& limits);
  /// When all reading ends; nothing: never.
  void setDeadline(std::optional<Clock::time_point> deadline) { in_.setDeadline(deadline); }

  Event next();
  /// Whether bytes have arrived that `next` will not have to wait for.
  bool hasMore() const { return in_.hasMore(); }
  /// Whether a whole frame has, behind the one that came last.
  bool hasNextFrame() const { return in_.hasNextFrame(); }
  std::unique_ptr<noxp::RequestProt> takeRequest() { return std::move(request_); }
  const Failure& problem() const { return *problem_; }
  /// The type code of the object that the factory does not know, after such an Unreadable.
  std::optional<int> unknownType() const { return unknownType_; }
  /// Bytes of the frame that came last, with its length.
  std::size_t frameBytes() const { return in_.frameBytes(); }
  /// Forgets the frame that came last, which holds a password.
  void wipeFrame() { in_.wipeFrame(); }

  /// The HTTP request that has begun; null when it did not come to its end.
  std::unique_ptr<HttpRequest> readHttp();

  BinaryWriter& writer() { return *writer_; }
  /// Whether replies may wait for those behind them, as long as they are few. `next` does not wait
  /// for the client before it has sent them.
  void gatherReplies(bool wanted) { out_.gather(wanted); }
  /// Throws ConnectionLost.
  void sendGathered() { out_.sendGathered(); }
  /// Bytes that were sent so far.
  std::uint64_t bytesSent() const { return out_.bytes(); }
  /// Whether the peer was given up: nothing can be sent any more.
  bool lost() const { return out_.lost(); }
  /// After a reply that was begun and not sent: drops what was gathered of it.
  void dropReply();
  void sendError(const Failure& failure);
  void sendSqlError(int statementId, const Failure& failure);
  /// Bytes that are no frame.
  void sendRaw(const std::string& bytes);

  /// Gives back what a connection at rest does not need.
  void rest();

private:
  Event read();
  Event unreadable(const char* sqlClass, const std::string& reason);
  void renewReader();

  DeadlineInputStream in_;
  DeadlineOutStream out_;
  ObjectFactory* factory_ = nullptr;
  Limits limits_;
  std::optional<BinaryReader> reader_;
  std::optional<BinaryWriter> writer_;
  std::unique_ptr<noxp::RequestProt> request_;
  std::optional<Failure> problem_;
  std::optional<int> unknownType_;
};

}  // namespace nox::agent
