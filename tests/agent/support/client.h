// A client of noxd over a socket, plain or TLS: messages, and raw bytes where a test wants them.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <nox/nox.h>

#include "tests/agent/support/client_calls.h"

namespace nox::agent::test {

/// How to speak TLS.
struct ClientTls {
  std::string authority;    // PEM file of what is trusted; empty: everything
  std::string certificate;  // PEM files of the client's own, or empty
  std::string key;
  int version = 0;  // the only one that is spoken, as OpenSSL's TLS1_2_VERSION; 0: any
};

/// Nothing that it waits for may take longer than kPatience: std::runtime_error then, and wherever
/// the connection breaks in a place where the caller did not ask for it.
class Client : public ClientCalls {
public:
  static constexpr std::chrono::seconds kPatience{60};

  /// Connects to a port of this machine.
  explicit Client(int port);
  Client(int port, const ClientTls& tls);
  ~Client() override;

  /// "OK", or what the agent says against it: "28/000".
  std::string logIn(const std::string& user, const std::string& password,
                    const std::string& account = {});
  /// As NoxdProcess::kUser. Throws std::runtime_error where that fails.
  Client& logIn();

  std::unique_ptr<Serializable> ask(noxp::RequestProt& request) override;
  std::unique_ptr<Serializable> ask(noxp::RequestProt&& request) { return ask(request); }

  /// Asks for an echo of `n` bytes; whether it comes back as it was.
  bool echoes(std::size_t n = 5);

  /// What a monitoring command prints.
  std::string monitor(const std::string& command);

  void send(Serializable& message);
  void send(Serializable&& message) { send(message); }
  /// False where the agent takes no more.
  bool sendBytes(std::string_view bytes);
  /// The next reply; null when the agent has closed the connection.
  std::unique_ptr<Serializable> receive();
  /// The next frame as it came, with its length; empty when the agent has closed the connection.
  std::string receiveFrame();
  /// All that comes until the agent closes the connection.
  std::string receiveAll();
  /// Whether the agent closes the connection, without another byte.
  bool isClosed() { return receiveAll().empty(); }
  /// Whether there is something to read, the end included, within that time.
  bool hasInput(std::chrono::milliseconds within);

  /// The subject of the agent's certificate, as "/CN=localhost".
  std::string certificateName() const;
  /// The protocol, as "TLSv1.3".
  std::string tlsVersion() const;

  int descriptor() const;
  /// Says that nothing more is coming; replies can still be read.
  void endWriting();
  /// As if the process had died: the agent reads an end, or a reset where it had sent something.
  void close();

private:
  struct Impl;

  std::string receiveBytes(std::size_t n);

  std::unique_ptr<Impl> impl_;
};

}  // namespace nox::agent::test
