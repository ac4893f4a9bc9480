// How the layers below a request fail: without knowing what the request was.
#pragma once

#include <string>

namespace nox::client::detail {

/// Thrown by value; the channel makes an Error of it, and adds what became of the request.
struct TransportFailure {
  const char* sqlState;  // one of sqlstate's
  std::string message;
};

}  // namespace nox::client::detail
