// Local transactions: all or nothing, the writer's place from the first write on, and the mark.
#include <gmock/gmock.h>

#include <memory>
#include <string>

#include "tests/agent/store/store_test.h"

namespace nox::agent::test {
namespace {

using ::testing::Eq;
using ::testing::Optional;

class LocalTransactions : public StoreTest {
protected:
  LocalTransactions() { other->setWait(kNotAtAll); }

  /// Whether another session may write now.
  bool isPlaceFree() {
    return !failure([&] { other->write(kFile, "free", "yes"); });
  }

  std::unique_ptr<StoreSession> session = newSession();
  std::unique_ptr<StoreSession> other = newSession();
};

TEST_F(LocalTransactions, OthersSeeTheirChangesAfterTheCommit) {
  session->begin(0);
  session->write(kFile, "1", "Ann");
  session->write(kFile, "2", "Bob");
  EXPECT_EQ(read(*other, "1"), std::nullopt);
  session->commit();
  EXPECT_THAT(read(*other, "1"), Optional(Eq("Ann")));
  EXPECT_THAT(read(*other, "2"), Optional(Eq("Bob")));
}

TEST_F(LocalTransactions, SeeTheirOwnChanges) {
  session->begin(0);
  EXPECT_TRUE(session->writeNew(kFile, "1", "Ann"));
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
  EXPECT_TRUE(session->exists(kFile, "1"));
  EXPECT_FALSE(session->writeNew(kFile, "1", "Bob"));
  EXPECT_TRUE(session->remove(kFile, "1"));
  EXPECT_EQ(read(*session, "1"), std::nullopt);
}

TEST_F(LocalTransactions, LeaveNothingWhenTheyAreRolledBack) {
  session->write(kFile, "1", "Ann");
  session->begin(0);
  session->write(kFile, "1", "Bob");
  session->write(kFile, "2", "Cid");
  session->rollback();
  EXPECT_FALSE(session->inTransaction());
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
  EXPECT_EQ(read(*session, "2"), std::nullopt);
}

TEST_F(LocalTransactions, LeaveNothingWhenTheirSessionEnds) {
  session->begin(0);
  session->write(kFile, "1", "Ann");
  session.reset();
  EXPECT_EQ(read(*other, "1"), std::nullopt);
  EXPECT_TRUE(isPlaceFree());
}

TEST_F(LocalTransactions, DoNotHinderOthersBeforeTheirFirstWrite) {
  session->begin(0);
  EXPECT_EQ(read(*session, "1"), std::nullopt);
  EXPECT_FALSE(session->hasWritten());
  EXPECT_TRUE(isPlaceFree());
}

TEST_F(LocalTransactions, KeepOtherWritersOutFromTheirFirstWriteOn) {
  session->begin(0);
  session->write(kFile, "1", "Ann");
  EXPECT_TRUE(session->hasWritten());
  EXPECT_EQ(failure([&] { other->write(kFile, "2", "Bob"); }), StoreError::Kind::Busy);
  session->commit();
  EXPECT_TRUE(isPlaceFree());
}

TEST_F(LocalTransactions, DoNotKeepReadersOut) {
  session->write(kFile, "1", "Ann");
  session->begin(0);
  session->write(kFile, "1", "Bob");
  EXPECT_THAT(read(*other, "1"), Optional(Eq("Ann")));
}

TEST_F(LocalTransactions, WithoutChangesAreCommittedToo) {
  session->begin(0);
  session->commit();
  EXPECT_FALSE(session->inTransaction());
}

TEST_F(LocalTransactions, AreOneAtATime) {
  session->begin(0);
  EXPECT_EQ(failure([&] { session->begin(0); }), StoreError::Kind::Failed);
  EXPECT_TRUE(session->inTransaction());
}

TEST_F(LocalTransactions, MustBeOpenToEnd) {
  EXPECT_EQ(failure([&] { session->commit(); }), StoreError::Kind::Failed);
  EXPECT_EQ(failure([&] { session->rollback(); }), StoreError::Kind::Failed);
  EXPECT_EQ(failure([&] { session->setMark(); }), StoreError::Kind::Failed);
}

TEST_F(LocalTransactions, GoOnAfterAChangeThatFailed) {
  session->begin(0);
  session->write(kFile, "1", "Ann");
  EXPECT_EQ(failure([&] {
              session->write({"NOWHERE", Part::Data}, "1", "x");
            }),
            StoreError::Kind::NoFile);
  EXPECT_EQ(failure([&] {
              session->writeAll({{kFile, "2", "Bob"}, {{"NOWHERE", Part::Data}, "1", "x"}});
            }),
            StoreError::Kind::NoFile);
  session->commit();
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
  EXPECT_EQ(read(*session, "2"), std::nullopt);
}

TEST_F(LocalTransactions, AreOneCommitHoweverMuchTheyWrite) {
  const StoreStatistics before = store().statistics();
  session->begin(0);
  for (int i = 0; i < 10; ++i) session->write(kFile, std::to_string(i), "x");
  session->commit();
  const StoreStatistics after = store().statistics();
  EXPECT_EQ(after.commits - before.commits, 1u);
  EXPECT_EQ(after.writes - before.writes, 10u);
}

TEST_F(LocalTransactions, HoldTogetherRecordsAndTables) {
  session->begin(0);
  sql(*session, "CREATE TABLE orders(id INTEGER PRIMARY KEY, customer TEXT)");
  sql(*session, "INSERT INTO orders VALUES(7, '1')");
  session->write(kFile, "1", "Ann");
  session->rollback();
  EXPECT_EQ(read(*session, "1"), std::nullopt);
  EXPECT_EQ(failure([&] { answer(*session, "SELECT * FROM orders"); }), StoreError::Kind::NoTable);
}

TEST_F(LocalTransactions, EndTheirCommitRolledBackWhenAReferenceLeadsNowhere) {
  sql(*session, "CREATE TABLE parents(id INTEGER PRIMARY KEY)");
  sql(*session,
      "CREATE TABLE children(id INTEGER PRIMARY KEY,"
      " parent INTEGER REFERENCES parents(id) DEFERRABLE INITIALLY DEFERRED)");
  session->begin(0);
  sql(*session, "INSERT INTO children VALUES(1, 99)");
  session->write(kFile, "1", "Ann");
  EXPECT_EQ(failure([&] { session->commit(); }), StoreError::Kind::Duplicate);
  EXPECT_FALSE(session->inTransaction());
  EXPECT_EQ(read(*session, "1"), std::nullopt);
  EXPECT_TRUE(isPlaceFree());
}

// The mark.

TEST_F(LocalTransactions, ReturnToTheirMark) {
  session->begin(0);
  session->write(kFile, "1", "Ann");
  session->setMark();
  session->write(kFile, "1", "Bob");
  session->write(kFile, "2", "Cid");
  session->rollbackToMark();
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
  EXPECT_EQ(read(*session, "2"), std::nullopt);
  EXPECT_TRUE(session->hasWritten());
  session->commit();
  EXPECT_THAT(read(*other, "1"), Optional(Eq("Ann")));
}

TEST_F(LocalTransactions, ReturnToTheirMarkMoreThanOnce) {
  session->begin(0);
  session->write(kFile, "1", "Ann");
  session->setMark();
  for (int i = 0; i < 3; ++i) {
    session->write(kFile, "1", "Bob");
    session->rollbackToMark();
  }
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
}

TEST_F(LocalTransactions, ReturnToTheNewestMark) {
  session->begin(0);
  session->write(kFile, "1", "Ann");
  session->setMark();
  session->write(kFile, "1", "Bob");
  session->setMark();
  session->write(kFile, "1", "Cid");
  session->rollbackToMark();
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Bob")));
}

TEST_F(LocalTransactions, LetOthersWriteAgainWhenTheirMarkIsOlderThanTheirFirstWrite) {
  session->begin(0);
  session->setMark();
  session->write(kFile, "1", "Ann");
  session->rollbackToMark();
  EXPECT_TRUE(session->inTransaction());
  EXPECT_FALSE(session->hasWritten());
  EXPECT_TRUE(isPlaceFree());
  session->write(kFile, "2", "Bob");
  session->commit();
  EXPECT_EQ(read(*other, "1"), std::nullopt);
  EXPECT_THAT(read(*other, "2"), Optional(Eq("Bob")));
}

TEST_F(LocalTransactions, ForgetTheirMarkWhenTheyEnd) {
  session->begin(0);
  session->write(kFile, "1", "Ann");
  session->setMark();
  session->commit();
  session->begin(0);
  EXPECT_EQ(failure([&] { session->rollbackToMark(); }), StoreError::Kind::Failed);
}

TEST_F(LocalTransactions, UndoFilesBehindTheirMark) {
  session->begin(0);
  session->write(kFile, "1", "Ann");
  session->setMark();
  session->createFile("ORDERS");
  session->write({"ORDERS", Part::Data}, "7", "pens");
  session->rollbackToMark();
  EXPECT_FALSE(session->hasFile("ORDERS"));
  session->createFile("ITEMS");
  EXPECT_EQ(failure([&] {
              session->exists({"ORDERS", Part::Data}, "7");
            }),
            StoreError::Kind::NoFile);
  session->commit();
  EXPECT_TRUE(other->hasFile("ITEMS"));
}

// What the engine gives up on its own.

TEST_F(LocalTransactions, RefuseAllWorkOnceTheStoreHasRolledThemBack) {
  sql(*session, "CREATE TABLE orders(id INTEGER PRIMARY KEY)");
  session->begin(0);
  session->write(kFile, "1", "Ann");
  sql(*session, "INSERT INTO orders VALUES(1)");
  EXPECT_EQ(failure([&] { sql(*session, "INSERT OR ROLLBACK INTO orders VALUES(1)"); }),
            StoreError::Kind::Duplicate);
  EXPECT_TRUE(isPlaceFree());
  // Nothing that belongs together is committed in two halves.
  EXPECT_EQ(failure([&] { session->write(kFile, "2", "Bob"); }), StoreError::Kind::RolledBack);
  EXPECT_EQ(failure([&] { read(*session, "1"); }), StoreError::Kind::RolledBack);
  EXPECT_EQ(failure([&] { session->commit(); }), StoreError::Kind::RolledBack);
  EXPECT_FALSE(session->inTransaction());
  EXPECT_EQ(read(*session, "1"), std::nullopt);
}

TEST_F(LocalTransactions, AreRolledBackAfterTheStoreHasGivenThemUp) {
  sql(*session, "CREATE TABLE orders(id INTEGER PRIMARY KEY)");
  session->begin(0);
  sql(*session, "INSERT INTO orders VALUES(1)");
  EXPECT_EQ(failure([&] { sql(*session, "INSERT OR ROLLBACK INTO orders VALUES(1)"); }),
            StoreError::Kind::Duplicate);
  session->rollback();
  session->write(kFile, "2", "Bob");
  EXPECT_THAT(read(*other, "2"), Optional(Eq("Bob")));
}

/// Refuses every wait, and knows whether a transaction writes.
class RefusingWatch : public WriterWatch {
public:
  bool mayWait() override { return false; }
  void hasWaited() noexcept override {}
  void writes() override { isWriting = true; }
  void hasWritten() noexcept override { isWriting = false; }
  bool isWriting = false;
};

TEST_F(LocalTransactions, AreWatchedFromTheFirstWriteToTheEnd) {
  RefusingWatch watch;
  const auto session = newSession();
  session->setWatch(&watch);
  for (const bool commits : {true, false}) {
    session->begin(0);
    EXPECT_FALSE(watch.isWriting);
    session->write(kFile, "1", "Ann");
    EXPECT_TRUE(watch.isWriting);
    commits ? session->commit() : session->rollback();
    EXPECT_FALSE(watch.isWriting);
  }
}

TEST_F(LocalTransactions, ThatMayNotWaitForTheWriterAreLost) {
  RefusingWatch watch;
  const auto writer = newSession();
  writer->begin(0);
  writer->write(kFile, "1", "Ann");
  const auto session = newSession();
  session->setWatch(&watch);
  EXPECT_EQ(failure([&] { session->write(kFile, "2", "Bob"); }), StoreError::Kind::RolledBack);
  session->begin(0);
  EXPECT_EQ(failure([&] { session->write(kFile, "2", "Bob"); }), StoreError::Kind::RolledBack);
  writer->commit();
  EXPECT_EQ(failure([&] { session->write(kFile, "2", "Bob"); }), StoreError::Kind::RolledBack)
      << "until it is rolled back";
  session->rollback();
  session->write(kFile, "2", "Bob");
  EXPECT_FALSE(watch.isWriting);
}

}  // namespace
}  // namespace nox::agent::test
