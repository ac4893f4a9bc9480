// Transactions as noxd answers them: 11 to 13, 211 to 218, and what survives a crash.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "tests/agent/wire/shared_noxd.h"
#include "tests/support/frames.h"

namespace nox::agent::test {
namespace {

using nox::test::frameOf;

std::string beginSql(ClientCalls& client, int level) {
  noxp::sql::TransactionStartRequestProt request(level);
  request.setClassVersion(1);
  return client.say(request);
}

class WireTransactions : public SharedNoxd {};

TEST_F(WireTransactions, CommitMakesAllOfItVisible) {
  EXPECT_EQ(ann().begin(), "OK");
  EXPECT_EQ(ann().write(file(), "A", "1"), "0");
  EXPECT_EQ(ann().write(file(), "B", "2"), "0");
  EXPECT_EQ(ann().read(file(), "A"), "0 '1'");
  EXPECT_EQ(bob().read(file(), "A"), "1");
  EXPECT_EQ(ann().commit(), "OK");
  EXPECT_EQ(bob().read(file(), "A"), "0 '1'");
  EXPECT_EQ(bob().read(file(), "B"), "0 '2'");
}

TEST_F(WireTransactions, RollbackLeavesNothing) {
  ann().write(file(), "A", "before");
  ann().begin();
  ann().write(file(), "A", "1");
  ann().remove(file(), "A");
  ann().write(file(), "B", "2");
  EXPECT_EQ(ann().rollback(), "OK");
  EXPECT_EQ(ann().read(file(), "A"), "0 'before'");
  EXPECT_EQ(ann().read(file(), "B"), "1");
}

TEST_F(WireTransactions, EachFamilyHasItsOwnReplies) {
  const std::string remoteDone = frameOf(noxp::remote::TransactionResponseProt());
  const std::string sqlDone = frameOf(OKResponseProt());
  ann().send(noxp::remote::BeginTransactionRequestProt());
  EXPECT_EQ(ann().receiveFrame(), remoteDone);
  ann().send(noxp::sql::TransactionCommitRequestProt());
  EXPECT_EQ(ann().receiveFrame(), sqlDone);
  ann().send(noxp::sql::TransactionStartRequestProt());
  EXPECT_EQ(ann().receiveFrame(), sqlDone);
  ann().send(noxp::remote::RollbackTransactionRequestProt());
  EXPECT_EQ(ann().receiveFrame(), remoteDone);
  noxp::sql::TransactionRollbackRequestProt sql;
  const auto refused = ann().askFor<noxp::sql::SQLErrorResponseProt>(sql);
  ASSERT_TRUE(refused);
  EXPECT_EQ(errorOf(*refused), "25/000");
  EXPECT_EQ(refused->getStatementId(), 0);
}

TEST_F(WireTransactions, OfTwoThatWriteCrosswiseOneIsRolledBackAtOnce) {
  for (ClientCalls* const client : {&ann(), &bob()}) {
    EXPECT_EQ(client->set("LOCK_WAIT", "600"), "OK");
    EXPECT_EQ(client->begin(), "OK");
  }
  EXPECT_EQ(ann().write(file(), "A", "ann's"), "0");
  auto answer = std::async(std::launch::async, [&] { return bob().write(file(), "B", "bob's"); });
  // Bob has B, or will have, and waits for ann to end; whoever closes the ring is told.
  const std::string anns = ann().write(file(), "B", "ann's");
  const bool annIsTold = anns == "40/000";
  if (!annIsTold) {
    EXPECT_EQ(anns, "0");
    EXPECT_EQ(ann().commit(), "OK");
  }
  const std::string bobs = answer.get();
  EXPECT_TRUE(bobs == "0" || (!annIsTold && bobs == "40/000")) << bobs;
  EXPECT_EQ(bob().commit(), bobs == "0" ? "OK" : "25/000");
  EXPECT_EQ(ann().commit(), "25/000");
  EXPECT_EQ(ann().read(file(), "A"), annIsTold ? "1" : "0 'ann's'");
  EXPECT_EQ(ann().read(file(), "B"), bobs == "0" ? "0 'bob's'" : "0 'ann's'");
}

TEST_F(WireTransactions, OneIsOpenForBothFamilies) {
  EXPECT_EQ(ann().begin(), "OK");
  EXPECT_EQ(ann().begin(), "25/000");
  EXPECT_EQ(beginSql(ann(), 0), "25/000");
  EXPECT_EQ(ann().say(noxp::sql::TransactionRollbackRequestProt()), "OK");
}

TEST_F(WireTransactions, NoneIsOpenAtFirst) {
  EXPECT_EQ(ann().commit(), "25/000");
  EXPECT_EQ(ann().rollback(), "25/000");
  EXPECT_EQ(ann().say(noxp::sql::TransactionCommitRequestProt()), "25/000");
}

TEST_F(WireTransactions, IsolationLevels) {
  for (const int level : {0, 1, 2, 4, 8}) {
    EXPECT_EQ(beginSql(ann(), level), "OK") << level;
    EXPECT_EQ(ann().commit(), "OK");
  }
  for (const int level : {3, -1, 16}) EXPECT_EQ(beginSql(ann(), level), "22/003") << level;
}

TEST_F(WireTransactions, OneWriterAtATime) {
  ann().begin();
  ann().write(file(), "A", "1");
  EXPECT_EQ(bob().write(file(), "B", "2"), "IE/024");
  letWait(bob());
  auto answer = std::async(std::launch::async, [&] { return bob().write(file(), "B", "2"); });
  EXPECT_EQ(ann().commit(), "OK");
  EXPECT_EQ(answer.get(), "0");
}

TEST_F(WireTransactions, LocksAreKeptUntilTheEnd) {
  ann().write(file(), "A", "0");
  ann().begin();
  ann().write(file(), "A", "1");
  ann().read(file(), "B", kUpdate);
  ann().release(0, file(), "B");
  EXPECT_EQ(bob().read(file(), "A", kShared), "2");
  EXPECT_EQ(bob().read(file(), "B", kShared), "2");
  ann().rollback();
  EXPECT_EQ(bob().read(file(), "A", kShared), "0 '0'");
  EXPECT_EQ(bob().read(file(), "B", kShared), "1");
}

TEST_F(WireTransactions, ALostConnectionRollsBack) {
  auto cid = newClient();
  cid->begin();
  cid->write(file(), "A", "uncommitted");
  cid->close();
  letWait(bob());
  EXPECT_EQ(bob().read(file(), "A", kUpdate), "1") << "its locks went after its changes";
}

TEST_F(WireTransactions, TheAccountIsNotSwitchedInside) {
  ann().begin();
  noxp::remote::SwitchAccountRequestProt request(NoxdProcess::kUser, "MAIN",
                                                 NoxdProcess::kPassword);
  EXPECT_EQ(ann().say(request), "25/000");
}

class WireBranches : public SharedNoxd {
protected:
  /// A branch that wrote record A of the test's file, in the given state.
  void endOne(Client& client, const std::string& id) {
    EXPECT_EQ(client.xaStart(id.c_str()), "OK");
    EXPECT_EQ(client.write(file(), "A", "by " + id), "0");
    EXPECT_EQ(client.xaEnd(id.c_str()), "OK");
  }
  const std::string x_ = std::string(file()) + ":X";
  const char* x() const { return x_.c_str(); }
};

TEST_F(WireBranches, TwoPhases) {
  endOne(ann(), x());
  EXPECT_EQ(ann().read(file(), "A"), "1");
  EXPECT_EQ(ann().xaPrepare(x()), "OK");
  EXPECT_EQ(bob().read(file(), "A"), "1");
  EXPECT_EQ(bob().read(file(), "A", kShared), "2");
  EXPECT_EQ(ann().xaCommit(x()), "OK");
  EXPECT_EQ(bob().read(file(), "A", kUpdate), "0 'by " + x_ + "'");
}

TEST_F(WireBranches, OnePhase) {
  endOne(ann(), x());
  EXPECT_EQ(ann().xaCommit(x()), "OK");
  EXPECT_EQ(bob().read(file(), "A", kUpdate), "0 'by " + x_ + "'");
}

TEST_F(WireBranches, RollbackBeforeAndAfterPrepare) {
  endOne(ann(), x());
  EXPECT_EQ(ann().xaRollback(x()), "OK");
  endOne(ann(), x());
  EXPECT_EQ(ann().xaPrepare(x()), "OK");
  EXPECT_EQ(ann().xaRollback(x()), "OK");
  EXPECT_EQ(bob().read(file(), "A", kUpdate), "1");
}

TEST_F(WireBranches, AnotherConnectionPreparesCommitsAndRollsBack) {
  endOne(ann(), x());
  EXPECT_EQ(bob().xaPrepare(x()), "OK");
  EXPECT_EQ(bob().xaCommit(x()), "OK");
  endOne(ann(), x());
  EXPECT_EQ(bob().xaRollback(x()), "OK");
}

TEST_F(WireBranches, StartRefuses) {
  EXPECT_EQ(ann().xaStart(""), "IE/012 fffffffb");
  EXPECT_EQ(ann().xaStart(std::string(129, 'x').c_str()), "IE/012 fffffffb");
  ann().begin();
  EXPECT_EQ(ann().xaStart(x()), "25/000 fffffffa");
  ann().rollback();
  endOne(ann(), x());
  EXPECT_EQ(ann().xaStart(x()), "IE/012 fffffff8");
  EXPECT_EQ(bob().xaStart(x()), "IE/012 fffffff8");
  EXPECT_EQ(ann().xaRollback(x()), "OK");
}

TEST_F(WireBranches, EndRefuses) {
  EXPECT_EQ(ann().xaEnd(x()), "25/000 fffffffc");
  EXPECT_EQ(ann().xaEnd(""), "25/000 fffffffb");
  ann().xaStart(x());
  EXPECT_EQ(bob().xaEnd(x()), "25/000 fffffffa");
  EXPECT_EQ(ann().xaEnd(x()), "OK");
  EXPECT_EQ(ann().xaEnd(x()), "25/000 fffffffa");
  ann().xaRollback(x());
}

TEST_F(WireBranches, PrepareRefuses) {
  EXPECT_EQ(ann().xaPrepare(x()), "IE/013 fffffffc");
  EXPECT_EQ(ann().xaPrepare(""), "IE/013 fffffffb");
  ann().xaStart(x());
  EXPECT_EQ(ann().xaPrepare(x()), "25/000 fffffffa");
  ann().xaEnd(x());
  EXPECT_EQ(ann().xaPrepare(x()), "OK");
  EXPECT_EQ(ann().xaPrepare(x()), "25/000 fffffffa");
  ann().xaRollback(x());
}

TEST_F(WireBranches, CommitAndRollbackRefuse) {
  EXPECT_EQ(ann().xaCommit(x()), "2D/000 fffffffc");
  EXPECT_EQ(ann().xaCommit(""), "2D/000 fffffffb");
  EXPECT_EQ(ann().xaRollback(x()), "40/000 fffffffc");
  EXPECT_EQ(ann().xaRollback(""), "40/000 fffffffb");
  ann().xaStart(x());
  EXPECT_EQ(ann().xaCommit(x()), "25/000 fffffffa");
  EXPECT_EQ(ann().xaRollback(x()), "25/000 fffffffa");
  ann().xaEnd(x());
  EXPECT_EQ(ann().xaCommit(x()), "OK");
  EXPECT_EQ(ann().xaCommit(x()), "2D/000 fffffffc") << "it is gone";
}

TEST_F(WireBranches, LocalTransactionsAndBranchesExcludeEachOther) {
  ann().xaStart(x());
  EXPECT_EQ(ann().begin(), "25/000");
  EXPECT_EQ(beginSql(ann(), 0), "25/000");
  EXPECT_EQ(ann().commit(), "25/000 fffffffa");
  EXPECT_EQ(ann().rollback(), "25/000 fffffffa");
  EXPECT_EQ(ann().xaEnd(x()), "OK");
  EXPECT_EQ(ann().begin(), "OK") << "the session is free again";
  ann().rollback();
  ann().xaRollback(x());
}

TEST_F(WireBranches, NothingIsDefinedInside) {
  ann().xaStart(x());
  EXPECT_EQ(ann().run(("CREATE-FILE " + std::string(file()) + "NEW").c_str()), "0A/000");
  EXPECT_EQ(ann().xaEnd(x()), "OK");
  ann().xaRollback(x());
}

TEST_F(WireBranches, OnesThatAreNotPreparedDieWithTheConnection) {
  auto cid = newClient();
  endOne(*cid, x());
  const std::string started = x_ + "2";
  EXPECT_EQ(cid->xaStart(started.c_str()), "OK");
  EXPECT_EQ(cid->write(file(), "B", "x"), "0");
  cid->close();
  letWait(bob());
  EXPECT_EQ(bob().read(file(), "A", kUpdate), "1");
  EXPECT_EQ(bob().read(file(), "B", kUpdate), "1");
  EXPECT_EQ(bob().xaCommit(x()), "2D/000 fffffffc");
}

TEST_F(WireBranches, PreparedOnesOutliveTheConnection) {
  auto cid = newClient();
  endOne(*cid, x());
  EXPECT_EQ(cid->xaPrepare(x()), "OK");
  cid->close();
  EXPECT_EQ(bob().write(file(), "A", "x"), "2");
  EXPECT_EQ(bob().xaCommit(x()), "OK");
  EXPECT_EQ(bob().read(file(), "A"), "0 'by " + x_ + "'");
}

TEST_F(WireBranches, OfTwoThatCommitAtOnceOneDoes) {
  letWait(ann());
  letWait(bob());
  for (int round = 0; round < 10; ++round) {
    endOne(ann(), x());
    EXPECT_EQ(ann().xaPrepare(x()), "OK");
    auto other = std::async(std::launch::async, [&] { return bob().xaCommit(x()); });
    const std::string mine = ann().xaCommit(x());
    const std::string others = other.get();
    EXPECT_TRUE((mine == "OK" && others == "2D/000 fffffffc") ||
                (others == "OK" && mine == "2D/000 fffffffc"))
        << mine << ", " << others;
  }
}

/// Tests that end noxd have one of their own.
class WireCrash : public ::testing::Test {
protected:
  WireCrash() {
    noxd.set("session.lock_wait", "0").set("session.transaction_idle", "1").start();
    client = connect();
    EXPECT_NE(client->run("CREATE-FILE F"), "IE/011");
    EXPECT_EQ(client->write("F", "A", "before"), "0");
  }
  std::unique_ptr<Client> connect() {
    auto connected = std::make_unique<Client>(noxd.plainPort());
    connected->logIn();
    return connected;
  }
  /// SIGKILL and a start on what is left.
  void crash() {
    noxd.kill();
    noxd.start();
    client = connect();
  }

  NoxdProcess noxd;
  std::unique_ptr<Client> client;
};

TEST_F(WireCrash, APreparedBranchAndItsLocksAreThereWhenThePortOpens) {
  client->xaStart("X", 7);
  client->write("F", "A", "by X");
  client->read("F", "SHARED", kShared);
  client->xaEnd("X", 7);
  ASSERT_EQ(client->xaPrepare("X", 7), "OK");
  for (int round = 0; round < 3; ++round) {
    crash();
    EXPECT_EQ(client->write("F", "A", "x"), "2");
    EXPECT_EQ(client->read("F", "SHARED", kShared), "1");
    client->release(2);
    EXPECT_EQ(client->write("F", "SHARED", "x"), "2");
    EXPECT_EQ(client->read("F", "A"), "0 'before'");
    EXPECT_EQ(client->xaStart("X", 7), "IE/012 fffffff8");
  }
  EXPECT_EQ(client->xaCommit("X", 7), "OK");
  EXPECT_EQ(client->read("F", "A", kUpdate), "0 'by X'");
  crash();
  EXPECT_EQ(client->read("F", "A", kUpdate), "0 'by X'");
  EXPECT_EQ(client->xaCommit("X", 7), "2D/000 fffffffc");
}

TEST_F(WireCrash, APreparedBranchIsRolledBackAfterIt) {
  client->xaStart("X");
  client->write("F", "A", "by X");
  client->xaEnd("X");
  client->xaPrepare("X");
  crash();
  EXPECT_EQ(client->xaRollback("X"), "OK");
  crash();
  EXPECT_EQ(client->read("F", "A", kUpdate), "0 'before'");
}

TEST_F(WireCrash, NothingIsLeftOfWhatWasNeitherCommittedNorPrepared) {
  client->xaStart("ENDED");
  client->write("F", "A", "by ENDED");
  client->xaEnd("ENDED");
  auto second = connect();
  second->xaStart("STARTED");
  second->write("F", "B", "by STARTED");
  second->xaEnd("STARTED");
  auto third = connect();
  third->begin();
  third->write("F", "C", "uncommitted");
  crash();
  EXPECT_EQ(client->read("F", "A", kUpdate), "0 'before'");
  EXPECT_EQ(client->read("F", "B", kUpdate), "1");
  EXPECT_EQ(client->read("F", "C", kUpdate), "1");
  EXPECT_EQ(client->xaCommit("ENDED"), "2D/000 fffffffc");
}

TEST_F(WireCrash, WhatWasAcknowledgedIsThere) {
  for (int i = 0; i < 20; ++i) {
    const std::string id = std::to_string(i);
    ASSERT_EQ(client->write("F", id.c_str(), "acknowledged"), "0");
  }
  client->begin();
  client->write("F", "T1", "committed");
  client->write("F", "T2", "committed");
  ASSERT_EQ(client->commit(), "OK");
  crash();
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(client->read("F", std::to_string(i).c_str()), "0 'acknowledged'");
  }
  EXPECT_EQ(client->read("F", "T1"), "0 'committed'");
  EXPECT_EQ(client->read("F", "T2"), "0 'committed'");
}

TEST_F(WireCrash, AnIdleTransactionEndsAndTheNextRequestIsTold) {
  client->begin();
  client->write("F", "A", "uncommitted");
  const auto other = connect();
  EXPECT_EQ(other->set("LOCK_WAIT", "30"), "OK");
  EXPECT_EQ(other->read("F", "A", kUpdate), "0 'before'") << "it waits until the lock is free";
  EXPECT_EQ(client->read("F", "A"), "40/000");
  EXPECT_EQ(client->read("F", "A"), "0 'before'");
  EXPECT_EQ(client->commit(), "25/000");
}

}  // namespace
}  // namespace nox::agent::test
