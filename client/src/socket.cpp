#include "client/src/socket.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>

#include <cerrno>
#include <system_error>

#include "client/src/transport_failure.h"
#include "nox/client/error.h"

namespace nox::client::detail {

namespace {

// A peer that is gone is found out after about two minutes without a word.
constexpr int kKeepaliveIdle = 60;      // seconds
constexpr int kKeepaliveInterval = 15;  // seconds
constexpr int kKeepaliveProbes = 4;
constexpr int kUserTimeout = 120'000;  // milliseconds that sent bytes may stay unacknowledged

/// Nothing depends on these: a system without one of them is as good as it can be.
void setOption(int fd, int level, int name, int value) {
  static_cast<void>(::setsockopt(fd, level, name, &value, sizeof value));
}

}  // namespace

std::string systemText(int error) { return std::generic_category().message(error); }

std::string Address::text() const {
  char name[NI_MAXHOST] = "?";
  static_cast<void>(::getnameinfo(reinterpret_cast<const sockaddr*>(&storage), size, name,
                                  sizeof name, nullptr, 0, NI_NUMERICHOST));
  return name;
}

short waitFor(int fd, short events, const Deadline& deadline) {
  for (;;) {
    pollfd waited{fd, events, 0};
    const int count = ::poll(&waited, 1, deadline.pollTimeout());
    if (count > 0) return waited.revents;
    if (count < 0 && errno != EINTR) {
      throw TransportFailure{sqlstate::kConnectionLost, "poll: " + systemText(errno)};
    }
    if (count == 0 && deadline.hasPassed()) return 0;
  }
}

Descriptor connectTo(const Address& address, const Deadline& deadline) {
  Descriptor descriptor(::socket(address.family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!descriptor) throw TransportFailure{sqlstate::kCannotConnect, systemText(errno)};
  const int fd = descriptor.get();
  setOption(fd, IPPROTO_TCP, TCP_NODELAY, 1);
  setOption(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
  setOption(fd, IPPROTO_TCP, TCP_KEEPIDLE, kKeepaliveIdle);
  setOption(fd, IPPROTO_TCP, TCP_KEEPINTVL, kKeepaliveInterval);
  setOption(fd, IPPROTO_TCP, TCP_KEEPCNT, kKeepaliveProbes);
  setOption(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, kUserTimeout);

  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address.storage), address.size) == 0) {
    return descriptor;
  }
  // Interrupted by a signal, the connection is still being made.
  if (errno != EINPROGRESS && errno != EINTR) {
    throw TransportFailure{sqlstate::kCannotConnect, systemText(errno)};
  }
  if (waitFor(fd, POLLOUT, deadline) == 0) {
    throw TransportFailure{sqlstate::kConnectTimeout, "no answer in time"};
  }
  int error = 0;
  socklen_t size = sizeof error;
  if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
  if (error != 0) throw TransportFailure{sqlstate::kCannotConnect, systemText(error)};
  return descriptor;
}

}  // namespace nox::client::detail
