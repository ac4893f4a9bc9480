// Waiting for what another thread does with locks, without guessing how long it takes.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

#include "agent/locks/lock_table.h"

namespace nox::agent::test {

constexpr std::chrono::milliseconds kNotAtAll{0};
constexpr std::chrono::milliseconds kLong{30'000};  // for what must happen much sooner

/// Whether `condition` came true in time.
inline bool comesTrue(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + kLong;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

/// How many wait for the record, which somebody holds.
inline std::size_t waitingFor(const LockTable& locks, const RecordLock& record) {
  for (const HeldLock& held : locks.list(record.account)) {
    if (held.record == record) return held.waiting;
  }
  return 0;
}

}  // namespace nox::agent::test
