// A server of the test's own: it speaks the wire over loopback as a script tells it.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <nox/nox.h>

#include "tests/client/support/certificates.h"

namespace nox::client::test {

/// One client's connection, as its server sees it. Belongs to the script's thread.
class PeerConnection {
public:
  virtual ~PeerConnection() = default;

  /// The next request; null once the client has closed.
  std::unique_ptr<Serializable> receive();
  /// The next request, which must be a `Request`; else null and a failure.
  template <class Request>
  std::unique_ptr<Request> receiveA() {
    std::unique_ptr<Serializable> request = receive();
    auto* const wanted = dynamic_cast<Request*>(request.get());
    if (wanted) {
      static_cast<void>(request.release());
    } else {
      failOn(request.get());
    }
    return std::unique_ptr<Request>(wanted);
  }
  /// Takes the login and lets the client in.
  void welcome();
  /// Answers with a frame; false once the client has closed.
  bool send(Serializable& reply);
  bool send(Serializable&& reply) { return send(reply); }
  /// An error reply.
  bool refuse(const char* sqlClass, const char* sqlSubClass, const std::string& message);
  /// Some bytes; false once the client has closed.
  virtual bool sendBytes(std::string_view bytes) = 0;
  /// A byte now and then, until all are sent or the client has closed.
  void sendSlowly(std::string_view bytes, std::chrono::milliseconds pause);
  /// Takes `n` bytes now and then, until the client has closed.
  void receiveSlowly(std::size_t n, std::chrono::milliseconds pause);
  /// Returns when the client has closed, or sent something.
  virtual void waitForClient() = 0;
  /// Returns when the client has closed; what it sends meanwhile stays where it is.
  virtual void waitForEnd() = 0;
  /// Ends the connection: in order, or with a reset.
  virtual void close() = 0;
  virtual void reset() = 0;

  /// The whole frame of a message.
  static std::string frameOf(Serializable& message);
  static std::string frameOf(Serializable&& message) { return frameOf(message); }

protected:
  class Input;

  /// Up to `n` bytes; 0 at the end.
  virtual std::size_t receiveBytes(char* to, std::size_t n) = 0;
  /// Waits so long, or until the client has closed; false then.
  virtual bool pause(std::chrono::milliseconds time) = 0;

private:
  static void failOn(const Serializable* request);
};

/// Listens on a free port of 127.0.0.1 and runs the script once per connection, in a thread of its
/// own. A script ends when its client closes, or when the peer does.
class Peer {
public:
  using Script = std::function<void(PeerConnection&)>;

  explicit Peer(Script script);
  /// Over TLS, with this certificate. Clients must show one of this authority where it is given.
  Peer(Script script, const CertificateFiles& certificate, const std::string& clientCa = {});
  ~Peer();
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  std::uint16_t port() const { return port_; }
  /// Where it is, without TLS unless it has any: "nox://ann@127.0.0.1:PORT/MAIN?tls=off". `more`
  /// follows with "&".
  std::string uri(const std::string& more = {}) const;
  /// How many clients came.
  int connections() const { return connections_; }

private:
  struct Tls;
  class Connection;

  void start();
  void run();

  const Script script_;
  std::unique_ptr<Tls> tls_;
  int listener_ = -1;
  std::uint16_t port_ = 0;
  std::atomic<bool> isOver_{false};
  std::atomic<int> connections_{0};
  std::mutex mutex_;
  std::vector<std::thread> threads_;
  std::vector<int> sockets_;
  std::thread accepting_;
};

/// A port of 127.0.0.1 on which nobody listens.
std::uint16_t refusedPort();

/// A port of 127.0.0.1 that takes no more connections and refuses none: the first packet of a
/// client is never answered.
class BlackHole {
public:
  BlackHole();
  ~BlackHole();
  BlackHole(const BlackHole&) = delete;
  BlackHole& operator=(const BlackHole&) = delete;
  std::uint16_t port() const { return port_; }

private:
  int listener_ = -1;
  std::uint16_t port_ = 0;
  std::vector<int> fillers_;
};

/// Answers every request in the way that `answer` says, after the login.
Peer::Script serving(std::function<void(PeerConnection&, Serializable& request)> answer);

}  // namespace nox::client::test
