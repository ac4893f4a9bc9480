// Listening sockets, and the connections they accept; TCP as the agent wants it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "agent/config/configuration.h"

namespace nox::agent {

/// A file descriptor that is closed with its owner.
class Descriptor {
public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor();

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

private:
  int fd_ = -1;
};

/// The other end of a connection.
struct Peer {
  std::string address;  // numeric; an IPv4 address that came over IPv6 as IPv4
  std::uint16_t port = 0;
  bool loopback = false;

  /// "address:port", with brackets around an IPv6 address.
  std::string text() const;
};

struct AcceptedSocket {
  Descriptor socket;
  Peer peer;
};

class Listener {
public:
  /// Binds the first address of the host that can be bound. Throws std::runtime_error with the
  /// address and the reason.
  explicit Listener(const ListenAddress& address);

  int descriptor() const { return socket_.get(); }
  /// Where it listens: port 0 has become the system's choice.
  const Peer& where() const { return where_; }
  /// The next client, set up for blocking calls of at most Transport::kTick; nothing when nobody
  /// waits. Throws std::system_error when the system has no descriptor or no memory for it.
  std::optional<AcceptedSocket> accept();

private:
  Descriptor socket_;
  Peer where_;
};

}  // namespace nox::agent
