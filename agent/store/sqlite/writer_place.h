// WriterPlace: who writes to an account now, and who is next.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "agent/store/sqlite/run_control.h"

namespace nox::agent {

class WriterWatch;

/// How long someone waits for the place, what ends the wait before, and who is asked whether there
/// may be one where a transaction has the place, or is ahead in the line.
struct Patience {
  std::chrono::milliseconds wait{0};
  const RunControl* control = nullptr;
  WriterWatch* watch = nullptr;
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

  /// Throws StoreError Busy when the wait ends without it, Interrupted when `control` ends it,
  /// RolledBack when `watch` does not allow it.
  Hold take(const Patience& patience);
  /// Makes the change together with others. Throws what became of it, or as `take` does.
  void make(Change& change, const Patience& patience);
  /// Ends the wait of the one who waits with this control, which was interrupted.
  void wake(const RunControl& control);

  /// How long all who came have waited together.
  double secondsWaited() const;
  std::size_t waiting() const;

private:
  class Alarm;
  struct Waiter;

  /// Returns, without the lock, whether the waiter has the place now; if not, its change was made.
  bool await(std::unique_lock<std::mutex>& lock, Waiter& waiter, const Patience& patience);
  /// How long someone who begins to wait stays awake. With the lock.
  Clock::duration timeAwake() const;
  /// Until the alarm is raised; false when `end` came first.
  bool waitFor(Alarm& alarm, Clock::time_point end, Clock::duration awake);
  [[noreturn]] static void throwInterrupted();
  void makeTogether(Change& change, const Patience& patience);
  /// Waits a moment for those who were there a moment ago. False, without the lock, when the last
  /// of them has made the waiter's change.
  bool gather(std::unique_lock<std::mutex>& lock, Waiter& waiter);
  /// Makes one's own change, that of the one who gathered, and all others that wait, and passes the
  /// place on. Returns without the lock.
  void lead(std::unique_lock<std::mutex>& lock, Change& own, Waiter* gathered);
  void leave();

  // With the lock.
  /// Returns who is to be woken, without the lock: it has the place.
  Waiter* passOn();
  void remove(Waiter& waiter);
  /// The waiter is no longer in the line.
  void left(const Waiter& waiter, Clock::time_point now);

  const MakeChanges makeChanges_;
  mutable std::mutex mutex_;
  bool taken_ = false;
  bool isGroups_ = false;  // by one who makes changes, or is about to
  std::deque<Waiter*> line_;
  std::size_t changesInLine_ = 0;
  Clock::duration waited_{};
  std::atomic<int> awake_{0};  // of those who wait

  // The group.
  Waiter* gathering_ = nullptr;  // has the place and waits for the others
  std::size_t expected_ = 0;     // how many changes there were at the end of the last group
  // Whether those who were expected last have come: while somebody gathered, or, where nobody did,
  // before the group was made.
  bool isWorthWaiting_ = true;
  Clock::duration lastDuration_{};
  std::vector<Change*> together_;
};

}  // namespace nox::agent
