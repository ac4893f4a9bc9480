// RunControl: what ends the work that a session has running.
#pragma once

#include <atomic>
#include <chrono>
#include <optional>

namespace nox::agent {

/// The deadline belongs to the session's thread; the flag may be raised by any.
struct RunControl {
  using Clock = std::chrono::steady_clock;

  std::atomic<bool> interrupted{false};
  std::optional<Clock::time_point> deadline;

  bool isOver() const {
    return interrupted.load(std::memory_order_relaxed) || (deadline && Clock::now() >= *deadline);
  }
};

}  // namespace nox::agent
