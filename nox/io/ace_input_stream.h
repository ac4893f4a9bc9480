// Reading from a TCP connection, plain or TLS.
#pragma once

#include <cstddef>
#include <cstdint>

#include "nox/core/export.h"
#include "nox/core/input_stream.h"

// Declared here, so that a user of the library needs ACE only to make sockets.
class ACE_SOCK_Stream;
class ACE_SSL_SOCK_Stream;
class ACE_Time_Value;

namespace nox {

/// Reads from a socket that stays the caller's: it must outlive the stream and is never closed by
/// it. One thread at a time; a TLS socket's input and output streams together count as one, since
/// either may read and write. Signals do not end a read, nor does a peer that closes raise SIGPIPE
/// (a process that ignores SIGPIPE should do so before it makes TLS streams: they then save the
/// masking).
///
/// A peer can keep an exact read waiting for ever. Where that matters, use TCP keepalive or a
/// watchdog that closes the socket.
class NOX_EXPORT ACEInputStream : public InputStream {
public:
  /// 10 seconds.
  static const ACE_Time_Value MESSAGE_READ_TIMEOUT;

  explicit ACEInputStream(ACE_SOCK_Stream* s);
  explicit ACEInputStream(ACE_SSL_SOCK_Stream* s);
  /// Also sets the socket's SO_RCVBUF, unless `receiveBuffer` is 0. A failure is written to the log
  /// back end and ignored.
  ACEInputStream(ACE_SOCK_Stream* s, std::size_t receiveBuffer);
  ACEInputStream(ACE_SSL_SOCK_Stream* s, std::size_t receiveBuffer);
  ACEInputStream(const ACEInputStream& other) = default;
  ACEInputStream& operator=(const ACEInputStream& other) = default;
  ~ACEInputStream() override;

  /// Reads exactly `n` bytes into `buf`, waiting without limit. Returns `n`.
  /// Throws `new NONE` when the system reports a time-out and `new LAST` when fewer bytes came (the
  /// peer closed, or the socket failed); whoever catches the object deletes it.
  std::int64_t readMax(char* buf, int n) override;
  /// Reads up to `n` bytes within `seconds`, of which fewer than none are none, and returns their
  /// number; 0 after the peer closed or the socket failed. Throws `new NONE` when none came in
  /// time, and `new LAST` on a TLS socket, which has no such read.
  std::int64_t readMax(char* buf, int n, int seconds) override;

  /// The `receiveBuffer` that was given, else 0.
  std::size_t getBufferSize() const { return bufferSize_; }

private:
  ACEInputStream(ACE_SOCK_Stream* sock, ACE_SSL_SOCK_Stream* sslSock, std::size_t receiveBuffer);

  std::size_t bufferSize_;
  ACE_SOCK_Stream* sock_;
  ACE_SSL_SOCK_Stream* sslSock_;
  // Deliberate: no read observes it. Exact reads wait without limit, timed ones bring their own.
  [[maybe_unused]] const ACE_Time_Value* timeout_;
  bool guardSigpipe_;
};

}  // namespace nox
