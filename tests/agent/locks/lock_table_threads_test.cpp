// Locks between threads: who waits, in which order they are served, and what would never end.
#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "agent/locks/lock_table.h"
#include "waiting.h"

namespace nox::agent::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::ElementsAre;

class LockTableThreads : public ::testing::Test {
protected:
  LockOutcome now(LockOwner owner, const RecordLock& record, LockKind kind = LockKind::Update) {
    return locks.acquire(owner, record, kind, kNotAtAll);
  }
  /// Asks in a thread of its own, and returns when that thread waits.
  std::future<LockOutcome> wait(LockOwner owner, const RecordLock& record,
                                LockKind kind = LockKind::Update, milliseconds time = kLong) {
    const std::size_t before = waitingFor(locks, record);
    auto outcome = std::async(std::launch::async, [this, owner, record, kind, time] {
      return locks.acquire(owner, record, kind, time);
    });
    EXPECT_TRUE(comesTrue([&] { return waitingFor(locks, record) > before; }));
    return outcome;
  }

  LockTable locks;
  LockOwner ann = locks.newOwner();
  LockOwner bob = locks.newOwner();
  LockOwner cid = locks.newOwner();
  LockOwner dot = locks.newOwner();
  const std::string account = "MAIN";
  FilePart file{"CUSTOMERS", Part::Data};
  RecordLock first{account, file, "1"};
  RecordLock second{"MAIN", file, "2"};
  RecordLock third{"MAIN", file, "3"};
  RecordLock wholePart{"MAIN", file, ""};
};

TEST_F(LockTableThreads, AWaitEndsWithTheLock) {
  now(ann, first);
  auto outcome = wait(bob, first);
  locks.release(ann, first);
  EXPECT_EQ(outcome.get(), LockOutcome::Granted);
  EXPECT_EQ(now(ann, first), LockOutcome::Locked);
}

TEST_F(LockTableThreads, WhatAWaiterGotMayBeTakenFromItBeforeItWakes) {
  for (const RecordLock& record : {first, wholePart}) {
    now(ann, record);
    auto outcome = wait(bob, record);
    locks.release(ann, record);
    locks.release(bob, record);  // as an administrator does
    EXPECT_EQ(outcome.get(), LockOutcome::Granted);
    EXPECT_EQ(locks.size(), 0u);
  }
}

TEST_F(LockTableThreads, AWaitEndsWhenItsTimeIsOver) {
  now(ann, first);
  const auto begin = steady_clock::now();
  EXPECT_EQ(locks.acquire(bob, first, LockKind::Update, milliseconds(20)), LockOutcome::Locked);
  EXPECT_GE(steady_clock::now() - begin, milliseconds(20));
  EXPECT_EQ(waitingFor(locks, first), 0u);
}

TEST_F(LockTableThreads, AWaitEndsWhenItIsCancelled) {
  now(ann, first);
  auto outcome = wait(bob, first);
  locks.cancel(bob);
  EXPECT_EQ(outcome.get(), LockOutcome::Locked);
}

TEST_F(LockTableThreads, WhoWasCancelledWaitsNoMore) {
  now(ann, first);
  locks.cancel(bob);
  EXPECT_EQ(locks.acquire(bob, first, LockKind::Update, kLong), LockOutcome::Locked);
  EXPECT_EQ(now(bob, second), LockOutcome::Granted) << "what is free needs no waiting";
}

TEST_F(LockTableThreads, ReleasingAllForgetsTheCancellation) {
  locks.cancel(bob);
  locks.releaseAll(bob);
  now(ann, first);
  auto outcome = wait(bob, first);
  locks.release(ann, first);
  EXPECT_EQ(outcome.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, WaitersAreServedInTheOrderInWhichTheyCame) {
  now(ann, first);
  auto bobs = wait(bob, first);
  auto cids = wait(cid, first);
  auto dots = wait(dot, first);
  locks.release(ann, first);
  EXPECT_EQ(bobs.get(), LockOutcome::Granted);
  EXPECT_EQ(waitingFor(locks, first), 2u);
  locks.release(bob, first);
  EXPECT_EQ(cids.get(), LockOutcome::Granted);
  locks.release(cid, first);
  EXPECT_EQ(dots.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, NobodyOvertakesWhoWaits) {
  now(ann, first, LockKind::Shared);
  auto writer = wait(bob, first);
  EXPECT_EQ(now(cid, first, LockKind::Shared), LockOutcome::Locked)
      << "readers without end would keep the writer out";
  auto reader = wait(cid, first, LockKind::Shared);
  locks.release(ann, first);
  EXPECT_EQ(writer.get(), LockOutcome::Granted);
  locks.release(bob, first);
  EXPECT_EQ(reader.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, AllWhoShareAreServedAtOnce) {
  now(ann, first);
  auto bobs = wait(bob, first, LockKind::Shared);
  auto cids = wait(cid, first, LockKind::Shared);
  locks.release(ann, first);
  EXPECT_EQ(bobs.get(), LockOutcome::Granted);
  EXPECT_EQ(cids.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, WhoGivesUpLetsThoseBehindShare) {
  now(ann, first, LockKind::Shared);
  auto writer = wait(bob, first);
  auto reader = wait(cid, first, LockKind::Shared);
  locks.cancel(bob);
  EXPECT_EQ(writer.get(), LockOutcome::Locked);
  EXPECT_EQ(reader.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, AnUpgradeComesBeforeThoseWhoHoldNothing) {
  now(ann, first, LockKind::Shared);
  now(bob, first, LockKind::Shared);
  auto stranger = wait(cid, first);
  auto upgrade = wait(bob, first);
  locks.release(ann, first);
  EXPECT_EQ(upgrade.get(), LockOutcome::Upgraded);
  locks.release(bob, first);
  EXPECT_EQ(stranger.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, TwoThatWaitForEachOtherAreADeadlock) {
  now(ann, first);
  now(bob, second);
  auto anns = wait(ann, second);
  EXPECT_EQ(locks.acquire(bob, first, LockKind::Update, kLong), LockOutcome::Deadlock);
  EXPECT_EQ(waitingFor(locks, first), 0u) << "nothing was waited for";
  locks.releaseAll(bob);
  EXPECT_EQ(anns.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, ThreeThatWaitInARingAreADeadlock) {
  now(ann, first);
  now(bob, second);
  now(cid, third);
  auto anns = wait(ann, second);
  auto bobs = wait(bob, third);
  EXPECT_EQ(locks.acquire(cid, first, LockKind::Shared, kLong), LockOutcome::Deadlock);
  locks.releaseAll(cid);
  EXPECT_EQ(bobs.get(), LockOutcome::Granted);
  locks.releaseAll(bob);
  EXPECT_EQ(anns.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, AWaitForTheWriterCanCloseARing) {
  locks.setWriter(account, ann);
  now(bob, first);
  auto anns = wait(ann, first);
  EXPECT_FALSE(locks.beginWaitForWriter(bob, account));
  EXPECT_TRUE(locks.beginWaitForWriter(cid, account)) << "nobody wants what this one has";
  locks.endWaitForWriter(cid);
  locks.releaseAll(bob);
  EXPECT_EQ(anns.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, TheWriterCanCloseARingWithOneWhoWaitsForIt) {
  locks.setWriter(account, ann);
  now(bob, first);
  ASSERT_TRUE(locks.beginWaitForWriter(bob, account));
  EXPECT_EQ(locks.acquire(ann, first, LockKind::Update, kLong), LockOutcome::Deadlock);
  locks.endWaitForWriter(bob);
  auto anns = wait(ann, first);
  locks.releaseAll(bob);
  EXPECT_EQ(anns.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, ARingThroughTheWriterMayBeLonger) {
  locks.setWriter(account, ann);
  now(bob, first);
  now(cid, second);
  ASSERT_TRUE(locks.beginWaitForWriter(cid, account));
  auto bobs = wait(bob, second);
  EXPECT_EQ(locks.acquire(ann, first, LockKind::Update, kLong), LockOutcome::Deadlock);
  locks.endWaitForWriter(cid);
  locks.releaseAll(cid);
  EXPECT_EQ(bobs.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, WhoeverWritesByThenIsTheOneThatIsWaitedFor) {
  locks.setWriter(account, ann);
  now(bob, first);
  ASSERT_TRUE(locks.beginWaitForWriter(bob, account));
  locks.clearWriter(account, ann);
  locks.setWriter(account, cid);
  locks.clearWriter(account, ann);  // who has ended already
  EXPECT_EQ(locks.acquire(cid, first, LockKind::Update, kLong), LockOutcome::Deadlock);
  auto anns = wait(ann, first);
  locks.endWaitForWriter(bob);
  locks.releaseAll(bob);
  EXPECT_EQ(anns.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, WritersOfOtherAccountsAreNotWaitedFor) {
  locks.setWriter("OTHER", ann);
  now(bob, first);
  auto anns = wait(ann, first);
  EXPECT_TRUE(locks.beginWaitForWriter(bob, account));
  locks.endWaitForWriter(bob);
  locks.releaseAll(bob);
  EXPECT_EQ(anns.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, AChainWithoutARingIsNoDeadlock) {
  now(ann, first);
  now(bob, second);
  auto bobs = wait(bob, first);
  auto cids = wait(cid, second);
  locks.releaseAll(ann);
  EXPECT_EQ(bobs.get(), LockOutcome::Granted);
  locks.releaseAll(bob);
  EXPECT_EQ(cids.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, EveryHolderOfASharedLockCounts) {
  now(ann, first, LockKind::Shared);
  now(bob, first, LockKind::Shared);
  now(cid, second);
  auto bobs = wait(bob, second);
  EXPECT_EQ(locks.acquire(cid, first, LockKind::Update, kLong), LockOutcome::Deadlock);
  locks.releaseAll(cid);
  EXPECT_EQ(bobs.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, TwoUpgradesOfOneRecordAreADeadlock) {
  now(ann, first, LockKind::Shared);
  now(bob, first, LockKind::Shared);
  auto anns = wait(ann, first);
  EXPECT_EQ(locks.acquire(bob, first, LockKind::Update, kLong), LockOutcome::Deadlock);
  locks.release(bob, first);
  EXPECT_EQ(anns.get(), LockOutcome::Upgraded);
}

TEST_F(LockTableThreads, WaitingBehindAWriterCanCloseARing) {
  // cid could share the record with ann, but bob stands before it; bob waits for ann, and ann
  // for cid.
  now(ann, first, LockKind::Shared);
  now(cid, second);
  auto bobs = wait(bob, first);
  auto anns = wait(ann, second);
  EXPECT_EQ(locks.acquire(cid, first, LockKind::Shared, kLong), LockOutcome::Deadlock);
  locks.releaseAll(cid);
  EXPECT_EQ(anns.get(), LockOutcome::Granted);
  locks.releaseAll(ann);
  EXPECT_EQ(bobs.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, ARingThatClosesWhenAWaiterIsServedIsFoundLater) {
  // bob gets the record while cid waits behind; then bob waits for cid.
  now(ann, first);
  now(cid, second);
  auto bobs = wait(bob, first);
  auto cids = wait(cid, first);
  locks.releaseAll(ann);
  EXPECT_EQ(bobs.get(), LockOutcome::Granted);
  EXPECT_EQ(locks.acquire(bob, second, LockKind::Update, kLong), LockOutcome::Deadlock);
  locks.releaseAll(bob);
  EXPECT_EQ(cids.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, WhoDoesNotWaitIsNoDeadlock) {
  now(ann, first);
  now(bob, second);
  auto anns = wait(ann, second);
  EXPECT_EQ(now(bob, first), LockOutcome::Locked);
  locks.releaseAll(bob);
  EXPECT_EQ(anns.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, WhoWasCancelledClosesNoRing) {
  now(ann, first);
  now(bob, second);
  auto anns = wait(ann, second);
  locks.cancel(ann);
  anns.get();
  EXPECT_EQ(locks.acquire(bob, first, LockKind::Update, milliseconds(1)), LockOutcome::Locked);
}

TEST_F(LockTableThreads, LocksThatWereHandedToABranchAreWaitedFor) {
  now(ann, first);
  auto bobs = wait(bob, first);
  locks.transfer(ann, cid);
  EXPECT_EQ(waitingFor(locks, first), 1u);
  locks.releaseAll(ann);
  EXPECT_EQ(waitingFor(locks, first), 1u) << "they are not its own any more";
  locks.releaseAll(cid);
  EXPECT_EQ(bobs.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, ABranchThatKeepsARecordIsNoDeadlockForItsSession) {
  now(ann, first);
  locks.transfer(ann, cid);
  EXPECT_EQ(locks.acquire(ann, first, LockKind::Update, milliseconds(1)), LockOutcome::Locked);
}

TEST_F(LockTableThreads, ThePartIsWaitedForUntilItsLastRecordIsFree) {
  now(ann, first);
  now(bob, second);
  auto whole = std::async(std::launch::async,
                          [&] { return locks.acquire(cid, wholePart, LockKind::Update, kLong); });
  locks.release(ann, first);
  EXPECT_EQ(now(dot, third), LockOutcome::Granted) << "who wants the part keeps nobody waiting";
  locks.release(dot, third);
  locks.release(bob, second);
  EXPECT_EQ(whole.get(), LockOutcome::Granted);
  EXPECT_EQ(now(dot, third), LockOutcome::Locked);
}

TEST_F(LockTableThreads, RecordsOfALockedPartAreWaitedFor) {
  now(ann, wholePart);
  now(ann, first);
  auto bobs = wait(bob, first);
  auto cids = std::async(std::launch::async,
                         [&] { return locks.acquire(cid, second, LockKind::Shared, kLong); });
  locks.release(ann, "MAIN", file);
  EXPECT_EQ(bobs.get(), LockOutcome::Granted);
  EXPECT_EQ(cids.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, APartThatIsWaitedForCanCloseARing) {
  now(ann, first);
  now(bob, second);
  auto anns = wait(ann, second);
  EXPECT_EQ(locks.acquire(bob, wholePart, LockKind::Update, kLong), LockOutcome::Deadlock);
  locks.releaseAll(bob);
  EXPECT_EQ(anns.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, ARecordOfALockedPartCanCloseARing) {
  const RecordLock elsewhere{"MAIN", {"ORDERS", Part::Data}, "1"};
  now(ann, wholePart);
  now(bob, elsewhere);
  auto anns = wait(ann, elsewhere);
  EXPECT_EQ(locks.acquire(bob, first, LockKind::Shared, kLong), LockOutcome::Deadlock);
  locks.releaseAll(bob);
  EXPECT_EQ(anns.get(), LockOutcome::Granted);
}

TEST_F(LockTableThreads, WhoGivesThePartUpLeavesTheNextInLine) {
  now(ann, first);
  auto bobs = std::async(std::launch::async, [&] {
    return locks.acquire(bob, wholePart, LockKind::Update, milliseconds(10));
  });
  EXPECT_EQ(bobs.get(), LockOutcome::Locked);
  locks.release(ann, first);
  EXPECT_EQ(now(cid, wholePart), LockOutcome::Granted);
}

TEST_F(LockTableThreads, NobodyHasWhatAnotherUpdates) {
  // Every thread takes two of a few records in any order and counts under their locks; a ring is
  // broken by who would close it. A count that is lost, or a race, is a lock that was none.
  constexpr int kThreads = 4;
  constexpr int kRounds = 2000;
  constexpr int kRecords = 3;
  std::vector<int> counts(kRecords, 0);
  std::atomic<int> expected{0};
  std::atomic<int> deadlocks{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      const LockOwner owner = locks.newOwner();
      for (int round = 0; round < kRounds; ++round) {
        const int a = (t + round) % kRecords;
        const int b = (t + 2 * round + 1) % kRecords;
        const RecordLock recordA{"MAIN", file, std::to_string(a)};
        const RecordLock recordB{"MAIN", file, std::to_string(b)};
        if (locks.acquire(owner, recordA, LockKind::Update, kLong) == LockOutcome::Granted) {
          ++counts[static_cast<std::size_t>(a)];
          ++expected;
        }
        const LockOutcome outcome = locks.acquire(owner, recordB, LockKind::Update, kLong);
        if (outcome == LockOutcome::Granted) {
          ++counts[static_cast<std::size_t>(b)];
          ++expected;
        } else if (outcome == LockOutcome::Deadlock) {
          ++deadlocks;
        } else {
          EXPECT_EQ(outcome, LockOutcome::HeldAlready);
        }
        locks.releaseAll(owner);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(counts[0] + counts[1] + counts[2], expected.load());
  EXPECT_GE(expected.load(), kThreads * kRounds);
  EXPECT_EQ(locks.size(), 0u);
}

}  // namespace
}  // namespace nox::agent::test
