// Locks as one thread sees them: what is compatible, what ends, what is shown.
#include "agent/locks/lock_table.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

#include "waiting.h"

namespace nox::agent::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class LockTableTest : public ::testing::Test {
protected:
  LockOutcome shared(LockOwner owner, const RecordLock& record) {
    return locks.acquire(owner, record, LockKind::Shared, kNotAtAll);
  }
  LockOutcome update(LockOwner owner, const RecordLock& record) {
    return locks.acquire(owner, record, LockKind::Update, kNotAtAll);
  }
  std::vector<std::string> heldIds(LockOwner owner) {
    std::vector<std::string> ids;
    for (const HeldLock& held : locks.heldBy(owner)) ids.push_back(held.record.id);
    std::sort(ids.begin(), ids.end());
    return ids;
  }

  LockTable locks;
  LockOwner ann = locks.newOwner();
  LockOwner bob = locks.newOwner();
  LockOwner cid = locks.newOwner();
  FilePart file{"CUSTOMERS", Part::Data};
  RecordLock record{"MAIN", file, "1"};
  RecordLock other{"MAIN", file, "2"};
  RecordLock wholePart{"MAIN", file, ""};
};

TEST_F(LockTableTest, OwnersAreNeverGivenTwice) {
  EXPECT_NE(ann, bob);
  locks.releaseAll(ann);
  EXPECT_NE(locks.newOwner(), ann);
}

TEST_F(LockTableTest, ManyShareARecord) {
  EXPECT_EQ(shared(ann, record), LockOutcome::Granted);
  EXPECT_EQ(shared(bob, record), LockOutcome::Granted);
  EXPECT_EQ(locks.size(), 2u);
}

TEST_F(LockTableTest, OneAloneHasARecordForUpdate) {
  EXPECT_EQ(update(ann, record), LockOutcome::Granted);
  EXPECT_EQ(update(bob, record), LockOutcome::Locked);
  EXPECT_EQ(shared(bob, record), LockOutcome::Locked);
}

TEST_F(LockTableTest, NobodyUpdatesWhatIsShared) {
  shared(ann, record);
  EXPECT_EQ(update(bob, record), LockOutcome::Locked);
}

TEST_F(LockTableTest, WhatIsHeldIsNotGrantedTwice) {
  shared(ann, record);
  EXPECT_EQ(shared(ann, record), LockOutcome::HeldAlready);
  update(bob, other);
  EXPECT_EQ(update(bob, other), LockOutcome::HeldAlready);
  EXPECT_EQ(shared(bob, other), LockOutcome::HeldAlready);
  EXPECT_EQ(locks.size(), 2u);
}

TEST_F(LockTableTest, AHolderUpgradesWhenAlone) {
  shared(ann, record);
  EXPECT_EQ(update(ann, record), LockOutcome::Upgraded);
  EXPECT_EQ(shared(bob, record), LockOutcome::Locked);
}

TEST_F(LockTableTest, AHolderDoesNotUpgradeBesideOthers) {
  shared(ann, record);
  shared(bob, record);
  EXPECT_EQ(update(ann, record), LockOutcome::Locked);
  EXPECT_EQ(shared(cid, record), LockOutcome::Granted) << "it is as it was";
}

TEST_F(LockTableTest, AskingForLessThanIsHeldKeepsTheUpdateLock) {
  update(ann, record);
  shared(ann, record);
  EXPECT_EQ(shared(bob, record), LockOutcome::Locked);
}

TEST_F(LockTableTest, AccountsFilesPartsAndIdsAreApart) {
  update(ann, record);
  EXPECT_EQ(update(bob, {"TEST", file, "1"}), LockOutcome::Granted);
  EXPECT_EQ(update(bob, {"MAIN", {"ORDERS", Part::Data}, "1"}), LockOutcome::Granted);
  EXPECT_EQ(update(bob, {"MAIN", {"CUSTOMERS", Part::Dict}, "1"}), LockOutcome::Granted);
  EXPECT_EQ(update(bob, other), LockOutcome::Granted);
}

TEST_F(LockTableTest, ReleasingFreesTheRecord) {
  update(ann, record);
  locks.release(ann, record);
  EXPECT_EQ(update(bob, record), LockOutcome::Granted);
}

TEST_F(LockTableTest, ReleasingWhatAnotherHoldsDoesNothing) {
  update(ann, record);
  locks.release(bob, record);
  locks.release(bob, "MAIN", file);
  locks.releaseAll(bob);
  EXPECT_EQ(update(bob, record), LockOutcome::Locked);
}

TEST_F(LockTableTest, ReleasingWhatNobodyHoldsDoesNothing) {
  locks.release(ann, record);
  locks.release(ann, wholePart);
  locks.release(ann, "MAIN", file);
  locks.releaseAll(ann);
  EXPECT_EQ(locks.size(), 0u);
}

TEST_F(LockTableTest, APartIsReleasedWithoutTheOthers) {
  const RecordLock dict{"MAIN", {"CUSTOMERS", Part::Dict}, "1"};
  update(ann, record);
  shared(ann, other);
  update(ann, dict);
  locks.release(ann, "MAIN", file);
  EXPECT_THAT(heldIds(ann), ElementsAre("1"));
  EXPECT_EQ(update(bob, record), LockOutcome::Granted);
  EXPECT_EQ(update(bob, dict), LockOutcome::Locked);
}

TEST_F(LockTableTest, AllOfAnOwnerIsReleased) {
  update(ann, record);
  update(ann, {"MAIN", {"ORDERS", Part::Data}, "7"});
  EXPECT_EQ(update(ann, {"MAIN", {"STOCK", Part::Data}, ""}), LockOutcome::Granted);
  shared(bob, other);
  locks.releaseAll(ann);
  EXPECT_THAT(heldIds(ann), IsEmpty());
  EXPECT_EQ(locks.size(), 1u);
}

TEST_F(LockTableTest, TheLocksOfABranchStayHeldWhenTheyAreHandedOver) {
  update(ann, record);
  shared(ann, other);
  locks.transfer(ann, cid);
  EXPECT_THAT(heldIds(ann), IsEmpty());
  EXPECT_THAT(heldIds(cid), ElementsAre("1", "2"));
  EXPECT_EQ(update(ann, record), LockOutcome::Locked) << "even for who had it";
  locks.releaseAll(cid);
  EXPECT_EQ(update(ann, record), LockOutcome::Granted);
}

TEST_F(LockTableTest, LocksThatAreKeptAreNotHandedOver) {
  update(ann, record);
  update(ann, other);
  locks.transfer(ann, cid, {other, {"MAIN", {"NOT", Part::Data}, "HELD"}});
  EXPECT_THAT(heldIds(ann), ElementsAre("2"));
  EXPECT_THAT(heldIds(cid), ElementsAre("1"));
  EXPECT_EQ(update(ann, wholePart), LockOutcome::Locked) << "another has a record of it";
  locks.releaseAll(cid);
  EXPECT_EQ(update(ann, wholePart), LockOutcome::Granted);
}

TEST_F(LockTableTest, APartThatIsKeptIsNotHandedOver) {
  update(ann, wholePart);
  locks.transfer(ann, cid, {wholePart});
  EXPECT_EQ(update(ann, record), LockOutcome::Granted);
  EXPECT_EQ(update(cid, other), LockOutcome::Locked);
}

TEST_F(LockTableTest, HandingOverNothingGivesNothing) {
  locks.transfer(ann, cid);
  EXPECT_THAT(heldIds(cid), IsEmpty());
}

TEST_F(LockTableTest, ThePartIsLockedWhenNobodyElseHoldsARecordOfIt) {
  update(ann, record);
  EXPECT_EQ(update(bob, wholePart), LockOutcome::Locked);
  EXPECT_EQ(update(ann, wholePart), LockOutcome::Granted);
  EXPECT_EQ(update(ann, wholePart), LockOutcome::HeldAlready);
}

TEST_F(LockTableTest, NobodyElseLocksARecordOfALockedPart) {
  update(ann, wholePart);
  EXPECT_EQ(shared(bob, record), LockOutcome::Locked);
  EXPECT_EQ(update(bob, wholePart), LockOutcome::Locked);
  EXPECT_EQ(update(bob, {"MAIN", {"CUSTOMERS", Part::Dict}, "1"}), LockOutcome::Granted);
  EXPECT_EQ(update(ann, record), LockOutcome::Granted);
  locks.release(ann, wholePart);
  EXPECT_EQ(shared(bob, other), LockOutcome::Granted);
  EXPECT_EQ(shared(bob, record), LockOutcome::Locked);
}

TEST_F(LockTableTest, ListsAnAccountInOrder) {
  const RecordLock dict{"MAIN", {"CUSTOMERS", Part::Dict}, "0"};
  const RecordLock orders{"MAIN", {"ARTICLES", Part::Data}, "9"};
  update(bob, dict);
  shared(bob, other);
  shared(ann, other);
  update(bob, record);
  update(bob, orders);
  update(cid, {"TEST", file, "1"});
  std::vector<std::string> lines;
  for (const HeldLock& held : locks.list("MAIN")) {
    lines.push_back(held.record.file.text() + " " + held.record.id + " " +
                    (held.kind == LockKind::Update ? "update " : "shared ") +
                    (held.owner == ann ? "ann" : "bob"));
  }
  EXPECT_THAT(lines, ElementsAre("ARTICLES 9 update bob", "CUSTOMERS 1 update bob",
                                 "CUSTOMERS 2 shared ann", "CUSTOMERS 2 shared bob",
                                 "DICT CUSTOMERS 0 update bob"));
}

TEST_F(LockTableTest, ListsOneFile) {
  update(ann, record);
  update(ann, {"MAIN", {"ORDERS", Part::Data}, "1"});
  EXPECT_EQ(locks.list("MAIN", "ORDERS").size(), 1u);
  EXPECT_EQ(locks.list("MAIN", "STOCK").size(), 0u);
}

TEST_F(LockTableTest, APartThatIsLockedAsAWholeIsListedWithoutAnId) {
  update(ann, wholePart);
  ASSERT_EQ(locks.list("MAIN").size(), 1u);
  EXPECT_EQ(locks.list("MAIN")[0].record.id, "");
  EXPECT_EQ(locks.heldBy(ann).size(), 1u);
}

TEST_F(LockTableTest, WhoAsksForManyGetsThemAll) {
  constexpr int kMany = 10'000;
  for (int i = 0; i < kMany; ++i) {
    ASSERT_EQ(update(ann, {"MAIN", file, std::to_string(i)}), LockOutcome::Granted);
  }
  EXPECT_EQ(locks.size(), static_cast<std::size_t>(kMany));
  locks.release(ann, "MAIN", file);
  EXPECT_EQ(locks.size(), 0u);
}

}  // namespace
}  // namespace nox::agent::test
