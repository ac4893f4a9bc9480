// Server: the agent's two ports, and a thread for each of its clients.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

namespace nox::agent {

class Dispatcher;
struct Agent;

/// A port that is taken, or an address that is none of this machine's. Thrown by value.
class ListenError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// Listens where the configuration says so, in plain text, over TLS, or both. `drain`, `stop` and
/// `reload` may be called from any thread, also more than once, but from no signal handler.
class Server {
public:
  /// Both are borrowed, and outlive the server.
  Server(Agent& agent, const Dispatcher& dispatcher);
  /// Stops, and waits for every connection to end.
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// Reads the certificate and binds the ports; the log says where. Throws ListenError, and
  /// std::runtime_error that names what is wrong with a certificate that cannot be used.
  void open();
  // The ports that `open` bound, which port 0 leaves to the system; 0 where nothing listens.
  std::uint16_t plainPort() const;
  std::uint16_t tlsPort() const;
  /// Writes them to `file` as the lines "plain PORT" and "tls PORT", each where it is bound; the
  /// file appears whole. For scripts that leave the choice of a port to the system. Throws
  /// std::runtime_error.
  void writePorts(const std::string& file) const;

  /// Serves clients until `stop`, or until the last connection has ended after `drain`.
  void run();

  /// Takes no new clients, ends the connections that are at rest, lets running requests finish and
  /// be answered, and cuts what is left after the `drain` time-out.
  void drain();
  /// Interrupts running requests and ends every connection. Open transactions are rolled back.
  void stop();
  /// Reads the certificate, the key and the authority of clients anew. Where they cannot be used,
  /// the old ones stay and the log says why. Connections take the other values of the configuration
  /// with their next request; addresses hold until a restart.
  void reload();

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace nox::agent
