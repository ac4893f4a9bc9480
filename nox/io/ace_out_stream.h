// Writing to a TCP connection, plain or TLS.
#pragma once

#include <cstddef>

#include "nox/core/export.h"
#include "nox/core/out_stream.h"

// Declared here, so that a user of the library needs ACE only to make sockets.
class ACE_SOCK_Stream;
class ACE_SSL_SOCK_Stream;

namespace nox {

/// Writes to a socket that stays the caller's: it must outlive the stream and is never closed by
/// it. One thread at a time; a TLS socket's input and output streams together count as one. Signals
/// do not end a send, nor does a closed peer raise SIGPIPE (a process that ignores SIGPIPE should
/// do so before it makes TLS streams: they then save the masking).
class NOX_EXPORT ACEOutStream : public OutStream {
public:
  using OutStream::send;

  explicit ACEOutStream(ACE_SOCK_Stream* s);
  explicit ACEOutStream(ACE_SSL_SOCK_Stream* s);
  /// Also sets the socket's TCP_NODELAY when `noDelay` is set, and its SO_SNDBUF unless
  /// `sendBuffer` is 0. Failures are written to the log back end and ignored.
  ACEOutStream(ACE_SOCK_Stream* s, bool noDelay, std::size_t sendBuffer);
  ACEOutStream(ACE_SSL_SOCK_Stream* s, bool noDelay, std::size_t sendBuffer);
  ACEOutStream(const ACEOutStream& other) = default;
  ACEOutStream(ACEOutStream&& other) = default;
  ACEOutStream& operator=(const ACEOutStream& other) = default;
  ACEOutStream& operator=(ACEOutStream&& other) = default;
  ~ACEOutStream() override;

  /// Sends all bytes, blocking as needed. A failure ends the call and is not reported: the reader
  /// on the same connection learns of it.
  void send(const char* data, std::size_t n) override;
  /// Nothing is held back.
  void flush() override;

private:
  ACEOutStream(ACE_SOCK_Stream* sock, ACE_SSL_SOCK_Stream* sslSock, bool noDelay,
               std::size_t sendBuffer);

  ACE_SOCK_Stream* sock_;
  ACE_SSL_SOCK_Stream* sslSock_;
  bool guardSigpipe_;
};

}  // namespace nox
