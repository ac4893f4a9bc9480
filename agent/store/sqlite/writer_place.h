// WriterPlace: who writes to an account now, and who is next.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <list>
#include <mutex>
#include <utility>
#include <vector>

#include "agent/store/sqlite/run_control.h"

namespace nox::agent {

/// How long someone waits for the place, and what ends the wait before.
struct Patience {
  std::chrono::milliseconds wait{0};
  const RunControl* control = nullptr;
};

/// A database has one writer at a time. Those who come while there is one wait in a line; a
/// transaction has the place for itself, while all the single changes that wait are made together
/// by the first of them: that is one commit, and one synchronisation of the disk. Safe for threads.
class WriterPlace {
public:
  using Clock = std::chrono::steady_clock;

  /// A change that may share its commit with others. Lives on the stack of the one who waits for
  /// it.
  class Change {
  public:
    Change() = default;
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;
    virtual ~Change() = default;
    /// What became of it; null: it is done.
    std::exception_ptr error;
  };
  /// Makes the changes and commits them. What fails is noted in the changes' `error`; the function
  /// itself throws nothing. Runs in the thread of one of the changes.
  using MakeChanges = std::function<void(const std::vector<Change*>&)>;

  explicit WriterPlace(MakeChanges makeChanges);
  WriterPlace(const WriterPlace&) = delete;
  WriterPlace& operator=(const WriterPlace&) = delete;

  /// The place, while it lives.
  class Hold {
  public:
    Hold() = default;
    Hold(Hold&& other) noexcept : place_(std::exchange(other.place_, nullptr)) {}
    Hold& operator=(Hold other) noexcept {
      std::swap(place_, other.place_);
      return *this;
    }
    ~Hold() {
      if (place_ != nullptr) place_->leave();
    }
    explicit operator bool() const { return place_ != nullptr; }

  private:
    friend class WriterPlace;
    explicit Hold(WriterPlace& place) : place_(&place) {}
    WriterPlace* place_ = nullptr;
  };

  /// Throws StoreError Busy when the wait ends without it, Interrupted when `control` ends it.
  Hold take(const Patience& patience);
  /// Makes the change together with others. Throws what became of it, or as `take` does.
  void make(Change& change, const Patience& patience);
  /// Has the one who waits with this control look at it again.
  void wake(const RunControl& control);

  /// How long all who came have waited together.
  double secondsWaited() const;
  std::size_t waiting() const;

private:
  struct Waiter;

  /// Returns when the waiter has the place, or its change was made by another one.
  void await(std::unique_lock<std::mutex>& lock, Waiter& waiter, const Patience& patience);
  /// Makes one's own change and all others that wait, and passes the place on.
  void lead(std::unique_lock<std::mutex>& lock, Change& own);
  void leave();
  void passOn();

  const MakeChanges makeChanges_;
  mutable std::mutex mutex_;
  bool taken_ = false;
  std::list<Waiter*> line_;
  std::size_t changesInLine_ = 0;
  Clock::duration waited_{};

  // The group: who leads it may wait a moment for others.
  bool isGathering_ = false;
  std::condition_variable gathered_;
  std::size_t expected_ = 0;  // how many changes there were at the end of the last group
  Clock::duration lastDuration_{};
  std::vector<Change*> together_;
  std::vector<Waiter*> served_;
};

}  // namespace nox::agent
