// WriterPlace: who writes to an account now, and who is next.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
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
/// transaction has the place for itself, while all the single changes that wait are made together:
/// that is one commit, and one synchronisation of the disk. A thread of the place's own makes them,
/// since whoever of those who wait did it would answer its own client only after the next group, or
/// leave the place free until another thread has woken up. A change that finds the place free is
/// made at once by the one who brings it. Safe for threads.
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
  /// itself throws nothing. Runs in the place's own thread, or in that of a change that is alone.
  using MakeChanges = std::function<void(const std::vector<Change*>&)>;

  /// Throws StoreError when there is no thread to be had.
  explicit WriterPlace(MakeChanges makeChanges);
  /// Nobody may wait any more.
  ~WriterPlace();
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
  struct Maker;
  struct Waiter;

  /// Waits in the line. Returns, without the lock, when the waiter has the place, or its change was
  /// made.
  void await(std::unique_lock<std::mutex>& lock, Waiter& waiter, const Patience& patience);
  /// How long someone who begins to wait stays awake. With the lock.
  Clock::duration timeAwake() const;
  /// Until the alarm is raised; false when `end` came first.
  bool waitFor(Alarm& alarm, Clock::time_point end, Clock::duration awake);
  [[noreturn]] static void throwInterrupted();
  /// Makes a change where the place is free. Returns without the lock.
  void makeAlone(std::unique_lock<std::mutex>& lock, Change& change);
  void leave();

  // In the thread that makes groups.
  void makeGroups();
  /// Waits a moment for those who were there a moment ago. False when it has not the place any
  /// more, since nobody was left.
  bool gather(std::unique_lock<std::mutex>& lock);
  /// Makes all the changes that wait, and those that come meanwhile, until there is none or others
  /// are to be waited for. False when it has passed the place on.
  bool makeGroupsAtHand(std::unique_lock<std::mutex>& lock);
  /// Without the lock: to those of a group, that their changes are made.
  static void tell(Waiter* made);

  // With the lock.
  /// Whether a first change should wait for those who were there a moment ago.
  bool areOthersExpected() const;
  /// What the next ones go by. `isComplete`: all who were expected have come before it was made.
  void noteGroup(std::size_t changes, bool isComplete, Clock::duration took);
  bool isChangeNext() const;
  /// Takes the changes that wait out of the line. Returns who waits for them, as a chain.
  Waiter* takeGroup(Clock::time_point now);
  /// After someone has come or gone: what is to be raised where there is no more to wait for.
  Alarm* endGathering();
  /// Returns whom to tell, without the lock, that it has the place.
  Alarm* passOn();
  void remove(Waiter& waiter);
  /// The waiter is no longer in the line.
  void left(const Waiter& waiter, Clock::time_point now);

  const MakeChanges makeChanges_;
  mutable std::mutex mutex_;
  bool taken_ = false;
  bool isGroups_ = false;  // for changes
  std::deque<Waiter*> line_;
  std::size_t changesInLine_ = 0;
  Clock::duration waited_{};
  std::atomic<int> awake_{0};  // of those who wait

  // The group.
  std::size_t expected_ = 0;  // how many changes there were at the end of the last group
  // Whether those who were expected last have come: while they were waited for, or, where nobody
  // waited, before the group was made.
  bool isWorthWaiting_ = true;
  enum class Gathering { None, Goes, IsComplete, GivenUp };
  Gathering gathering_ = Gathering::None;
  Clock::duration lastDuration_{};
  std::vector<Change*> together_;  // belongs to who has the place

  bool isOver_ = false;
  const std::unique_ptr<Maker> maker_;
};

}  // namespace nox::agent
