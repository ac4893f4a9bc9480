// Waiting for what another process or thread brings about.
#pragma once

#include <chrono>
#include <thread>

namespace nox::agent::test {

/// Looks again and again; false when it has not come true within a minute.
template <class Condition>
bool comesTrue(Condition&& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace nox::agent::test
