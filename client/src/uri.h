// The pieces of a nox URI, before anybody asks what they mean.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "nox/client/options.h"

namespace nox::client::detail {

struct Uri {
  std::string user;
  std::vector<Host> hosts;  // without a port: 0
  std::string account;
  std::vector<std::pair<std::string, std::string>> parameters;  // in order, decoded
};

/// Throws Error HY024, whose text never repeats what may be a password.
Uri parseUri(std::string_view text);
/// "host[:port][,host[:port]...]", as in a URI. An empty text gives no hosts.
std::vector<Host> parseHosts(std::string_view text);
std::uint16_t parsePort(std::string_view text);
/// Everything but letters, digits and "-._~" as "%" and two hexadecimal digits.
std::string percentEncode(std::string_view text);

[[noreturn]] void throwBadOption(const std::string& message);

}  // namespace nox::client::detail
