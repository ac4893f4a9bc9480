// Branches of distributed transactions, from their start in a session to their end without one.
#include "agent/session/branches.h"

#include <gmock/gmock.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "agent/failure.h"
#include "agent/session/transactions.h"
#include "tests/agent/session/lock_modes.h"
#include "tests/agent/support/agent_in_process.h"

namespace nox::agent::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class BranchesTest : public ::testing::Test {
protected:
  BranchesTest() {
    ann->session().store().createFile("F");
    ann->write("F", "A", "alpha");
    hurry(*ann);
    hurry(*bob);
  }

  static void hurry(ClientInProcess& client) {
    client.session().settings().lockWait = std::chrono::seconds(0);
    client.session().store().setWait(std::chrono::milliseconds(10));
  }
  std::unique_ptr<ClientInProcess> newClient(const std::string& user, Right right = Right::Write) {
    auto client = std::make_unique<ClientInProcess>(agent, right, user);
    hurry(*client);
    return client;
  }
  /// All that there are: "1:X prepared 2" with their number of locks.
  std::vector<std::string> branches() {
    std::vector<std::string> lines;
    for (const BranchInfo& info : agent.agent().branches.list("MAIN")) {
      lines.push_back(std::to_string(info.id.format) + ":" + info.id.id + " " + info.state + " " +
                      std::to_string(info.locks));
    }
    return lines;
  }
  /// A branch that wrote record A, started and ended.
  void endOne(ClientInProcess& client, const char* id = "X") {
    EXPECT_EQ(client.xaStart(id), "OK");
    EXPECT_EQ(client.write("F", "A", std::string("by ") + id), "0");
    EXPECT_EQ(client.xaEnd(id), "OK");
  }
  void prepareOne(ClientInProcess& client, const char* id = "X") {
    endOne(client, id);
    EXPECT_EQ(client.xaPrepare(id), "OK");
  }

  AgentInProcess agent;
  std::unique_ptr<ClientInProcess> ann = std::make_unique<ClientInProcess>(agent);
  std::unique_ptr<ClientInProcess> bob = newClient("bob");
};

TEST_F(BranchesTest, FromStartToCommit) {
  EXPECT_EQ(ann->xaStart("X"), "OK");
  EXPECT_EQ(ann->write("F", "A", "new"), "0");
  EXPECT_EQ(ann->read("F", "A"), "0 'new'") << "its own session sees it";
  EXPECT_EQ(ann->xaEnd("X"), "OK");
  EXPECT_EQ(ann->read("F", "A"), "0 'alpha'") << "now nobody does";
  EXPECT_EQ(ann->xaPrepare("X"), "OK");
  EXPECT_EQ(bob->read("F", "A"), "0 'alpha'");
  EXPECT_EQ(ann->xaCommit("X"), "OK");
  EXPECT_EQ(bob->read("F", "A"), "0 'new'");
  EXPECT_THAT(branches(), IsEmpty());
  EXPECT_EQ(agent.agent().locks.size(), 0u);
}

TEST_F(BranchesTest, CommittedInOnePhase) {
  endOne(*ann);
  EXPECT_EQ(ann->xaCommit("X"), "OK");
  EXPECT_EQ(bob->read("F", "A"), "0 'by X'");
  EXPECT_EQ(agent.agent().locks.size(), 0u);
}

TEST_F(BranchesTest, RolledBackAfterItsEnd) {
  endOne(*ann);
  EXPECT_EQ(ann->xaRollback("X"), "OK");
  EXPECT_EQ(bob->read("F", "A", kUpdate), "0 'alpha'");
  EXPECT_THAT(branches(), IsEmpty());
}

TEST_F(BranchesTest, RolledBackAfterItWasPrepared) {
  prepareOne(*ann);
  EXPECT_EQ(ann->xaRollback("X"), "OK");
  EXPECT_EQ(bob->read("F", "A", kUpdate), "0 'alpha'");
}

TEST_F(BranchesTest, AnyConnectionOfTheAccountFinishesIt) {
  prepareOne(*ann, "X");
  EXPECT_EQ(bob->xaCommit("X"), "OK");
  endOne(*ann, "Y");
  EXPECT_EQ(bob->xaPrepare("Y"), "OK");
  EXPECT_EQ(bob->xaRollback("Y"), "OK");
}

TEST_F(BranchesTest, TheSessionIsFreeAfterTheEnd) {
  endOne(*ann, "X");
  EXPECT_EQ(ann->begin(), "OK");
  EXPECT_EQ(ann->write("F", "B", "local"), "0");
  EXPECT_EQ(ann->commit(), "OK");
  EXPECT_EQ(ann->xaStart("Y"), "OK");
  EXPECT_EQ(ann->write("F", "C", "y"), "0");
  EXPECT_EQ(ann->xaEnd("Y"), "OK");
  EXPECT_THAT(branches(), ElementsAre("1:X ended 1", "1:Y ended 1"));
}

TEST_F(BranchesTest, ItsLocksStayWithIt) {
  endOne(*ann);
  EXPECT_EQ(bob->read("F", "A", kShared), "2");
  EXPECT_EQ(ann->read("F", "A", kShared), "2") << "also for the session that ended it";
  EXPECT_EQ(ann->release(2), "OK");
  EXPECT_EQ(bob->write("F", "A", "x"), "2");
  EXPECT_EQ(bob->clear("F"), "IE/024");
}

TEST_F(BranchesTest, LocksOfRecordsThatItOnlyReadStayToo) {
  ann->xaStart("X");
  ann->read("F", "A", kShared);
  ann->read("F", "NONE", kUpdate);
  ann->xaEnd("X");
  EXPECT_EQ(bob->read("F", "A", kShared), "0 'alpha'");
  bob->release(2);
  EXPECT_EQ(bob->write("F", "A", "x"), "2");
  EXPECT_EQ(bob->write("F", "NONE", "x"), "2");
  EXPECT_EQ(ann->xaCommit("X"), "OK");
  EXPECT_EQ(bob->write("F", "NONE", "x"), "0");
}

TEST_F(BranchesTest, LocksFromBeforeItStartedStayWithTheSession) {
  ann->read("F", "B", kUpdate);
  ann->read("F", "A", kUpdate);
  endOne(*ann);
  EXPECT_THAT(branches(), ElementsAre("1:X ended 1")) << "the one that it used";
  EXPECT_EQ(ann->write("F", "B", "mine"), "0");
  EXPECT_EQ(bob->read("F", "B", kUpdate), "0 'mine'");
}

TEST_F(BranchesTest, LocksThatItReleasedAreKeptUntilItIsOver) {
  ann->xaStart("X");
  ann->read("F", "A", kUpdate);
  ann->release(0, "F", "A");
  ann->xaEnd("X");
  EXPECT_EQ(bob->read("F", "A", kUpdate), "2");
}

TEST_F(BranchesTest, APartThatItClearedStaysLocked) {
  ann->xaStart("X");
  EXPECT_EQ(ann->clear("F"), "OK");
  EXPECT_EQ(ann->xaEnd("X"), "OK");
  EXPECT_EQ(ann->xaPrepare("X"), "OK");
  EXPECT_EQ(bob->read("F", "A"), "0 'alpha'");
  EXPECT_EQ(bob->write("F", "NEW", "x"), "2");
  ann.reset();
  bob.reset();
  agent.restart();
  bob = newClient("bob");
  EXPECT_EQ(bob->write("F", "NEW", "x"), "2");
  EXPECT_EQ(bob->xaCommit("X"), "OK");
  EXPECT_EQ(bob->exists("F", "A"), "1");
  EXPECT_EQ(bob->write("F", "NEW", "x"), "0");
}

TEST_F(BranchesTest, AnEmptyOneCommitsToo) {
  EXPECT_EQ(ann->xaStart("X"), "OK");
  EXPECT_EQ(ann->xaEnd("X"), "OK");
  EXPECT_EQ(ann->xaPrepare("X"), "OK");
  EXPECT_EQ(ann->xaCommit("X"), "OK");
}

TEST_F(BranchesTest, FormatAndIdTogetherNameIt) {
  EXPECT_EQ(ann->xaStart("X", 1), "OK");
  EXPECT_EQ(ann->xaEnd("X", 1), "OK");
  EXPECT_EQ(ann->xaStart("X", 2), "OK");
  EXPECT_EQ(ann->xaEnd("X", 2), "OK");
  EXPECT_EQ(ann->xaStart("X", -7), "OK");
  EXPECT_EQ(ann->xaEnd("X", -7), "OK");
  EXPECT_THAT(branches(), ElementsAre("-7:X ended 0", "1:X ended 0", "2:X ended 0"));
}

// What goes wrong, with the codes.

TEST_F(BranchesTest, AKnownOneIsNotStartedAgain) {
  ann->xaStart("X");
  EXPECT_EQ(bob->xaStart("X"), "IE/012 fffffff8") << "no join";
  ann->xaEnd("X");
  EXPECT_EQ(ann->xaStart("X"), "IE/012 fffffff8") << "no resume";
  ann->xaPrepare("X");
  EXPECT_EQ(ann->xaStart("X"), "IE/012 fffffff8");
  ann->xaCommit("X");
  EXPECT_EQ(ann->xaStart("X"), "OK");
}

TEST_F(BranchesTest, AnUnknownOneIsNotFound) {
  EXPECT_EQ(ann->xaEnd("X"), "25/000 fffffffc");
  EXPECT_EQ(ann->xaPrepare("X"), "IE/013 fffffffc");
  EXPECT_EQ(ann->xaCommit("X"), "2D/000 fffffffc");
  EXPECT_EQ(ann->xaRollback("X"), "40/000 fffffffc");
}

TEST_F(BranchesTest, AnIdIsATextOf1To128Bytes) {
  const std::string longest(128, 'x');
  EXPECT_EQ(ann->xaStart(longest.c_str()), "OK");
  EXPECT_EQ(ann->xaEnd(longest.c_str()), "OK");
  for (const std::string& id : {std::string(), std::string(129, 'x'), std::string("\xFE"),
                                std::string("a\tb"), std::string("\x7F")}) {
    EXPECT_EQ(ann->xaStart(id.c_str()), "IE/012 fffffffb") << id;
    EXPECT_EQ(ann->xaEnd(id.c_str()), "25/000 fffffffb") << id;
    EXPECT_EQ(ann->xaPrepare(id.c_str()), "IE/013 fffffffb") << id;
    EXPECT_EQ(ann->xaCommit(id.c_str()), "2D/000 fffffffb") << id;
    EXPECT_EQ(ann->xaRollback(id.c_str()), "40/000 fffffffb") << id;
  }
}

TEST_F(BranchesTest, AStartNeedsNoOpenTransaction) {
  ann->begin();
  EXPECT_EQ(ann->xaStart("X"), "25/000 fffffffa");
  ann->rollback();
  ann->xaStart("X");
  EXPECT_EQ(ann->xaStart("Y"), "25/000 fffffffa");
  EXPECT_EQ(ann->begin(), "25/000");
  EXPECT_EQ(ann->commit(), "25/000 fffffffa") << "a branch is no local transaction";
  EXPECT_EQ(ann->rollback(), "25/000 fffffffa");
  EXPECT_EQ(ann->xaEnd("X"), "OK");
}

TEST_F(BranchesTest, AStartedOneIsNotPreparedCommittedOrRolledBack) {
  ann->xaStart("X");
  for (ClientInProcess* client : {ann.get(), bob.get()}) {
    EXPECT_EQ(client->xaPrepare("X"), "25/000 fffffffa");
    EXPECT_EQ(client->xaCommit("X"), "25/000 fffffffa");
    EXPECT_EQ(client->xaRollback("X"), "25/000 fffffffa");
  }
  EXPECT_EQ(ann->xaEnd("X"), "OK");
}

TEST_F(BranchesTest, AnEndedOneIsNotEndedAgain) {
  endOne(*ann);
  EXPECT_EQ(ann->xaEnd("X"), "25/000 fffffffa");
  ann->xaPrepare("X");
  EXPECT_EQ(ann->xaEnd("X"), "25/000 fffffffa");
}

TEST_F(BranchesTest, OnlyItsOwnSessionEndsIt) {
  ann->xaStart("X");
  EXPECT_EQ(bob->xaEnd("X"), "25/000 fffffffa");
  EXPECT_EQ(ann->xaEnd("X"), "OK");
}

TEST_F(BranchesTest, APreparedOneIsNotPreparedAgain) {
  prepareOne(*ann);
  EXPECT_EQ(ann->xaPrepare("X"), "25/000 fffffffa");
}

TEST_F(BranchesTest, NoneIsFinishedInsideATransaction) {
  prepareOne(*ann);
  ann->begin();
  EXPECT_EQ(ann->xaPrepare("X"), "25/000 fffffffa");
  EXPECT_EQ(ann->xaCommit("X"), "25/000 fffffffa");
  EXPECT_EQ(ann->xaRollback("X"), "25/000 fffffffa");
}

TEST_F(BranchesTest, WhoMayOnlyReadFinishesOnlyItsOwnAndOnlyByRollback) {
  const auto rex = newClient("rex", Right::Read);
  prepareOne(*ann);
  EXPECT_EQ(rex->xaCommit("X"), "42/000");
  EXPECT_EQ(rex->xaRollback("X"), "42/000");
  EXPECT_EQ(rex->xaStart("R"), "OK");
  EXPECT_EQ(rex->xaEnd("R"), "OK");
  EXPECT_EQ(rex->xaCommit("R"), "42/000");
  EXPECT_EQ(rex->xaRollback("R"), "OK");
}

TEST_F(BranchesTest, NoFilesAreMadeOrDeletedInside) {
  ann->xaStart("X");
  EXPECT_EQ(ann->run("CREATE-FILE G"), "0A/000");
}

TEST_F(BranchesTest, AWaitThatWouldNeverEndDropsIt) {
  ann->read("F", "A", kUpdate);
  bob->xaStart("X");
  bob->write("F", "B", "x");
  ann->session().settings().lockWait = std::chrono::seconds(30);
  bob->session().settings().lockWait = std::chrono::seconds(30);
  auto answer = std::async(std::launch::async, [&] { return ann->read("F", "B", kUpdate); });
  agent.waitUntilSomebodyWaits();
  EXPECT_EQ(bob->read("F", "A", kUpdate), "40/000");
  EXPECT_EQ(answer.get(), "1") << "what the branch wrote is gone";
  EXPECT_THAT(branches(), IsEmpty());
  EXPECT_EQ(bob->xaEnd("X"), "25/000 fffffffc");
}

TEST_F(BranchesTest, AnIdleOneIsDroppedAndTheNextRequestIsTold) {
  ann->xaStart("X");
  ann->write("F", "A", "x");
  ann->session().expire(*ann->session().nextExpiry());
  EXPECT_THAT(branches(), IsEmpty());
  EXPECT_EQ(ann->xaEnd("X"), "40/000");
  EXPECT_EQ(ann->xaEnd("X"), "25/000 fffffffc");
  EXPECT_EQ(bob->read("F", "A", kUpdate), "0 'alpha'");
}

TEST_F(BranchesTest, StartedAndEndedOnesDieWithTheirSession) {
  endOne(*ann, "ENDED");
  ann->xaStart("STARTED");
  ann->write("F", "B", "x");
  ann.reset();
  EXPECT_THAT(branches(), IsEmpty());
  EXPECT_EQ(agent.agent().locks.size(), 0u);
  EXPECT_EQ(bob->read("F", "A", kUpdate), "0 'alpha'");
  EXPECT_EQ(bob->xaCommit("ENDED"), "2D/000 fffffffc");
}

TEST_F(BranchesTest, PreparedOnesDoNot) {
  prepareOne(*ann);
  ann.reset();
  EXPECT_THAT(branches(), ElementsAre("1:X prepared 1"));
  EXPECT_EQ(bob->write("F", "A", "x"), "2");
  EXPECT_EQ(bob->xaCommit("X"), "OK");
  EXPECT_EQ(bob->read("F", "A"), "0 'by X'");
}

TEST_F(BranchesTest, WhatAnotherSessionPreparedDoesNotDieWithTheOneThatEndedIt) {
  endOne(*ann);
  bob->xaPrepare("X");
  ann.reset();
  EXPECT_EQ(bob->xaCommit("X"), "OK");
}

TEST_F(BranchesTest, PreparedOnesAndTheirLocksOutliveTheAgent) {
  prepareOne(*ann, "X");
  ann->xaStart("Y", 2);
  ann->read("F", "R", kShared);
  ann->write("F", "B", "by Y");
  ann->xaEnd("Y", 2);
  ann->xaPrepare("Y", 2);
  ann.reset();
  bob.reset();
  agent.restart();
  EXPECT_THAT(branches(), ElementsAre("1:X prepared 1", "2:Y prepared 2"));
  bob = newClient("bob");
  EXPECT_EQ(bob->read("F", "A"), "0 'alpha'");
  EXPECT_EQ(bob->write("F", "A", "x"), "2");
  EXPECT_EQ(bob->read("F", "R", kShared), "1");
  bob->release(2);
  EXPECT_EQ(bob->write("F", "R", "x"), "2") << "it is shared, not free";
  EXPECT_EQ(bob->xaCommit("X"), "OK");
  EXPECT_EQ(bob->read("F", "A", kUpdate), "0 'by X'");
  EXPECT_EQ(bob->xaRollback("Y", 2), "OK");
  EXPECT_EQ(bob->exists("F", "B"), "1");
  bob.reset();
  agent.restart();
  EXPECT_THAT(branches(), IsEmpty());
}

TEST_F(BranchesTest, EachAccountHasItsOwn) {
  agent.agent().stores.createAccount("TEST");
  ClientInProcess elsewhere(agent, Right::Admin, "ann", "TEST");
  prepareOne(*ann);
  EXPECT_EQ(elsewhere.xaCommit("X"), "2D/000 fffffffc");
  EXPECT_EQ(elsewhere.xaStart("X"), "OK");
  EXPECT_EQ(elsewhere.xaEnd("X"), "OK");
  EXPECT_EQ(agent.agent().branches.list("TEST").size(), 1u);
  EXPECT_EQ(agent.agent().branches.list("").size(), 2u);
}

TEST_F(BranchesTest, AnAdministratorFinishesForgottenOnes) {
  prepareOne(*ann, "X");
  agent.agent().branches.commit("MAIN", {1, "X"});
  EXPECT_EQ(bob->read("F", "A", kUpdate), "0 'by X'");
  bob->release(2);
  prepareOne(*ann, "Y");
  agent.agent().branches.rollback("MAIN", {1, "Y"});
  EXPECT_EQ(bob->read("F", "A", kUpdate), "0 'by X'");
}

TEST_F(BranchesTest, ABusyStoreLeavesItAsItWas) {
  prepareOne(*ann);
  bob->begin();
  bob->write("F", "B", "keeps the writer's place");
  EXPECT_EQ(ann->xaCommit("X"), "IE/024");
  EXPECT_THAT(branches(), ElementsAre("1:X prepared 1"));
  bob->rollback();
  EXPECT_EQ(ann->xaCommit("X"), "OK");
}

TEST_F(BranchesTest, OneWhoseChangesNoLongerFitStaysAndCanBeRolledBack) {
  // Rows of tables have no locks.
  EXPECT_EQ(ann->sql("CREATE TABLE t(k INTEGER PRIMARY KEY, v TEXT)"), "OK");
  EXPECT_EQ(ann->sql("INSERT INTO t VALUES(1, 'before')"), "OK");
  EXPECT_EQ(ann->xaStart("X"), "OK");
  EXPECT_EQ(ann->sql("UPDATE t SET v = 'x' WHERE k = 1"), "OK");
  EXPECT_EQ(ann->xaEnd("X"), "OK");
  EXPECT_EQ(bob->xaStart("Y"), "OK");
  EXPECT_EQ(bob->sql("UPDATE t SET v = 'y' WHERE k = 1"), "OK");
  EXPECT_EQ(bob->xaEnd("Y"), "OK");
  EXPECT_EQ(bob->xaPrepare("Y"), "OK");
  EXPECT_EQ(ann->xaCommit("X"), "OK");
  EXPECT_EQ(bob->xaCommit("Y"), "2D/000 fffffffd");
  EXPECT_THAT(branches(), ElementsAre("1:Y prepared 0"));
  EXPECT_EQ(bob->xaRollback("Y"), "OK");
}

TEST_F(BranchesTest, OfManyThreadsThatCommitItOneDoes) {
  constexpr int kRounds = 20;
  constexpr int kThreads = 4;
  std::vector<std::unique_ptr<ClientInProcess>> clients;
  for (int i = 0; i < kThreads; ++i) {
    clients.push_back(newClient("c" + std::to_string(i)));
    clients.back()->session().settings().lockWait = std::chrono::seconds(30);
  }
  for (int round = 0; round < kRounds; ++round) {
    prepareOne(*ann);
    std::vector<std::future<std::string>> answers;
    for (const auto& client : clients) {
      answers.push_back(
          std::async(std::launch::async, [&client] { return client->xaCommit("X"); }));
    }
    int committed = 0;
    int unknown = 0;
    for (auto& answer : answers) {
      const std::string text = answer.get();
      if (text == "OK") ++committed;
      if (text == "2D/000 fffffffc") ++unknown;
    }
    EXPECT_EQ(committed, 1);
    EXPECT_EQ(unknown, kThreads - 1);
  }
}

TEST_F(BranchesTest, OfThreadsThatEndASessionAndCommitItsBranchBothFinish) {
  for (int round = 0; round < 20; ++round) {
    auto cid = newClient("cid");
    endOne(*cid);
    auto answer = std::async(std::launch::async, [&] { return bob->xaCommit("X"); });
    cid.reset();
    EXPECT_THAT(answer.get(), ::testing::AnyOf("OK", "2D/000 fffffffc"));
    EXPECT_THAT(branches(), IsEmpty());
    EXPECT_EQ(agent.agent().locks.size(), 0u);
  }
}

}  // namespace
}  // namespace nox::agent::test
