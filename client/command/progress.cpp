#include "client/command/progress.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace nox::command {

namespace {

constexpr std::chrono::milliseconds kFirst{1000};
constexpr std::chrono::milliseconds kBarEvery{100};
constexpr std::chrono::milliseconds kLineEvery{1000};
constexpr std::size_t kBarWidth = 30;

}  // namespace

Progress::Progress(Style style, std::string what, std::optional<std::uint64_t> total)
    : style_(style), what_(std::move(what)), total_(total), next_(start_ + kFirst) {}

Progress::~Progress() {
  if (shown_ && style_ == Style::Bar) std::fputs("\r\x1b[K", stderr);
}

void Progress::update(std::uint64_t done, std::uint64_t units) {
  const Clock::time_point now = Clock::now();
  if (now < next_) return;
  next_ = now + (style_ == Style::Bar ? kBarEvery : kLineEvery);
  shown_ = true;
  const std::string line = text(done, units, now);
  if (style_ == Style::Bar) {
    std::fprintf(stderr, "\r%s\x1b[K", line.c_str());
    std::fflush(stderr);
  } else {
    std::fprintf(stderr, "%s\n", line.c_str());
  }
}

std::string Progress::text(std::uint64_t done, std::uint64_t units, Clock::time_point now) const {
  const double seconds = std::chrono::duration<double>(now - start_).count();
  const auto perSecond = static_cast<std::uint64_t>(static_cast<double>(units) / seconds);
  std::string line = what_ + " ";
  if (total_ && *total_ > 0) {
    const std::uint64_t part = std::min(done, *total_);
    if (style_ == Style::Bar) {
      const auto filled = static_cast<std::size_t>(part * kBarWidth / *total_);
      line += "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "] ";
    }
    line += std::to_string(part * 100 / *total_) + " % ";
  }
  return line + std::to_string(units) + ", " + std::to_string(perSecond) + "/s";
}

}  // namespace nox::command
