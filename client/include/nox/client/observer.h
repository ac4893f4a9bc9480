// What an observer is told about each request.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string_view>

#include "nox/client/error.h"

namespace nox::client {

/// One request and its answer; never anything of what they say.
struct Exchange {
  std::string_view request;  ///< its class: "ReadRecord"
  int type = 0;              ///< its type code: 201
  std::uint64_t bytesSent = 0;
  std::uint64_t bytesReceived = 0;
  std::chrono::nanoseconds duration{};
  std::string_view sqlState;           ///< empty when it succeeded
  Outcome outcome = Outcome::NotSent;  ///< of one that failed
};

/// Called after each request, in the thread that made it. One whose answer nobody waits for, such
/// as the closing of a file by its destructor, is told of when its answer is read, which a later
/// request does, or when the connection ends: as 08006 and Unknown then. It must not use the
/// connection, and outlives it; what it throws is dropped. An observer that several connections
/// share is called by all their threads.
using Observer = std::function<void(const Exchange&)>;

}  // namespace nox::client
