// The writer's place: one at a time, in order, and changes that wait are made together.
#include "agent/store/sqlite/writer_place.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <functional>
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

class WriterPlaceThreads : public ::testing::Test {
protected:
  ~WriterPlaceThreads() override {
    for (std::thread& thread : threads) thread.join();
  }

  void makeChanges(const std::vector<WriterPlace::Change*>& changes) {
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

TEST_F(WriterPlaceThreads, ManyWritersNeverShareThePlace) {
  std::atomic<int> inside{0};
  std::atomic<int> changes{0};
  std::atomic<bool> wasShared{false};
  WriterPlace busy([&](const std::vector<WriterPlace::Change*>& group) {
    if (++inside != 1) wasShared = true;
    changes += static_cast<int>(group.size());
    --inside;
  });
  constexpr int kThreads = 8;
  constexpr int kRounds = 200;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      for (int round = 0; round < kRounds; ++round) {
        if ((i + round) % 4 == 0) {
          const WriterPlace::Hold hold = busy.take({kForEver, nullptr});
          if (++inside != 1) wasShared = true;
          --inside;
        } else {
          WriterPlace::Change change;
          busy.make(change, {kForEver, nullptr});
        }
      }
    });
  }
  joinAll();
  EXPECT_FALSE(wasShared);
  EXPECT_EQ(changes, kThreads * kRounds * 3 / 4);
  EXPECT_EQ(busy.waiting(), 0u);
}

}  // namespace
}  // namespace nox::agent::test
