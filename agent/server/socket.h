// Listening sockets, and the connections they accept; TCP as the agent wants it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "agent/config/configuration.h"
#include "agent/descriptor.h"

namespace nox::agent {

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
  /// Binds the first address of the host that can be bound. Throws ListenError with the address
  /// and the reason.
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
