// Real connections over loopback, plain and TLS, for tests.
#pragma once

#include <ace/SOCK.h>
#include <ace/SOCK_Stream.h>
#include <ace/SSL/SSL_SOCK_Stream.h>

#include <memory>
#include <string>
#include <string_view>

class ACE_SSL_Context;

namespace nox::test {

/// A TLS context with a self-signed certificate made for this process. It verifies nobody.
ACE_SSL_Context& tlsContext();

/// The two ends of a TCP connection on an ephemeral port; what is still open is closed at the end.
/// Throws std::runtime_error when the system has no sockets to give.
class PlainPair {
public:
  using Stream = ACE_SOCK_Stream;

  PlainPair();
  ~PlainPair();
  PlainPair(const PlainPair&) = delete;
  PlainPair& operator=(const PlainPair&) = delete;

  Stream& client() { return client_; }
  Stream& server() { return server_; }
  /// An orderly end.
  void closeServer();

private:
  Stream client_;
  Stream server_;
};

/// The same over TLS, after the handshake.
class TlsPair {
public:
  using Stream = ACE_SSL_SOCK_Stream;

  TlsPair();
  ~TlsPair();
  TlsPair(const TlsPair&) = delete;
  TlsPair& operator=(const TlsPair&) = delete;

  Stream& client() { return client_; }
  Stream& server() { return server_; }
  /// An orderly end: close_notify, then close.
  void closeServer();

private:
  PlainPair plain_;
  Stream client_;
  Stream server_;
};

/// The value of an integer option of a socket.
int optionOf(const ACE_SOCK& socket, int level, int name);

/// Makes every further write to the socket fail at once with EPIPE, and SIGPIPE where it is let.
void endWriting(const ACE_SOCK& socket);

/// Sends all of `data`; for the peer of the stream under test.
void sendAll(ACE_SOCK_Stream& socket, std::string_view data);
void sendAll(ACE_SSL_SOCK_Stream& socket, std::string_view data);

/// Receives exactly `n` bytes, or fewer when the connection ends.
std::string receive(ACE_SOCK_Stream& socket, std::size_t n);
std::string receive(ACE_SSL_SOCK_Stream& socket, std::size_t n);

}  // namespace nox::test
