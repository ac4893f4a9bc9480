#include "connection.h"

#include <ace/INET_Addr.h>
#include <ace/OS_NS_sys_socket.h>
#include <ace/SOCK_Connector.h>
#include <ace/SOCK_Stream.h>
#include <ace/SSL/SSL_SOCK_Stream.h>
#include <openssl/err.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace {

constexpr const char* kLoopback = "127.0.0.1";

/// A TLS socket on a connection that stands already.
class TlsSocket : public ACE_SSL_SOCK_Stream {
public:
  TlsSocket(ACE_HANDLE handle, ACE_SSL_Context& context) : ACE_SSL_SOCK_Stream(&context) {
    set_handle(handle);
  }
};

void sayGoodbye(ACE_SOCK_Stream& /*socket*/) {}
void sayGoodbye(TlsSocket& socket) {
  // Only where a handshake was made: otherwise there is nobody to say it to.
  if (SSL_is_init_finished(socket.ssl())) SSL_shutdown(socket.ssl());
}

template <class Socket>
class SocketConnection : public Connection {
public:
  template <class... Arguments>
  explicit SocketConnection(Arguments&&... arguments)
      : socket_(std::forward<Arguments>(arguments)...) {}
  ~SocketConnection() override { socket_.ACE_SOCK::close(); }

  nox::InputStream& in() override { return in_; }
  nox::OutStream& out() override { return out_; }
  void end() override {
    sayGoodbye(socket_);
    ACE_OS::shutdown(socket_.get_handle(), ACE_SHUTDOWN_WRITE);
  }
  void interrupt() override { ACE_OS::shutdown(socket_.get_handle(), ACE_SHUTDOWN_BOTH); }

  Socket& socket() { return socket_; }

private:
  Socket socket_;
  nox::ACEInputStream in_{&socket_};
  // Every frame is sent in one piece, so there is nothing to be gained by waiting for more.
  nox::ACEOutStream out_{&socket_, true, 0};
};

using PlainConnection = SocketConnection<ACE_SOCK_Stream>;
using TlsConnection = SocketConnection<TlsSocket>;

[[noreturn]] void fail(const std::string& what) { throw std::runtime_error(what); }

}  // namespace

Listener::Listener(ACE_SSL_Context* tls) : tls_(tls) {
  constexpr u_short kAnyFreePort = 0;
  if (acceptor_.open(ACE_INET_Addr(kAnyFreePort, kLoopback)) != 0) fail("cannot listen");
  // A client may vanish between its call and our answer; accept() must not wait for the next one.
  acceptor_.enable(ACE_NONBLOCK);
}

Listener::~Listener() { acceptor_.close(); }

int Listener::port() const {
  ACE_INET_Addr address;
  acceptor_.get_local_addr(address);
  return address.get_port_number();
}

std::unique_ptr<Connection> Listener::accept() {
  ACE_SOCK_Stream socket;
  if (acceptor_.accept(socket) != 0) return nullptr;
  socket.disable(ACE_NONBLOCK);
  if (!tls_) return std::make_unique<PlainConnection>(socket.get_handle());
  auto connection = std::make_unique<TlsConnection>(socket.get_handle(), *tls_);
  SSL_set_accept_state(connection->socket().ssl());
  return connection;
}

std::unique_ptr<Connection> connectTo(int port, ACE_SSL_Context* tls) {
  ACE_SOCK_Stream socket;
  const ACE_INET_Addr address(static_cast<u_short>(port), kLoopback);
  if (ACE_SOCK_Connector().connect(socket, address) != 0) {
    fail("cannot connect to port " + std::to_string(port));
  }
  if (!tls) return std::make_unique<PlainConnection>(socket.get_handle());
  auto connection = std::make_unique<TlsConnection>(socket.get_handle(), *tls);
  if (SSL_connect(connection->socket().ssl()) != 1) {
    const char* const reason = ERR_reason_error_string(ERR_get_error());
    fail(std::string("no TLS handshake: ") + (reason ? reason : "the connection broke"));
  }
  return connection;
}
