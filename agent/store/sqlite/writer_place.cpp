#include "agent/store/sqlite/writer_place.h"

#include <algorithm>

#include "agent/store/store.h"

namespace nox::agent {

namespace {

constexpr std::size_t kMostTogether = 256;  // changes in one commit

// How long the first of a group waits for those who were there a moment ago, as a part of what the
// group takes: they come back when their clients have read the last answers, and one that comes
// just too late waits for two commits instead of one.
constexpr int kPartToGather = 4;
constexpr std::chrono::milliseconds kLongestGathering{2};

// Waits beyond this are as good as endless, and the sum with the time of day does not overflow.
constexpr std::chrono::hours kLongestWait{24 * 365};

}  // namespace

struct WriterPlace::Waiter {
  enum class Turn {
    Waiting,
    HasPlace,
    IsServed,  // somebody else makes the change
    Done
  };

  Waiter(Change* itsChange, const RunControl* itsControl)
      : change(itsChange), control(itsControl), since(Clock::now()) {}

  Change* const change;  // null: wants the place for itself
  const RunControl* const control;
  const Clock::time_point since;
  Turn turn = Turn::Waiting;
  std::condition_variable signal;
};

WriterPlace::WriterPlace(MakeChanges makeChanges) : makeChanges_(std::move(makeChanges)) {
  // Neither grows later: nothing that has the place fails for want of memory.
  together_.reserve(kMostTogether);
  served_.reserve(kMostTogether);
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
  {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!taken_) {
      taken_ = true;
      lead(lock, change);
    } else {
      Waiter waiter(&change, patience.control);
      await(lock, waiter, patience);
      if (waiter.turn == Waiter::Turn::HasPlace) lead(lock, change);
    }
  }
  if (change.error) std::rethrow_exception(change.error);
}

void WriterPlace::await(std::unique_lock<std::mutex>& lock, Waiter& waiter,
                        const Patience& patience) {
  const RunControl* control = patience.control;
  const Clock::time_point enough =
      waiter.since + std::min<std::chrono::milliseconds>(patience.wait, kLongestWait);
  const bool deadlineIsFirst =
      control != nullptr && control->deadline && *control->deadline < enough;
  const Clock::time_point end = deadlineIsFirst ? *control->deadline : enough;

  line_.push_back(&waiter);
  if (waiter.change != nullptr && ++changesInLine_ + 1 >= expected_ && isGathering_) {
    gathered_.notify_one();
  }
  while (waiter.turn == Waiter::Turn::Waiting) {
    const bool isInterrupted = control != nullptr && control->interrupted;
    if (isInterrupted || Clock::now() >= end) {
      line_.remove(&waiter);
      if (waiter.change != nullptr) --changesInLine_;
      waited_ += Clock::now() - waiter.since;
      if (isInterrupted || deadlineIsFirst) {
        throw StoreError(StoreError::Kind::Interrupted, "the wait for another writer was ended");
      }
      throw StoreError(StoreError::Kind::Busy, "another writer keeps the store busy");
    }
    waiter.signal.wait_until(lock, end);
  }
  // Its change is being made: from here on it has an outcome, for which it waits.
  while (waiter.turn == Waiter::Turn::IsServed) waiter.signal.wait(lock);
}

void WriterPlace::lead(std::unique_lock<std::mutex>& lock, Change& own) {
  if (changesInLine_ + 1 < expected_) {
    isGathering_ = true;
    gathered_.wait_for(lock,
                       std::min<Clock::duration>(lastDuration_ / kPartToGather, kLongestGathering),
                       [this] { return changesInLine_ + 1 >= expected_; });
    isGathering_ = false;
  }

  const Clock::time_point start = Clock::now();
  together_.assign(1, &own);
  served_.clear();
  for (auto at = line_.begin(); at != line_.end() && together_.size() < kMostTogether;) {
    Waiter& waiter = **at;
    if (waiter.change == nullptr) {
      ++at;
      continue;
    }
    waiter.turn = Waiter::Turn::IsServed;
    waited_ += start - waiter.since;
    together_.push_back(waiter.change);
    served_.push_back(&waiter);
    at = line_.erase(at);
    --changesInLine_;
  }

  lock.unlock();
  makeChanges_(together_);
  lock.lock();

  lastDuration_ = Clock::now() - start;
  expected_ = together_.size() + changesInLine_;
  for (Waiter* waiter : served_) {
    waiter->turn = Waiter::Turn::Done;
    waiter->signal.notify_one();
  }
  passOn();
}

void WriterPlace::leave() {
  const std::lock_guard<std::mutex> lock(mutex_);
  passOn();
}

void WriterPlace::passOn() {
  if (line_.empty()) {
    taken_ = false;
    return;
  }
  Waiter& next = *line_.front();
  line_.pop_front();
  if (next.change != nullptr) --changesInLine_;
  next.turn = Waiter::Turn::HasPlace;
  waited_ += Clock::now() - next.since;
  next.signal.notify_one();
}

void WriterPlace::wake(const RunControl& control) {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (Waiter* waiter : line_) {
    if (waiter->control == &control) waiter->signal.notify_one();
  }
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
