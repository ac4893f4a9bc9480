// TCP connections over loopback, plain and TLS, as the streams that readers and writers work on.
#pragma once

#include <ace/SOCK_Acceptor.h>
#include <ace/SSL/SSL_Context.h>

#include <memory>

#include <nox/nox.h>

/// One end of a connection. Its streams belong to one thread at a time.
class Connection {
public:
  Connection() = default;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  virtual ~Connection() = default;

  virtual nox::InputStream& in() = 0;
  virtual nox::OutStream& out() = 0;
  /// Says goodbye: the peer reads what was sent, then the end. For the thread that uses the
  /// streams.
  virtual void end() = 0;
  /// Ends a read that waits in another thread.
  virtual void interrupt() = 0;
};

/// Waits for clients on a free port; over TLS where it was given a context.
class Listener {
public:
  explicit Listener(ACE_SSL_Context* tls = nullptr);
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  int port() const;
  ACE_HANDLE handle() const { return acceptor_.get_handle(); }
  /// The next client, or null when it has gone already. A TLS handshake is left to the first read,
  /// so that a slow client holds up nobody but itself.
  std::unique_ptr<Connection> accept();

private:
  ACE_SOCK_Acceptor acceptor_;
  ACE_SSL_Context* tls_;
};

/// Connects to a port of this machine; over TLS, handshake included, where a context is given.
std::unique_ptr<Connection> connectTo(int port, ACE_SSL_Context* tls = nullptr);
