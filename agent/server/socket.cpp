#include "agent/server/socket.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "agent/server/server.h"
#include "agent/server/transport.h"

namespace nox::agent {

namespace {

std::string reasonOf(int error) { return std::system_category().message(error); }

// A connection whose other end has vanished is found after about two minutes, whether it rests
// (probes) or data is on its way to it (the user time-out).
constexpr int kProbeAfter = 60;           // seconds
constexpr int kProbeEvery = 10;           // seconds
constexpr int kProbes = 6;                //
constexpr unsigned int kGiveUp = 120000;  // milliseconds

template <class T>
void set(int socket, int level, int option, const T& value) {
  // None of them is worth a connection: one that the system refuses stays at its default.
  setsockopt(socket, level, option, &value, sizeof value);
}

void setUp(int socket) {
  set(socket, IPPROTO_TCP, TCP_NODELAY, 1);  // each reply is sent in one piece
  set(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
  set(socket, IPPROTO_TCP, TCP_KEEPIDLE, kProbeAfter);
  set(socket, IPPROTO_TCP, TCP_KEEPINTVL, kProbeEvery);
  set(socket, IPPROTO_TCP, TCP_KEEPCNT, kProbes);
  set(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, kGiveUp);
  const std::chrono::microseconds wait = Transport::kTick;
  timeval tick{};
  tick.tv_sec = static_cast<time_t>(wait.count() / 1000000);
  tick.tv_usec = static_cast<suseconds_t>(wait.count() % 1000000);
  set(socket, SOL_SOCKET, SO_RCVTIMEO, tick);
  set(socket, SOL_SOCKET, SO_SNDTIMEO, tick);
}

bool isLoopback(const sockaddr_storage& address) {
  constexpr unsigned int kLoopbackNet = 127;
  if (address.ss_family == AF_INET) {
    const auto& v4 = reinterpret_cast<const sockaddr_in&>(address);
    return ntohl(v4.sin_addr.s_addr) >> 24 == kLoopbackNet;
  }
  if (address.ss_family != AF_INET6) return false;
  const in6_addr& v6 = reinterpret_cast<const sockaddr_in6&>(address).sin6_addr;
  constexpr int kLastFour = 12;
  return IN6_IS_ADDR_LOOPBACK(&v6) ||
         (IN6_IS_ADDR_V4MAPPED(&v6) && v6.s6_addr[kLastFour] == kLoopbackNet);
}

Peer peerOf(const sockaddr_storage& address, socklen_t length) {
  Peer peer;
  std::array<char, NI_MAXHOST> host{};
  std::array<char, NI_MAXSERV> service{};
  if (getnameinfo(reinterpret_cast<const sockaddr*>(&address), length, host.data(), host.size(),
                  service.data(), service.size(), NI_NUMERICHOST | NI_NUMERICSERV) == 0) {
    constexpr std::string_view kMapped = "::ffff:";
    peer.address = host.data();
    if (peer.address.compare(0, kMapped.size(), kMapped) == 0) {
      peer.address.erase(0, kMapped.size());
    }
    peer.port = static_cast<std::uint16_t>(std::stoul(service.data()));
  }
  peer.loopback = isLoopback(address);
  return peer;
}

Peer ownAddress(int socket) {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
  return peerOf(address, length);
}

struct AddressList {
  void operator()(addrinfo* list) const { freeaddrinfo(list); }
};

std::unique_ptr<addrinfo, AddressList> resolve(const ListenAddress& address) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  addrinfo* list = nullptr;
  const int error =
      getaddrinfo(address.host.c_str(), std::to_string(address.port).c_str(), &hints, &list);
  if (error != 0) {
    throw ListenError("cannot listen on " + textOf(address) + ": " +
                      (error == EAI_SYSTEM ? reasonOf(errno) : gai_strerror(error)));
  }
  return std::unique_ptr<addrinfo, AddressList>(list);
}

/// A listening socket, or one that is none, with errno set.
Descriptor listenOn(const addrinfo& address) {
  Descriptor bound(socket(address.ai_family, address.ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK,
                          address.ai_protocol));
  if (!bound) return bound;
  // A restart need not wait until the last connections of the one before are forgotten.
  set(bound.get(), SOL_SOCKET, SO_REUSEADDR, 1);
  if (address.ai_family == AF_INET6) set(bound.get(), IPPROTO_IPV6, IPV6_V6ONLY, 0);
  if (bind(bound.get(), address.ai_addr, address.ai_addrlen) != 0 ||
      listen(bound.get(), SOMAXCONN) != 0) {
    const int error = errno;
    bound = Descriptor();
    errno = error;
  }
  return bound;
}

/// What concerns the one client alone, which has gone, or the network it came by.
bool isClientsError(int error) {
  switch (error) {
    case ECONNABORTED:
    case EINTR:
    case EPROTO:
    case EPERM:
    case ENETDOWN:
    case ENETUNREACH:
    case ENOPROTOOPT:
    case EHOSTDOWN:
    case EHOSTUNREACH:
    case ENONET:
    case EOPNOTSUPP:
      return true;
    default:
      return false;
  }
}

}  // namespace

std::string Peer::text() const { return textOf(ListenAddress{address, port}); }

Listener::Listener(const ListenAddress& address) {
  const auto list = resolve(address);
  int error = EADDRNOTAVAIL;
  for (const addrinfo* next = list.get(); next && !socket_; next = next->ai_next) {
    socket_ = listenOn(*next);
    if (!socket_) error = errno;
  }
  if (!socket_) {
    throw ListenError("cannot listen on " + textOf(address) + ": " + reasonOf(error));
  }
  where_ = ownAddress(socket_.get());
}

std::optional<AcceptedSocket> Listener::accept() {
  for (;;) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    AcceptedSocket accepted;
    accepted.socket = Descriptor(
        accept4(socket_.get(), reinterpret_cast<sockaddr*>(&address), &length, SOCK_CLOEXEC));
    if (accepted.socket) {
      setUp(accepted.socket.get());
      accepted.peer = peerOf(address, length);
      return accepted;
    }
    const int error = errno;
    if (error == EAGAIN || error == EWOULDBLOCK) return std::nullopt;
    if (!isClientsError(error)) throw std::system_error(error, std::system_category());
  }
}

}  // namespace nox::agent
