// How many lines a client may have written to the log.
#pragma once

#include <chrono>
#include <cstdint>
#include <utility>

namespace nox::agent {

/// kMostLines in each period of kPeriod; what is more is left out and counted.
class LineRate {
public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::uint64_t kMostLines = 100;
  static constexpr std::chrono::seconds kPeriod{10};

  struct Verdict {
    bool allowed = false;
    /// Lines that were left out before this one and have not been told of: for the first of a
    /// period.
    std::uint64_t leftOut = 0;
  };

  Verdict count(Clock::time_point now) {
    Verdict verdict;
    if (lines_ == 0 || now - since_ >= kPeriod) {
      since_ = now;
      lines_ = 0;
      verdict.leftOut = std::exchange(leftOut_, 0);
    }
    verdict.allowed = lines_ < kMostLines;
    if (verdict.allowed) {
      ++lines_;
    } else {
      ++leftOut_;
    }
    return verdict;
  }

private:
  Clock::time_point since_{};
  std::uint64_t lines_ = 0;
  std::uint64_t leftOut_ = 0;
};

}  // namespace nox::agent
