// Sockets that never block, and the waiting that goes with them.
#pragma once

#include <sys/socket.h>

#include <string>
#include <vector>

#include "client/src/deadline.h"
#include "client/src/descriptor.h"

namespace nox::client::detail {

/// Where a host can be reached.
struct Address {
  sockaddr_storage storage{};
  socklen_t size = 0;
  int family = 0;

  /// "192.0.2.1" or "2001:db8::1".
  std::string text() const;
};

/// Waits until `fd` is ready for one of `events`, or failed, and returns what poll() reports of it;
/// 0 when the deadline passed.
short waitFor(int fd, short events, const Deadline& deadline);

/// A connected socket that does not block. Throws TransportFailure.
Descriptor connectTo(const Address& address, const Deadline& deadline);

/// What the system says about an error number.
std::string systemText(int error);

}  // namespace nox::client::detail
