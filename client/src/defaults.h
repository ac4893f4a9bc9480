// What stands for a host and a user that nobody named.
#pragma once

#include <string>

namespace nox::client::detail {

constexpr const char* kDefaultHost = "localhost";

/// That of the user who runs the process; empty where the system knows none.
std::string loginName();

}  // namespace nox::client::detail
