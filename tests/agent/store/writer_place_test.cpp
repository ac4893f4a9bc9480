// The writer's place: one at a time, in order, and changes that wait are made together.
#include "agent/store/sqlite/writer_place.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/agent/store/store_test.h"

namespace nox::agent::test {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;

struct Named : WriterPlace::Change {
  explicit Named(std::string itsName) : name(std::move(itsName)) {}
  std::string name;
};

/// Allows waits, or not, and counts them.
class CountingWatch : public WriterWatch {
public:
  bool mayWait() override {
    ++asked;
    if (allows) ++waiting;
    return allows;
  }
  void hasWaited() noexcept override { --waiting; }
  void writes() override { ++writers; }
  void hasWritten() noexcept override { --writers; }

  std::atomic<bool> allows{true};
  std::atomic<int> asked{0};
  std::atomic<int> waiting{0};
  std::atomic<int> writers{0};
};

class WriterPlaceThreads : public ::testing::Test {
protected:
  ~WriterPlaceThreads() override {
    for (std::thread& thread : threads) thread.join();
  }

  virtual void synchronise() const {}

  void makeChanges(const std::vector<WriterPlace::Change*>& changes) {
    synchronise();
    std::string group;
    for (WriterPlace::Change* change : changes) {
      const std::string& name = static_cast<Named*>(change)->name;
      group += name;
      if (name == "bad") change->error = std::make_exception_ptr(std::runtime_error("bad"));
    }
    note(group);
  }

  void note(std::string what) {
    const std::lock_guard<std::mutex> lock(mutex);
    done.push_back(std::move(what));
  }

  /// Lets `work` run in a thread and returns when it waits in the line as the newest of `waiting`.
  void startAndQueue(std::size_t waiting, std::function<void()> work) {
    threads.emplace_back(std::move(work));
    ASSERT_TRUE(eventually([&] { return place.waiting() == waiting; }));
  }
  void queueChange(std::size_t waiting, const std::string& name) {
    startAndQueue(waiting, [this, name] {
      Named change(name);
      place.make(change, {kForEver, nullptr});
    });
  }
  void queueTransaction(std::size_t waiting, const std::string& name) {
    startAndQueue(waiting, [this, name] {
      const WriterPlace::Hold hold = place.take({kForEver, nullptr});
      note(name);
    });
  }
  void joinAll() {
    for (std::thread& thread : threads) thread.join();
    threads.clear();
  }

  std::mutex mutex;
  std::vector<std::string> done;
  WriterPlace place{
      [this](const std::vector<WriterPlace::Change*>& changes) { makeChanges(changes); }};
  std::vector<std::thread> threads;
};

/// How long a group takes: those who wait stay awake or sleep, and wait for each other or not, by
/// what they have seen of it.
struct Disk {
  const char* name;
  std::chrono::microseconds time;
  int rounds;
};

class WriterPlaceOnDiskThreads : public WriterPlaceThreads,
                                 public ::testing::WithParamInterface<Disk> {
protected:
  void synchronise() const override {
    if (GetParam().time.count() > 0) {
      std::this_thread::sleep_for(GetParam().time);
    } else {
      std::this_thread::yield();
    }
  }
};

INSTANTIATE_TEST_SUITE_P(, WriterPlaceOnDiskThreads,
                         ::testing::Values(Disk{"Fast", std::chrono::microseconds(0), 300},
                                           Disk{"Middling", std::chrono::microseconds(500), 50},
                                           Disk{"Slow", std::chrono::microseconds(2000), 30}),
                         [](const auto& disk) { return disk.param.name; });

TEST_F(WriterPlaceThreads, AFreePlaceIsTakenAtOnce) {
  { const WriterPlace::Hold hold = place.take({kNotAtAll, nullptr}); }
  const WriterPlace::Hold again = place.take({kNotAtAll, nullptr});
  EXPECT_TRUE(again);
}

TEST_F(WriterPlaceThreads, AChangeIsMadeAtOnceWhereThePlaceIsFree) {
  Named change("a");
  place.make(change, {kNotAtAll, nullptr});
  EXPECT_THAT(done, ElementsAre("a"));
}

TEST_F(WriterPlaceThreads, AFailedChangeThrowsItsOwnError) {
  Named change("bad");
  EXPECT_THROW(place.make(change, {kNotAtAll, nullptr}), std::runtime_error);
  const WriterPlace::Hold hold = place.take({kNotAtAll, nullptr});
}

TEST_F(WriterPlaceThreads, ATakenPlaceIsBusy) {
  const WriterPlace::Hold hold = place.take({kNotAtAll, nullptr});
  Named change("a");
  EXPECT_EQ(failure([&] { place.take({kNotAtAll, nullptr}); }), StoreError::Kind::Busy);
  EXPECT_EQ(failure([&] { place.make(change, {kNotAtAll, nullptr}); }), StoreError::Kind::Busy);
  EXPECT_EQ(place.waiting(), 0u);
  EXPECT_THAT(done, SizeIs(0));
}

TEST_F(WriterPlaceThreads, ChangesThatWaitAreMadeTogether) {
  {
    const WriterPlace::Hold hold = place.take({kNotAtAll, nullptr});
    queueChange(1, "a");
    queueChange(2, "b");
    queueChange(3, "c");
  }
  joinAll();
  EXPECT_THAT(done, ElementsAre("abc"));
}

TEST_F(WriterPlaceThreads, EveryChangeOfAGroupHasItsOwnOutcome) {
  std::atomic<int> failed{0};
  {
    const WriterPlace::Hold hold = place.take({kNotAtAll, nullptr});
    queueChange(1, "a");
    startAndQueue(2, [&] {
      Named change("bad");
      try {
        place.make(change, {kForEver, nullptr});
      } catch (const std::runtime_error&) {
        ++failed;
      }
    });
    queueChange(3, "c");
  }
  joinAll();
  EXPECT_EQ(failed, 1);
}

TEST_F(WriterPlaceThreads, NobodyIsAnsweredBeforeTheGroupIsMade) {
  std::atomic<int> answered{0};
  std::atomic<int> answeredTooEarly{-1};
  WriterPlace slow([&](const std::vector<WriterPlace::Change*>& group) {
    std::this_thread::yield();
    if (group.size() == 3) answeredTooEarly = answered.load();
  });
  {
    const WriterPlace::Hold hold = slow.take({kNotAtAll, nullptr});
    for (std::size_t i = 0; i < 3; ++i) {
      threads.emplace_back([&] {
        WriterPlace::Change change;
        slow.make(change, {kForEver, nullptr});
        ++answered;
      });
      ASSERT_TRUE(eventually([&] { return slow.waiting() == i + 1; }));
    }
  }
  joinAll();
  EXPECT_EQ(answeredTooEarly, 0);
  EXPECT_EQ(answered, 3);
}

TEST_F(WriterPlaceThreads, AnInterruptComesTooLateForAChangeThatIsBeingMade) {
  std::promise<void> begun;
  std::promise<void> interrupted;
  WriterPlace slow([&](const std::vector<WriterPlace::Change*>& group) {
    if (group.size() < 2) return;
    begun.set_value();
    interrupted.get_future().wait();
  });
  RunControl control;
  std::atomic<int> made{0};
  {
    const WriterPlace::Hold hold = slow.take({kNotAtAll, nullptr});
    for (std::size_t i = 0; i < 2; ++i) {
      threads.emplace_back([&] {
        WriterPlace::Change change;
        slow.make(change, {kForEver, &control});
        ++made;
      });
      ASSERT_TRUE(eventually([&] { return slow.waiting() == i + 1; }));
    }
  }
  begun.get_future().wait();
  control.interrupted = true;
  slow.wake(control);
  interrupted.set_value();
  joinAll();
  EXPECT_EQ(made, 2);
}

TEST_F(WriterPlaceThreads, WhoeverComesInterruptedDoesNotWait) {
  const WriterPlace::Hold hold = place.take({kNotAtAll, nullptr});
  RunControl control;
  control.interrupted = true;
  Named change("a");
  EXPECT_EQ(failure([&] {
              place.make(change, {kForEver, &control});
            }),
            StoreError::Kind::Interrupted);
  EXPECT_EQ(place.waiting(), 0u);
}

TEST_P(WriterPlaceOnDiskThreads, AGroupThatDoesNotComeBackIsNotWaitedForInVain) {
  {
    const WriterPlace::Hold hold = place.take({kNotAtAll, nullptr});
    queueChange(1, "a");
    queueChange(2, "b");
    queueChange(3, "c");
  }
  joinAll();
  // Alone from here on, with and without those who are expected.
  for (const char* const name : {"d", "e"}) {
    Named change(name);
    place.make(change, {kForEver, nullptr});
  }
  EXPECT_THAT(done, ElementsAre("abc", "d", "e"));
}

TEST_F(WriterPlaceThreads, WhoeverWasAnsweredFindsThePlaceFree) {
  std::atomic<int> refused{0};
  for (int round = 0; round < 100; ++round) {
    {
      const WriterPlace::Hold hold = place.take({kNotAtAll, nullptr});
      startAndQueue(1, [&] {
        Named change("a");
        place.make(change, {kForEver, nullptr});
        if (failure([&] { place.take({kNotAtAll, nullptr}); })) ++refused;
      });
    }
    joinAll();
  }
  EXPECT_EQ(refused, 0);
}

TEST_F(WriterPlaceThreads, WhenNobodyWaitsAnyMoreThePlaceIsNotKeptForOthers) {
  WriterPlace slow([&](const std::vector<WriterPlace::Change*>&) {
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
  });
  {
    const WriterPlace::Hold hold = slow.take({kNotAtAll, nullptr});
    for (std::size_t i = 0; i < 2; ++i) {
      threads.emplace_back([&] {
        WriterPlace::Change change;
        slow.make(change, {kForEver, nullptr});
      });
      ASSERT_TRUE(eventually([&] { return slow.waiting() == i + 1; }));
    }
  }
  joinAll();
  // The other one is waited for, and this one ends its wait before that is over, unless this thread
  // gets no time: then its change is made.
  RunControl control;
  control.deadline = std::chrono::steady_clock::now() + std::chrono::microseconds(100);
  WriterPlace::Change change;
  const auto ended = failure([&] { slow.make(change, {kForEver, &control}); });
  EXPECT_EQ(ended.value_or(StoreError::Kind::Interrupted), StoreError::Kind::Interrupted);
  EXPECT_FALSE(failure([&] { slow.take({kNotAtAll, nullptr}); }));
}

TEST_F(WriterPlaceThreads, AWaitForATransactionIsWatchedUntilItEnds) {
  CountingWatch watch;
  {
    const WriterPlace::Hold hold = place.take({kNotAtAll, nullptr, &watch});
    EXPECT_EQ(watch.asked, 0) << "the place was free";
    startAndQueue(1, [&] {
      Named change("a");
      place.make(change, {kForEver, nullptr, &watch});
    });
    EXPECT_EQ(watch.waiting, 1);
  }
  joinAll();
  EXPECT_EQ(watch.asked, 1);
  EXPECT_EQ(watch.waiting, 0);
}

TEST_F(WriterPlaceThreads, AWaitBehindAnotherThatWaitsForATransactionIsWatchedToo) {
  CountingWatch watch;
  std::promise<void> go;
  WriterPlace slow([&](const std::vector<WriterPlace::Change*>&) { go.get_future().wait(); });
  threads.emplace_back([&] {
    WriterPlace::Change change;
    slow.make(change, {kForEver, nullptr, &watch});
  });
  ASSERT_TRUE(eventually([&] {
    return failure([&] { slow.take({kNotAtAll, nullptr}); }) == StoreError::Kind::Busy;
  }));
  threads.emplace_back([&] { slow.take({kForEver, nullptr, &watch}); });
  ASSERT_TRUE(eventually([&] { return slow.waiting() == 1; }));
  EXPECT_EQ(watch.asked, 0) << "nobody waits for long for a group";
  threads.emplace_back([&] { slow.take({kForEver, nullptr, &watch}); });
  ASSERT_TRUE(eventually([&] { return slow.waiting() == 2; }));
  EXPECT_EQ(watch.waiting, 1);
  go.set_value();
  joinAll();
  EXPECT_EQ(watch.waiting, 0);
}

TEST_F(WriterPlaceThreads, AWaitThatIsNotAllowedIsNone) {
  CountingWatch watch;
  watch.allows = false;
  const WriterPlace::Hold hold = place.take({kNotAtAll, nullptr});
  EXPECT_EQ(failure([&] {
              place.take({kForEver, nullptr, &watch});
            }),
            StoreError::Kind::RolledBack);
  EXPECT_EQ(failure([&] {
              place.take({kNotAtAll, nullptr, &watch});
            }),
            StoreError::Kind::Busy)
      << "who does not wait is not asked";
  EXPECT_EQ(watch.asked, 1);
  EXPECT_EQ(place.waiting(), 0u);
}

TEST_F(WriterPlaceThreads, TransactionsHaveThePlaceInTheOrderInWhichTheyCame) {
  {
    const WriterPlace::Hold hold = place.take({kNotAtAll, nullptr});
    queueTransaction(1, "1");
    queueTransaction(2, "2");
    queueTransaction(3, "3");
  }
  joinAll();
  EXPECT_THAT(done, ElementsAre("1", "2", "3"));
}

TEST_F(WriterPlaceThreads, ATransactionIsNotOvertakenByAGroupThatComesLater) {
  {
    const WriterPlace::Hold hold = place.take({kNotAtAll, nullptr});
    queueTransaction(1, "T");
    queueChange(2, "a");
    queueChange(3, "b");
  }
  joinAll();
  EXPECT_THAT(done, ElementsAre("T", "ab"));
}

TEST_F(WriterPlaceThreads, OneWhoGivesUpLeavesTheOthersInOrder) {
  std::atomic<bool> gaveUp{false};
  RunControl control;
  {
    const WriterPlace::Hold hold = place.take({kNotAtAll, nullptr});
    queueTransaction(1, "1");
    startAndQueue(2, [&] {
      gaveUp = failure([&] { place.take({kForEver, &control}); }) == StoreError::Kind::Interrupted;
    });
    queueTransaction(3, "3");
    control.interrupted = true;
    place.wake(control);
    ASSERT_TRUE(eventually([&] { return place.waiting() == 2; }));
  }
  joinAll();
  EXPECT_TRUE(gaveUp);
  EXPECT_THAT(done, ElementsAre("1", "3"));
}

TEST_F(WriterPlaceThreads, WaitsAreCountedTogether) {
  {
    const WriterPlace::Hold hold = place.take({kNotAtAll, nullptr});
    queueChange(1, "a");
  }
  joinAll();
  EXPECT_GT(place.secondsWaited(), 0);
}

// Waits end while changes are taken into groups, by time and by interruption: what was answered and
// what was made must be the same.
TEST_P(WriterPlaceOnDiskThreads, AChangeIsMadeUnlessItsWaiterWasToldOtherwise) {
  struct Counted : WriterPlace::Change {
    std::atomic<int> made{0};
  };
  WriterPlace busy([&](const std::vector<WriterPlace::Change*>& group) {
    synchronise();
    for (WriterPlace::Change* const change : group) ++static_cast<Counted*>(change)->made;
  });
  constexpr int kThreads = 8;
  const int rounds = GetParam().rounds;
  std::vector<RunControl> controls(kThreads);
  std::atomic<bool> isOver{false};
  std::atomic<int> mistakes{0};
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      RunControl& control = controls[static_cast<std::size_t>(i)];
      for (int round = 0; round < rounds; ++round) {
        control.interrupted = false;
        const std::chrono::milliseconds wait = (i + round) % 2 == 0 ? kNotAtAll : kForEver;
        Counted change;
        bool isToldMade = true;
        try {
          busy.make(change, {wait, &control});
        } catch (const StoreError&) {
          isToldMade = false;
        }
        if (change.made != (isToldMade ? 1 : 0)) ++mistakes;
      }
    });
  }
  std::thread interrupter([&] {
    for (std::size_t i = 0; !isOver; i = (i + 1) % kThreads) {
      controls[i].interrupted = true;
      busy.wake(controls[i]);
      std::this_thread::yield();
    }
  });
  joinAll();
  isOver = true;
  interrupter.join();
  EXPECT_EQ(mistakes, 0);
  EXPECT_EQ(busy.waiting(), 0u);
  // The place's own thread may just be about to see that the one who was there last has left.
  const WriterPlace::Hold hold = busy.take({kForEver, nullptr});
}

TEST_P(WriterPlaceOnDiskThreads, ManyWritersNeverShareThePlace) {
  std::atomic<int> inside{0};
  std::atomic<int> changes{0};
  std::atomic<int> changesAsked{0};
  std::atomic<bool> wasShared{false};
  WriterPlace busy([&](const std::vector<WriterPlace::Change*>& group) {
    if (++inside != 1) wasShared = true;
    synchronise();
    changes += static_cast<int>(group.size());
    --inside;
  });
  constexpr int kThreads = 8;
  const int rounds = GetParam().rounds;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      for (int round = 0; round < rounds; ++round) {
        if ((i + round) % 4 == 0) {
          const WriterPlace::Hold hold = busy.take({kForEver, nullptr});
          if (++inside != 1) wasShared = true;
          --inside;
        } else {
          WriterPlace::Change change;
          ++changesAsked;
          busy.make(change, {kForEver, nullptr});
        }
      }
    });
  }
  joinAll();
  EXPECT_FALSE(wasShared);
  EXPECT_EQ(changes, changesAsked);
  EXPECT_EQ(busy.waiting(), 0u);
}

}  // namespace
}  // namespace nox::agent::test
