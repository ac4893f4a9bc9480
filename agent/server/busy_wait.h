// BusyWait: whether a thread that has answered looks for the next request before it goes to sleep.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

namespace nox::agent {

/// To put a thread to sleep and to wake it again takes about as long as a client on the same
/// machine needs for its next request. Looking for that one instead spares both; it costs the
/// processor a moment at most, and only where it has helped before and hardly anybody else is at
/// work. For one thread at a time.
class BusyWait {
public:
  using Clock = std::chrono::steady_clock;

  /// What all connections of a server ask for. Safe for threads.
  class Traffic {
  public:
    /// On a machine with so many processors. Half of them are the clients'.
    explicit Traffic(unsigned int processors = std::thread::hardware_concurrency())
        : mostAtWork_(processors / 2) {}

  private:
    friend class BusyWait;
    const std::uint64_t mostAtWork_;
    std::atomic<std::uint64_t> requests_{0};
  };

  /// About what waking a thread takes, with what a client does meanwhile.
  static constexpr std::chrono::microseconds kMoment{50};

  /// Of a connection whose requests are among the `traffic`. `moment`: how long it looks.
  explicit BusyWait(Traffic& traffic, Clock::duration moment = kMoment)
      : traffic_(traffic), moment_(moment) {}

  /// After a request was answered: looks until `isThere()`, for a moment, or not at all.
  template <class IsThere>
  void await(IsThere isThere) {
    if (!isWorthIt()) return;
    const Clock::time_point end = Clock::now() + moment_;
    for (;;) {
      if (isThere()) return note(true);
      if (Clock::now() >= end) return note(false);
      // Whoever else can run goes first.
      std::this_thread::yield();
    }
  }

private:
  bool isWorthIt();
  void note(bool hasHelped);

  Traffic& traffic_;
  const Clock::duration moment_;
  std::uint64_t seen_ = 0;  // requests of the traffic, up to the last of this connection
  unsigned int pause_ = 0;  // how many requests are waited for asleep when it has not helped
  unsigned int paused_ = 0;
};

}  // namespace nox::agent
