#include "agent/store/sqlite/writer_place.h"

#include <pthread.h>
#include <semaphore.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <string>
#include <system_error>
#include <thread>

#include "agent/store/store.h"

namespace nox::agent {

namespace {

constexpr std::size_t kMostTogether = 256;  // changes in one commit

// A group waits for those who were there a moment ago, at most for as long as it takes itself: they
// come back when their clients have read the last answers, and one that comes just too late waits
// for two commits instead of one.
constexpr std::chrono::milliseconds kLongestGathering{2};
// Where a group takes little more than they take to come back, two groups by turns do more.
constexpr std::chrono::microseconds kWorthGathering{250};

// To wake a thread takes a good part of the time in which a fast disk synchronises. Where a group
// takes no longer than this, who makes it and a few of those who wait for it stay awake, for as
// long at most; whoever else can run goes first.
constexpr std::chrono::milliseconds kShortGroup{1};
constexpr int kMostAwake = 8;

// Waits beyond this are as good as endless, and the sum with the time of day does not overflow.
constexpr std::chrono::hours kLongestWait{24 * 365};

}  // namespace

/// Wakes the one who sleeps on it, once. There is no lock that the one who wakes up would have to
/// wait for, and it may go as soon as it was woken.
class WriterPlace::Alarm {
public:
  Alarm() { sem_init(&raised_, 0, 0); }
  ~Alarm() { sem_destroy(&raised_); }
  Alarm(const Alarm&) = delete;
  Alarm& operator=(const Alarm&) = delete;

  void raise() { sem_post(&raised_); }
  void sleep() {
    while (sem_wait(&raised_) != 0) {
    }
  }
  /// Without falling asleep. False when the time came first.
  bool lookUntil(Clock::time_point end) {
    while (sem_trywait(&raised_) != 0) {
      if (Clock::now() >= end) return false;
      std::this_thread::yield();
    }
    return true;
  }
  /// False when the time came first.
  bool sleepUntil(Clock::time_point end) {
    const auto time = std::max(end.time_since_epoch(), Clock::duration::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    timespec until{};
    until.tv_sec = seconds.count();
    until.tv_nsec = std::chrono::nanoseconds(time - seconds).count();
    while (sem_clockwait(&raised_, CLOCK_MONOTONIC, &until) != 0) {
      if (errno == ETIMEDOUT) return false;
    }
    return true;
  }

private:
  sem_t raised_{};
};

/// Lies on the stack of the one who waits. Whoever takes it out of the line, or its change into a
/// group, raises its alarm once, and does not touch it afterwards.
struct WriterPlace::Waiter {
  enum class Turn {
    Waiting,
    IsServed,     // its change is being made
    Done,         // its change was made
    HasPlace,     // the place is its own
    Interrupted,  // it waits no longer
  };

  Waiter(Change* itsChange, const RunControl* itsControl)
      : change(itsChange), control(itsControl), since(Clock::now()) {}

  void wake(Turn itsTurn) {
    turn.store(itsTurn, std::memory_order_release);
    alarm.raise();
  }

  Change* const change;  // null: wants the place for itself
  const RunControl* const control;
  const Clock::time_point since;
  std::atomic<Turn> turn{Turn::Waiting};
  Waiter* nextServed = nullptr;
  Alarm alarm;
};

namespace {

/// A wait that is watched, or one that is not.
class WatchedWait {
public:
  explicit WatchedWait(WriterWatch* watch) : watch_(watch) {
    if (watch_ != nullptr && !watch_->mayWait()) {
      throw StoreError(StoreError::Kind::RolledBack, "the session that writes waits for this one");
    }
  }
  ~WatchedWait() {
    if (watch_ != nullptr) watch_->hasWaited();
  }
  WatchedWait(const WatchedWait&) = delete;
  WatchedWait& operator=(const WatchedWait&) = delete;

private:
  WriterWatch* const watch_;
};

}  // namespace

/// The thread that makes groups.
struct WriterPlace::Maker {
  Alarm called;    // it has the place
  Alarm gathered;  // it waits for others no more
  std::thread thread;
};

WriterPlace::WriterPlace(MakeChanges makeChanges)
    : makeChanges_(std::move(makeChanges)), maker_(std::make_unique<Maker>()) {
  // It does not grow later: nothing that has the place fails for want of memory.
  together_.reserve(kMostTogether);
  try {
    maker_->thread = std::thread([this] { makeGroups(); });
  } catch (const std::system_error& error) {
    throw StoreError(StoreError::Kind::Failed, std::string("no thread to write: ") + error.what());
  }
  pthread_setname_np(maker_->thread.native_handle(), "noxd-writer");
}

WriterPlace::~WriterPlace() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    isOver_ = true;
  }
  maker_->called.raise();
  maker_->thread.join();
}

WriterPlace::Hold WriterPlace::take(const Patience& patience) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (!taken_) {
    taken_ = true;
  } else {
    Waiter waiter(nullptr, patience.control);
    await(lock, waiter, patience);
  }
  return Hold(*this);
}

void WriterPlace::make(Change& change, const Patience& patience) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (!taken_ && (patience.wait.count() == 0 || !areOthersExpected())) {
    makeAlone(lock, change);
  } else {
    Waiter waiter(&change, patience.control);
    await(lock, waiter, patience);
  }
  if (change.error) std::rethrow_exception(change.error);
}

void WriterPlace::makeAlone(std::unique_lock<std::mutex>& lock, Change& change) {
  taken_ = true;
  isGroups_ = true;
  const bool isComplete = expected_ <= 1;
  const Clock::time_point start = Clock::now();
  together_.assign(1, &change);
  lock.unlock();
  makeChanges_(together_);
  lock.lock();
  noteGroup(1, isComplete, Clock::now() - start);
  Alarm* const next = passOn();
  lock.unlock();
  if (next != nullptr) next->raise();
}

void WriterPlace::await(std::unique_lock<std::mutex>& lock, Waiter& waiter,
                        const Patience& patience) {
  using Turn = Waiter::Turn;
  const RunControl* control = patience.control;
  const Clock::time_point enough =
      waiter.since + std::min<std::chrono::milliseconds>(patience.wait, kLongestWait);
  const bool deadlineIsFirst =
      control != nullptr && control->deadline && *control->deadline < enough;
  if (control != nullptr && control->interrupted) throwInterrupted();
  const bool isBehindTransaction = taken_ && (!isGroups_ || line_.size() > changesInLine_);
  const bool isWatched = isBehindTransaction && patience.wait.count() > 0;
  const WatchedWait watched(isWatched ? patience.watch : nullptr);

  line_.push_back(&waiter);
  if (waiter.change != nullptr) ++changesInLine_;
  Alarm* const toRaise = taken_ ? endGathering() : passOn();
  const Clock::duration awake = timeAwake();
  lock.unlock();
  if (toRaise != nullptr) toRaise->raise();
  if (!waitFor(waiter.alarm, deadlineIsFirst ? *control->deadline : enough, awake)) {
    lock.lock();
    if (waiter.turn.load(std::memory_order_relaxed) == Turn::Waiting) {
      remove(waiter);
      if (deadlineIsFirst) throwInterrupted();
      throw StoreError(StoreError::Kind::Busy, "another writer keeps the store busy");
    }
    lock.unlock();
    // Its turn has just come, or its change is being made and has an outcome, for which it waits.
    waiter.alarm.sleep();
  }
  if (waiter.turn.load(std::memory_order_acquire) == Turn::Interrupted) throwInterrupted();
}

WriterPlace::Clock::duration WriterPlace::timeAwake() const {
  return isGroups_ && lastDuration_ <= kShortGroup ? kShortGroup : Clock::duration::zero();
}

bool WriterPlace::waitFor(Alarm& alarm, Clock::time_point end, Clock::duration awake) {
  if (awake > Clock::duration::zero()) {
    const bool isOneOfFew = awake_.fetch_add(1, std::memory_order_relaxed) < kMostAwake;
    const bool isRaised = isOneOfFew && alarm.lookUntil(std::min(end, Clock::now() + awake));
    awake_.fetch_sub(1, std::memory_order_relaxed);
    if (isRaised) return true;
  }
  return alarm.sleepUntil(end);
}

void WriterPlace::throwInterrupted() {
  throw StoreError(StoreError::Kind::Interrupted, "the wait for another writer was ended");
}

void WriterPlace::remove(Waiter& waiter) {
  line_.erase(std::find(line_.begin(), line_.end(), &waiter));
  left(waiter, Clock::now());
  Alarm* const gathering = endGathering();
  if (gathering == nullptr) return;
  // Nobody is left for whom the place is kept.
  gathering->raise();
  if (Alarm* const next = passOn(); next != nullptr) next->raise();
}

void WriterPlace::left(const Waiter& waiter, Clock::time_point now) {
  if (waiter.change != nullptr) --changesInLine_;
  waited_ += now - waiter.since;
}

// Groups.

void WriterPlace::makeGroups() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!isOver_) {
    const Clock::duration awake = lastDuration_ <= kShortGroup ? kShortGroup : Clock::duration{};
    lock.unlock();
    if (!maker_->called.lookUntil(Clock::now() + awake)) maker_->called.sleep();
    lock.lock();
    if (isOver_) return;
    while (gather(lock) && makeGroupsAtHand(lock)) {
    }
  }
}

bool WriterPlace::makeGroupsAtHand(std::unique_lock<std::mutex>& lock) {
  Waiter* made = nullptr;
  for (;;) {
    const Clock::time_point start = Clock::now();
    Waiter* const group = takeGroup(start);
    const bool isComplete = together_.size() + changesInLine_ >= expected_;
    // The lock once for each group: whoever has to wait for it sleeps.
    lock.unlock();
    tell(made);
    if (group != nullptr) makeChanges_(together_);
    lock.lock();
    made = group;
    if (group != nullptr) noteGroup(together_.size(), isComplete, Clock::now() - start);
    if (!isChangeNext() || areOthersExpected()) break;
  }
  const bool goesOn = isChangeNext();
  // Before anybody is answered: who comes again then finds the place free.
  Alarm* const next = goesOn ? nullptr : passOn();
  lock.unlock();
  if (next != nullptr) next->raise();
  tell(made);
  lock.lock();
  return goesOn;
}

void WriterPlace::tell(Waiter* made) {
  while (made != nullptr) std::exchange(made, made->nextServed)->wake(Waiter::Turn::Done);
}

bool WriterPlace::areOthersExpected() const {
  return changesInLine_ < expected_ && expected_ > 1 && isWorthWaiting_ &&
         lastDuration_ >= kWorthGathering;
}

bool WriterPlace::gather(std::unique_lock<std::mutex>& lock) {
  if (changesInLine_ == 0 || !areOthersExpected()) return true;
  gathering_ = Gathering::Goes;
  const auto time = std::min<Clock::duration>(lastDuration_, kLongestGathering);
  const Clock::duration awake = timeAwake();
  lock.unlock();
  const bool isRaised = waitFor(maker_->gathered, Clock::now() + time, awake);
  lock.lock();
  if (!isRaised && gathering_ != Gathering::Goes) {
    lock.unlock();
    maker_->gathered.sleep();  // it is raised just now
    lock.lock();
  }
  return std::exchange(gathering_, Gathering::None) != Gathering::GivenUp;
}

WriterPlace::Alarm* WriterPlace::endGathering() {
  if (gathering_ != Gathering::Goes) return nullptr;
  if (changesInLine_ > 0 && changesInLine_ < expected_) return nullptr;
  gathering_ = changesInLine_ > 0 ? Gathering::IsComplete : Gathering::GivenUp;
  return &maker_->gathered;
}

WriterPlace::Waiter* WriterPlace::takeGroup(Clock::time_point now) {
  together_.clear();
  Waiter* first = nullptr;
  Waiter** last = &first;
  const auto isTaken = [&](Waiter* waiter) {
    if (waiter->change == nullptr || together_.size() == kMostTogether) return false;
    waiter->turn.store(Waiter::Turn::IsServed, std::memory_order_relaxed);
    together_.push_back(waiter->change);
    *last = waiter;
    last = &waiter->nextServed;
    left(*waiter, now);
    return true;
  };
  line_.erase(std::remove_if(line_.begin(), line_.end(), isTaken), line_.end());
  return first;
}

void WriterPlace::noteGroup(std::size_t changes, bool isComplete, Clock::duration took) {
  lastDuration_ = took;
  const std::size_t present = changes + changesInLine_;
  isWorthWaiting_ = isComplete || (!isWorthWaiting_ && present >= expected_);
  expected_ = present;
}

void WriterPlace::leave() {
  Alarm* next = nullptr;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    next = passOn();
  }
  if (next != nullptr) next->raise();
}

bool WriterPlace::isChangeNext() const {
  return !line_.empty() && line_.front()->change != nullptr;
}

WriterPlace::Alarm* WriterPlace::passOn() {
  taken_ = !line_.empty();
  isGroups_ = isChangeNext();
  if (!taken_) return nullptr;
  if (isGroups_) return &maker_->called;
  Waiter* const next = line_.front();
  line_.pop_front();
  left(*next, Clock::now());
  next->turn.store(Waiter::Turn::HasPlace, std::memory_order_release);
  return &next->alarm;
}

void WriterPlace::wake(const RunControl& control) {
  Waiter* interrupted = nullptr;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = std::find_if(line_.begin(), line_.end(),
                                    [&](Waiter* waiter) { return waiter->control == &control; });
    if (found == line_.end()) return;
    interrupted = *found;
    interrupted->turn.store(Waiter::Turn::Interrupted, std::memory_order_relaxed);
    remove(*interrupted);
  }
  interrupted->wake(Waiter::Turn::Interrupted);
}

double WriterPlace::secondsWaited() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::chrono::duration<double>(waited_).count();
}

std::size_t WriterPlace::waiting() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return line_.size();
}

}  // namespace nox::agent
