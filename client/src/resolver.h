// Addresses of hosts, found within a deadline.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "client/src/deadline.h"
#include "client/src/socket.h"

namespace nox::client::detail {

/// At least one address, in the order in which they should be tried. Throws TransportFailure: the
/// name is unknown, or the answer did not come in time.
std::vector<Address> resolve(const std::string& name, std::uint16_t port, const Deadline& deadline);

}  // namespace nox::client::detail
