#include "nox/io/ace_out_stream.h"

#include <ace/SOCK_Stream.h>
#include <ace/SSL/SSL_SOCK_Stream.h>
#include <ace/os_include/netinet/os_tcp.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "nox/io/socket_options.h"
#include "nox/io/socket_signals.h"

namespace nox {

namespace {

// The TLS layer counts in 32 bits.
constexpr std::size_t kLargestChunk = std::size_t{1} << 30;

void sendAll(ACE_SOCK_Stream& socket, const char* data, std::size_t n) {
  constexpr const ACE_Time_Value* kNoLimit = nullptr;
  std::size_t total = 0;
  while (total < n) {
    std::size_t moved = 0;
    const std::size_t chunk = std::min(n - total, kLargestChunk);
    const ssize_t result = socket.send_n(data + total, chunk, kSendFlags, kNoLimit, &moved);
    total += moved;
    if (moved != chunk && (result != -1 || errno != EINTR)) return;
  }
}

void sendAll(ACE_SSL_SOCK_Stream& socket, const char* data, std::size_t n) {
  std::size_t total = 0;
  while (total < n) {
    const std::size_t chunk = std::min(n - total, kLargestChunk);
    errno = 0;
    const ssize_t result = socket.send(data + total, chunk);
    if (result > 0) {
      total += static_cast<std::size_t>(result);
    } else if (result == 0 || !interruptedBySignal(socket, errno, SO_SNDTIMEO)) {
      return;
    }
  }
}

}  // namespace

ACEOutStream::ACEOutStream(ACE_SOCK_Stream* sock, ACE_SSL_SOCK_Stream* sslSock, bool noDelay,
                           std::size_t sendBuffer)
    : sock_(sock), sslSock_(sslSock), guardSigpipe_(sslSock && sigpipeMatters()) {
  if (!sock && !sslSock) return;
  const ACE_HANDLE handle = sock ? sock->get_handle() : sslSock->get_handle();
  if (noDelay) {
    const std::int32_t on = 1;
    setSocketOption(handle, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on, "Could not set TCP_NODELAY",
                    "ACEOutStream.cpp", __LINE__);
  }
  if (sendBuffer != 0) {
    const std::uint64_t size = sendBuffer;
    setSocketOption(handle, SOL_SOCKET, SO_SNDBUF, &size, sizeof size, "Could not set SO_SNDBUF",
                    "ACEOutStream.cpp", __LINE__);
  }
}

ACEOutStream::ACEOutStream(ACE_SOCK_Stream* s) : ACEOutStream(s, nullptr, false, 0) {}
ACEOutStream::ACEOutStream(ACE_SSL_SOCK_Stream* s) : ACEOutStream(nullptr, s, false, 0) {}
ACEOutStream::ACEOutStream(ACE_SOCK_Stream* s, bool noDelay, std::size_t sendBuffer)
    : ACEOutStream(s, nullptr, noDelay, sendBuffer) {}
ACEOutStream::ACEOutStream(ACE_SSL_SOCK_Stream* s, bool noDelay, std::size_t sendBuffer)
    : ACEOutStream(nullptr, s, noDelay, sendBuffer) {}

ACEOutStream::~ACEOutStream() = default;

void ACEOutStream::send(const char* data, std::size_t n) {
  if (n == 0) return;
  if (sock_) {
    sendAll(*sock_, data, n);
  } else if (sslSock_) {
    const SigpipeGuard guard(guardSigpipe_);
    sendAll(*sslSock_, data, n);
  }
}

void ACEOutStream::flush() {}

}  // namespace nox
