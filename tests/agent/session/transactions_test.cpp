// Local transactions of a session: what belongs to them, how they end, and what becomes of locks.
#include "agent/session/transactions.h"

#include <gmock/gmock.h>

#include <chrono>
#include <future>
#include <string>

#include "tests/agent/session/lock_modes.h"
#include "tests/agent/support/agent_in_process.h"

namespace nox::agent::test {
namespace {

std::string beginSql(ClientCalls& client, int level) {
  noxp::sql::TransactionStartRequestProt request(level);
  request.setClassVersion(1);
  return client.say(request);
}

class TransactionsTest : public ::testing::Test {
protected:
  TransactionsTest() {
    ann.session().store().createFile("F");
    ann.write("F", "A", "alpha");
    for (ClientInProcess* client : {&ann, &bob}) {
      client->session().settings().lockWait = std::chrono::seconds(0);
      client->session().store().setWait(std::chrono::milliseconds(10));
    }
  }

  std::size_t locks() { return agent.agent().locks.size(); }

  AgentInProcess agent;
  ClientInProcess ann{agent};
  ClientInProcess bob{agent, Right::Write, "bob"};
};

TEST_F(TransactionsTest, NobodyElseSeesWhatIsNotCommitted) {
  EXPECT_EQ(ann.begin(), "OK");
  EXPECT_EQ(ann.write("F", "A", "new"), "0");
  EXPECT_EQ(ann.read("F", "A"), "0 'new'");
  EXPECT_EQ(bob.read("F", "A"), "0 'alpha'");
  EXPECT_EQ(ann.commit(), "OK");
  EXPECT_EQ(bob.read("F", "A"), "0 'new'");
}

TEST_F(TransactionsTest, NothingIsLeftOfWhatWasRolledBack) {
  ann.begin();
  ann.write("F", "A", "new");
  ann.write("F", "B", "new");
  ann.remove("F", "A");
  EXPECT_EQ(ann.rollback(), "OK");
  EXPECT_EQ(ann.read("F", "A"), "0 'alpha'");
  EXPECT_EQ(ann.exists("F", "B"), "1");
}

TEST_F(TransactionsTest, OneIsOpenAtATime) {
  EXPECT_EQ(ann.begin(), "OK");
  EXPECT_EQ(ann.begin(), "25/000");
  EXPECT_EQ(beginSql(ann, 0), "25/000");
  EXPECT_EQ(ann.commit(), "OK") << "the first is still open";
}

TEST_F(TransactionsTest, WithoutOneNothingIsCommittedOrRolledBack) {
  EXPECT_EQ(ann.commit(), "25/000");
  EXPECT_EQ(ann.rollback(), "25/000");
  EXPECT_EQ(ann.say(noxp::sql::TransactionCommitRequestProt()), "25/000");
  EXPECT_EQ(ann.say(noxp::sql::TransactionRollbackRequestProt()), "25/000");
}

TEST_F(TransactionsTest, ItIsTheSameForSqlAndForRemoteWork) {
  EXPECT_EQ(beginSql(ann, 0), "OK");
  EXPECT_EQ(ann.write("F", "A", "one"), "0");
  EXPECT_EQ(ann.commit(), "OK");
  EXPECT_EQ(ann.begin(), "OK");
  EXPECT_EQ(ann.write("F", "A", "two"), "0");
  EXPECT_EQ(ann.say(noxp::sql::TransactionRollbackRequestProt()), "OK");
  EXPECT_EQ(bob.read("F", "A"), "0 'one'");
}

TEST_F(TransactionsTest, EachFamilyIsAnsweredInItsOwnWay) {
  noxp::remote::BeginTransactionRequestProt remote;
  EXPECT_TRUE(ann.askFor<noxp::remote::TransactionResponseProt>(remote));
  noxp::sql::TransactionCommitRequestProt sql;
  EXPECT_TRUE(ann.askFor<OKResponseProt>(sql));
  EXPECT_TRUE(ann.askFor<noxp::sql::SQLErrorResponseProt>(sql));
  noxp::remote::CommitTransactionRequestProt commit;
  EXPECT_TRUE(ann.askFor<ErrorResponseProt>(commit));
}

TEST_F(TransactionsTest, TakesTheKnownIsolationLevels) {
  for (const int level : {0, 1, 2, 4, 8}) {
    EXPECT_EQ(beginSql(ann, level), "OK") << level;
    EXPECT_EQ(ann.rollback(), "OK");
  }
  for (const int level : {-1, 3, 5, 16}) EXPECT_EQ(beginSql(ann, level), "22/003") << level;
  EXPECT_EQ(ann.rollback(), "25/000");
}

TEST_F(TransactionsTest, ASecondWriterWaitsAndIsThenToldThatTheStoreIsBusy) {
  ann.begin();
  ann.write("F", "A", "new");
  EXPECT_EQ(bob.write("F", "B", "x"), "IE/024");
  bob.begin();
  EXPECT_EQ(bob.write("F", "B", "x"), "IE/024");
  ann.commit();
  EXPECT_EQ(bob.write("F", "B", "x"), "0") << "its own transaction is still open";
  EXPECT_EQ(bob.commit(), "OK");
}

TEST_F(TransactionsTest, LocksOfWhatWasWrittenAreKeptUntilTheEnd) {
  ann.begin();
  ann.write("F", "A", "new");
  EXPECT_EQ(bob.read("F", "A", kUpdate), "2");
  ann.commit();
  EXPECT_EQ(bob.read("F", "A", kUpdate), "0 'new'");
}

TEST_F(TransactionsTest, ReleasesAreRememberedUntilTheEnd) {
  ann.begin();
  ann.read("F", "A", kUpdate);
  ann.read("F", "B", kUpdate);
  ann.read("DICT F", "C", kUpdate);
  EXPECT_EQ(ann.release(0, "F", "A"), "OK");
  EXPECT_EQ(ann.release(1, "F"), "OK");
  EXPECT_EQ(ann.release(2), "OK");
  EXPECT_EQ(locks(), 3u);
  ann.rollback();
  EXPECT_EQ(locks(), 0u);
}

TEST_F(TransactionsTest, LocksThatNobodyReleasedOutliveIt) {
  ann.begin();
  ann.read("F", "A", kUpdate);
  ann.write("F", "B", "kept", 1);
  ann.commit();
  EXPECT_EQ(bob.read("F", "A", kUpdate), "2");
  EXPECT_EQ(bob.read("F", "B", kUpdate), "2");
}

TEST_F(TransactionsTest, ALockThatIsWantedAgainIsNotReleasedAtTheEnd) {
  ann.begin();
  ann.read("F", "A", kUpdate);
  ann.release(0, "F", "A");
  ann.read("F", "A", kUpdate);
  ann.commit();
  EXPECT_EQ(bob.read("F", "A", kUpdate), "2");
}

TEST_F(TransactionsTest, ALockThatIsOnlyUsedAgainIsReleasedAtTheEnd) {
  ann.begin();
  ann.write("F", "NEW", "x");
  EXPECT_EQ(ann.write("F", "NEW", "y", 2), "1");
  ann.commit();
  EXPECT_EQ(locks(), 0u);
}

TEST_F(TransactionsTest, TheEndOfTheSessionRollsBack) {
  {
    ClientInProcess cid(agent, Right::Write, "cid");
    cid.begin();
    cid.write("F", "A", "uncommitted");
  }
  EXPECT_EQ(bob.read("F", "A"), "0 'alpha'");
  EXPECT_EQ(bob.write("F", "A", "x"), "0");
}

TEST_F(TransactionsTest, WhatIsNotOpenDoesNotExpire) {
  EXPECT_FALSE(ann.session().nextExpiry().has_value());
  ann.begin();
  EXPECT_TRUE(ann.session().nextExpiry().has_value());
  ann.commit();
  EXPECT_FALSE(ann.session().nextExpiry().has_value());
}

TEST_F(TransactionsTest, ItExpiresAfterTheConfiguredTimeWithoutARequest) {
  ann.begin();
  const auto before = std::chrono::steady_clock::now();
  ann.read("F", "A");
  const auto expiry = ann.session().nextExpiry();
  ASSERT_TRUE(expiry);
  EXPECT_GE(*expiry, before + std::chrono::seconds(300));
  ann.session().expire(*expiry - std::chrono::seconds(1));
  EXPECT_EQ(ann.commit(), "OK") << "it was not due";
}

TEST_F(TransactionsTest, AnIdleOneIsRolledBackAndTheNextRequestIsTold) {
  ann.begin();
  ann.write("F", "A", "new");
  ann.session().expire(*ann.session().nextExpiry());
  EXPECT_EQ(bob.read("F", "A", kUpdate), "0 'alpha'") << "its locks are free";
  EXPECT_EQ(ann.read("F", "A"), "40/000");
  EXPECT_EQ(ann.read("F", "A"), "0 'alpha'") << "told once";
  EXPECT_EQ(ann.commit(), "25/000");
}

TEST_F(TransactionsTest, OneThatTheStoreGaveUpFailsToCommit) {
  EXPECT_EQ(ann.sql("CREATE TABLE t(x)"), "OK");
  EXPECT_EQ(ann.sql("CREATE TRIGGER no AFTER INSERT ON t BEGIN SELECT RAISE(ROLLBACK, 'no'); END"),
            "OK");
  ann.begin();
  ann.write("F", "A", "new");
  EXPECT_NE(ann.sql("INSERT INTO t VALUES(1)"), "OK");
  EXPECT_EQ(ann.commit(), "2D/000");
  EXPECT_EQ(ann.read("F", "A"), "0 'alpha'");
  EXPECT_EQ(bob.read("F", "A", kUpdate), "0 'alpha'") << "its locks are free";
  EXPECT_EQ(ann.commit(), "25/000") << "it is over";
}

TEST_F(TransactionsTest, AllChangesOfAListBelongToIt) {
  ann.write("F", "B", "beta");
  ann.select("F");
  const auto chunk = ann.fetchChunk(1, 2, 2);
  change(*chunk->getSelectList(), 1, "1");
  change(*chunk->getSelectList(), 2, "2");
  ann.begin();
  EXPECT_EQ(ann.commitList(*chunk->getSelectList()), "OK");
  EXPECT_EQ(bob.read("F", "A"), "0 'alpha'");
  ann.rollback();
  EXPECT_EQ(ann.read("F", "A"), "0 'alpha'");
  EXPECT_EQ(ann.read("F", "B"), "0 'beta'");
  EXPECT_EQ(locks(), 0u);
}

}  // namespace
}  // namespace nox::agent::test
