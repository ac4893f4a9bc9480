#include "agent/server/busy_wait.h"

#include <algorithm>
#include <utility>

namespace nox::agent {

namespace {

constexpr unsigned int kLongestPause = 255;  // requests

}  // namespace

bool BusyWait::isWorthIt() {
  const std::uint64_t now = traffic_.requests_.fetch_add(1, std::memory_order_relaxed) + 1;
  // One's own is among them: others that are at work ask as often, more or less.
  const std::uint64_t atWork = now - std::exchange(seen_, now);
  if (atWork > traffic_.mostAtWork_) return false;
  if (paused_ == 0) return true;
  --paused_;
  return false;
}

void BusyWait::note(bool hasHelped) {
  pause_ = hasHelped ? 0 : std::min(2 * pause_ + 1, kLongestPause);
  paused_ = pause_;
}

}  // namespace nox::agent
