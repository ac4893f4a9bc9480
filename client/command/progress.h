// Progress of long work, on standard error.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace nox::command {

/// A bar that is redrawn, lines now and then, or nothing. Shows nothing in the first second.
class Progress {
public:
  enum class Style { None, Bar, Lines };

  /// `total`: units or bytes in all, where that is known.
  Progress(Style style, std::string what, std::optional<std::uint64_t> total);
  /// Removes the bar.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// `done` of the total; `units` have been dealt with, where that is something else.
  void show(std::uint64_t done, std::uint64_t units) {
    if (style_ != Style::None) update(done, units);
  }
  void show(std::uint64_t done) { show(done, done); }

private:
  using Clock = std::chrono::steady_clock;

  void update(std::uint64_t done, std::uint64_t units);
  std::string text(std::uint64_t done, std::uint64_t units, Clock::time_point now) const;

  const Style style_;
  const std::string what_;
  const std::optional<std::uint64_t> total_;
  const Clock::time_point start_ = Clock::now();
  Clock::time_point next_;
  bool shown_ = false;
};

}  // namespace nox::command
