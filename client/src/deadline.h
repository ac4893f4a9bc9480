// Deadline: the moment at which something must be over, however many steps it takes.
#pragma once

#include <algorithm>
#include <chrono>
#include <limits>
#include <optional>

namespace nox::client::detail {

class Deadline {
public:
  using Clock = std::chrono::steady_clock;

  /// Never.
  Deadline() = default;
  /// In so long; zero, and later than the clock can tell: never.
  static Deadline in(std::chrono::milliseconds time) {
    Deadline deadline;
    const Clock::time_point now = Clock::now();
    const auto most = std::chrono::floor<std::chrono::milliseconds>(Clock::time_point::max() - now);
    if (time.count() > 0 && time < most) deadline.at_ = now + time;
    return deadline;
  }

  bool isNever() const { return !at_; }
  bool hasPassed() const { return at_ && Clock::now() >= *at_; }
  /// Nothing: never.
  std::optional<Clock::time_point> at() const { return at_; }
  /// What is left, in milliseconds rounded up, for poll(): -1 waits for ever.
  int pollTimeout() const {
    if (!at_) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*at_ - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, std::numeric_limits<int>::max()));
  }
  /// The moment by which the first of `parts` equal shares of what is left is used up.
  Deadline share(std::size_t parts) const {
    Deadline deadline;
    if (at_) {
      const Clock::time_point now = Clock::now();
      deadline.at_ = now + (*at_ - now) / static_cast<long>(std::max<std::size_t>(parts, 1));
    }
    return deadline;
  }

private:
  std::optional<Clock::time_point> at_;
};

}  // namespace nox::client::detail
