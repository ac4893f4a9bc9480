#include "nox/io/ace_input_stream.h"

#include <ace/SOCK_Stream.h>
#include <ace/SSL/SSL_SOCK_Stream.h>
#include <ace/Time_Value.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "nox/core/serializable.h"
#include "nox/diag/file_loggers.h"
#include "nox/io/socket_options.h"
#include "nox/io/socket_signals.h"

namespace nox {

namespace {

/// Receives `n` bytes and returns `n`, or what the receive that fell short returned.
std::int64_t receive(ACE_SOCK_Stream& socket, char* buf, std::size_t n) {
  constexpr const ACE_Time_Value* kNoLimit = nullptr;
  std::size_t total = 0;
  for (;;) {
    std::size_t moved = 0;
    errno = 0;  // the peer's close does not set it
    const ssize_t result = socket.recv_n(buf + total, n - total, kNoLimit, &moved);
    total += moved;
    if (total == n) return static_cast<std::int64_t>(n);
    if (result != -1 || errno != EINTR) return result;
  }
}

/// The same over TLS, whose `recv_n` does not say how many bytes came before a signal.
std::int64_t receive(ACE_SSL_SOCK_Stream& socket, char* buf, std::size_t n) {
  std::size_t total = 0;
  while (total < n) {
    errno = 0;
    const ssize_t result = socket.recv(buf + total, n - total);
    if (result > 0) {
      total += static_cast<std::size_t>(result);
    } else if (result == 0 || !interruptedBySignal(socket, errno, SO_RCVTIMEO)) {
      return result;
    }
  }
  return static_cast<std::int64_t>(n);
}

/// Receives up to `n` bytes within `seconds` and returns their number; errno is ETIME when the time
/// ran out.
std::size_t receiveWithin(ACE_SOCK_Stream& socket, char* buf, std::size_t n, int seconds) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::seconds(seconds);
  ACE_Time_Value limit(seconds);
  std::size_t total = 0;
  for (;;) {
    std::size_t moved = 0;
    errno = 0;
    const ssize_t result = socket.recv_n(buf + total, n - total, &limit, &moved);
    total += moved;
    if (total == n || result != -1 || errno != EINTR) return total;
    const auto left = std::max(deadline - Clock::now(), Clock::duration::zero());
    limit.set(std::chrono::duration<double>(left).count());
  }
}

[[noreturn]] void reportTimeout() {
  NOX_LOG(filelog::debug) << "InputStream::readMax: n == -1 && errno == ETIME" << EndLog();
  throw new NONE;
}

}  // namespace

const ACE_Time_Value ACEInputStream::MESSAGE_READ_TIMEOUT(10, 0);

ACEInputStream::ACEInputStream(ACE_SOCK_Stream* sock, ACE_SSL_SOCK_Stream* sslSock,
                               std::size_t receiveBuffer)
    : bufferSize_(receiveBuffer),
      sock_(sock),
      sslSock_(sslSock),
      timeout_(&MESSAGE_READ_TIMEOUT),
      guardSigpipe_(sslSock && sigpipeMatters()) {
  if (receiveBuffer == 0 || (!sock && !sslSock)) return;
  const std::uint64_t size = receiveBuffer;
  setSocketOption(sock ? sock->get_handle() : sslSock->get_handle(), SOL_SOCKET, SO_RCVBUF, &size,
                  sizeof size, "Could not set SO_RCVBUF", "ACEInputStream.cpp", __LINE__);
}

ACEInputStream::ACEInputStream(ACE_SOCK_Stream* s) : ACEInputStream(s, nullptr, 0) {}
ACEInputStream::ACEInputStream(ACE_SSL_SOCK_Stream* s) : ACEInputStream(nullptr, s, 0) {}
ACEInputStream::ACEInputStream(ACE_SOCK_Stream* s, std::size_t receiveBuffer)
    : ACEInputStream(s, nullptr, receiveBuffer) {}
ACEInputStream::ACEInputStream(ACE_SSL_SOCK_Stream* s, std::size_t receiveBuffer)
    : ACEInputStream(nullptr, s, receiveBuffer) {}

ACEInputStream::~ACEInputStream() = default;

std::int64_t ACEInputStream::readMax(char* buf, int n) {
  std::int64_t result = 0;
  errno = 0;
  if (n >= 0 && sslSock_) {
    const SigpipeGuard guard(guardSigpipe_);
    result = receive(*sslSock_, buf, static_cast<std::size_t>(n));
  } else if (n >= 0 && sock_) {
    result = receive(*sock_, buf, static_cast<std::size_t>(n));
  }
  if (result == -1 && errno == ETIME) reportTimeout();
  if (result != n) {
    NOX_LOG(filelog::debug) << "InputStream::readMax: bufSize = " << static_cast<long>(n)
                            << ", n = " << static_cast<long>(result) << EndLog();
    throw new LAST;
  }
  return n;
}

std::int64_t ACEInputStream::readMax(char* buf, int n, int seconds) {
  std::size_t moved = 0;
  if (n >= 0 && sock_) {
    // A negative limit would wait for ever.
    moved = receiveWithin(*sock_, buf, static_cast<std::size_t>(n), std::max(seconds, 0));
    if (moved == 0 && errno == ETIME) reportTimeout();
    return static_cast<std::int64_t>(moved);
  }
  NOX_LOG(filelog::debug) << "InputStream::readMax: bufSize = " << static_cast<long>(n)
                          << ", moved = " << static_cast<long>(moved) << EndLog();
  throw new LAST;
}

}  // namespace nox
