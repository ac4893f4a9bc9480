// Records and files as sessions of one agent see them: names, rights, modes, and whose lock is
// whose.
#include "agent/session/data_access.h"

#include <gmock/gmock.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>

#include "agent/failure.h"
#include "agent/session/transactions.h"
#include "tests/agent/session/lock_modes.h"
#include "tests/agent/support/agent_in_process.h"

namespace nox::agent::test {
namespace {

class DataAccessTest : public ::testing::Test {
protected:
  DataAccessTest() {
    ann.session().store().createFile("F");
    ann.write("F", "A", "alpha");
    // Nobody here waits for a lock unless the test is about waiting.
    ann.session().settings().lockWait = std::chrono::seconds(0);
    bob.session().settings().lockWait = std::chrono::seconds(0);
  }

  bool isHeldBy(ClientInProcess& client, const char* id = "A") {
    for (const HeldLock& held : agent.agent().locks.heldBy(client.session().lockOwner())) {
      if (held.record.id == id) return true;
    }
    return false;
  }
  /// Lets `client` wait as long as a test may take.
  static void letWait(ClientInProcess& client) {
    client.session().settings().lockWait = std::chrono::seconds(30);
  }

  AgentInProcess agent;
  ClientInProcess ann{agent};
  ClientInProcess bob{agent, Right::Write, "bob"};
};

// Files.

TEST_F(DataAccessTest, AFileThatIsThereOpens) {
  EXPECT_EQ(ann.open("F"), "OK");
  EXPECT_EQ(ann.open("DICT F"), "OK");
}

TEST_F(DataAccessTest, AFileThatIsNotThereDoesNotOpen) {
  EXPECT_EQ(ann.open("NONE"), "IE/005");
  EXPECT_EQ(ann.open("DICT NONE"), "IE/005");
  EXPECT_EQ(ann.open("f"), "IE/005") << "case counts";
}

TEST_F(DataAccessTest, WhatIsNoFileNameDoesNotOpen) {
  for (const char* name : {"", " F", "F ", ".F", "F/..", "DICT", "DICT ", "dict F", "DICT  F",
                           "DICT DICT F", "F\xC3\xA4", "-F", "_F", "$F"}) {
    EXPECT_EQ(ann.open(name), "IE/005") << name;
  }
  EXPECT_EQ(ann.open(std::string(65, 'F').c_str()), "IE/005");
}

TEST_F(DataAccessTest, EveryRequestHasItsOwnCodeForAMissingFile) {
  EXPECT_EQ(ann.clear("NONE"), "IE/006");
  EXPECT_EQ(ann.select("NONE"), "IE/007");
  EXPECT_EQ(ann.select("NONE", 0), "IE/007");
  EXPECT_EQ(ann.read("NONE", "A"), "IE/008");
  EXPECT_EQ(ann.read("NONE", "A", kUpdate), "IE/008");
  EXPECT_EQ(ann.exists("NONE", "A"), "IE/008");
  EXPECT_EQ(ann.write("NONE", "A", ""), "IE/009");
  EXPECT_EQ(ann.write("NONE", "A", "", 2), "IE/009");
  EXPECT_EQ(ann.remove("NONE", "A"), "IE/010");
  EXPECT_EQ(agent.agent().locks.size(), 0u) << "and leaves no lock behind";
}

TEST_F(DataAccessTest, EveryRequestHasItsOwnCodeForWhatIsNoFileName) {
  EXPECT_EQ(ann.clear("a b"), "IE/006");
  EXPECT_EQ(ann.select("a b"), "IE/007");
  EXPECT_EQ(ann.read("a b", "A"), "IE/008");
  EXPECT_EQ(ann.exists("a b", "A"), "IE/008");
  EXPECT_EQ(ann.write("a b", "A", ""), "IE/009");
  EXPECT_EQ(ann.remove("a b", "A"), "IE/010");
}

TEST_F(DataAccessTest, TheDictionaryIsAPartOfItsOwn) {
  EXPECT_EQ(ann.write("DICT F", "A", "item"), "0");
  EXPECT_EQ(ann.read("DICT F", "A"), "0 'item'");
  EXPECT_EQ(ann.read("F", "A"), "0 'alpha'");
  EXPECT_EQ(ann.clear("DICT F"), "OK");
  EXPECT_EQ(ann.read("DICT F", "A"), "1");
  EXPECT_EQ(ann.read("F", "A"), "0 'alpha'");
}

TEST_F(DataAccessTest, ManyFilesAreToldApart) {
  // More than the names that a session remembers.
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 10; ++i) {
      const std::string name = "FILE" + std::to_string(i);
      if (round == 0) ann.session().store().createFile(name);
      if (round == 0) ann.write(name.c_str(), "K", name);
      EXPECT_EQ(ann.read(name.c_str(), "K"), "0 '" + name + "'");
    }
  }
}

// Records.

TEST_F(DataAccessTest, ARecordIsReadAsItWasWritten) {
  const std::string body("\xFE\xFD\xFC\0[;]\xFF", 8);
  EXPECT_EQ(ann.write("F", "K", body), "0");
  EXPECT_EQ(bob.read("F", "K"), "0 '" + body + "'");
}

TEST_F(DataAccessTest, AnEmptyRecordIsThere) {
  EXPECT_EQ(ann.write("F", "EMPTY", ""), "0");
  EXPECT_EQ(ann.read("F", "EMPTY"), "0");
  EXPECT_EQ(ann.exists("F", "EMPTY"), "0");
}

TEST_F(DataAccessTest, ARecordThatIsNotThereIsAStatus) {
  EXPECT_EQ(ann.read("F", "NONE"), "1");
  EXPECT_EQ(ann.exists("F", "NONE"), "1");
  EXPECT_EQ(ann.remove("F", "NONE"), "1");
}

TEST_F(DataAccessTest, ADeletedRecordIsGone) {
  EXPECT_EQ(ann.remove("F", "A"), "0");
  EXPECT_EQ(ann.exists("F", "A"), "1");
}

TEST_F(DataAccessTest, OnlyANewRecordIsWrittenInMode2) {
  EXPECT_EQ(ann.write("F", "A", "other", 2), "1");
  EXPECT_EQ(ann.read("F", "A"), "0 'alpha'");
  EXPECT_EQ(ann.write("F", "NEW", "new", 2), "0");
  EXPECT_EQ(ann.read("F", "NEW"), "0 'new'");
}

TEST_F(DataAccessTest, IdsAreUtf8WithoutNulAndMarks) {
  EXPECT_EQ(ann.write("F",
                      "Stra\xC3\x9F"
                      "e",
                      "x"),
            "0");
  for (const char* id : {"", "\xFE", "A\xFD", "\xC3", "\xC0\x80", "\xED\xA0\x80"}) {
    EXPECT_EQ(ann.read("F", id), "22/021");
    EXPECT_EQ(ann.write("F", id, ""), "22/021");
    EXPECT_EQ(ann.remove("F", id), "22/021");
    EXPECT_EQ(ann.exists("F", id), "22/021");
  }
}

TEST_F(DataAccessTest, AnIdWithANulIsNotCutThere) {
  NOXPBlob body;
  try {
    ann.session().data().read("F", std::string_view("A\0B", 3), 0, body);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.state().sqlClass + failure.state().sqlSubClass, "22021");
  }
}

TEST_F(DataAccessTest, AnIdHasAtMost255Bytes) {
  EXPECT_EQ(ann.write("F", std::string(255, 'k').c_str(), "x"), "0");
  EXPECT_EQ(ann.write("F", std::string(256, 'k').c_str(), "x"), "22/001");
  EXPECT_EQ(ann.read("F", std::string(256, 'k').c_str()), "22/001");
}

TEST_F(DataAccessTest, ARecordHasAtMost8MiB) {
  EXPECT_EQ(ann.write("F", "BIG", std::string(kLongestRecord, 'x')), "0");
  EXPECT_EQ(ann.write("F", "BIG", std::string(kLongestRecord + 1, 'y')), "22/001");
  EXPECT_EQ(ann.read("F", "BIG").size(), std::string("0 ''").size() + kLongestRecord);
}

TEST_F(DataAccessTest, OtherModesAreRefused) {
  for (const int mode : {-1, 3, 7, 8, 1 << 30, -2147483647}) {
    EXPECT_EQ(ann.read("F", "A", mode), "22/003") << mode;
  }
  for (const int mode : {-1, 3, 4, 2147483647}) {
    EXPECT_EQ(ann.write("F", "A", "x", mode), "22/003") << mode;
    EXPECT_EQ(ann.release(mode, "F", "A"), "22/003") << mode;
  }
  EXPECT_EQ(ann.read("F", "A"), "0 'alpha'");
}

TEST_F(DataAccessTest, WhoMayOnlyReadChangesNothing) {
  ClientInProcess reader(agent, Right::Read, "rex");
  EXPECT_EQ(reader.open("F"), "OK");
  EXPECT_EQ(reader.read("F", "A", kShared), "0 'alpha'");
  EXPECT_EQ(reader.exists("F", "A"), "0");
  EXPECT_EQ(reader.select("F"), "1: A");
  EXPECT_EQ(reader.write("F", "A", "x"), "42/000");
  EXPECT_EQ(reader.write("F", "A", "x", 2), "42/000");
  EXPECT_EQ(reader.remove("F", "A"), "42/000");
  EXPECT_EQ(reader.clear("F"), "42/000");
  const auto chunk = reader.fetchChunk(1, 2, 1);
  change(*chunk->getSelectList(), 1, "x");
  EXPECT_EQ(reader.commitList(*chunk->getSelectList()), "42/000");
  EXPECT_EQ(ann.read("F", "A"), "0 'alpha'");
}

TEST(DataAccess, ARecordThatFitsIntoNoFrameIsAnError) {
  AgentInProcess agent([](ConfigurationValues& values) { values.maxFrame = 4096; });
  ClientInProcess ann(agent);
  ann.session().store().createFile("F");
  ann.session().store().write({"F", Part::Data}, "FITS", std::string(4000, 'x'));
  ann.session().store().write({"F", Part::Data}, "BIG", std::string(4097, 'x'));
  EXPECT_EQ(ann.read("F", "FITS"), "0 '" + std::string(4000, 'x') + "'");
  EXPECT_EQ(ann.read("F", "BIG"), "IE/008");
  EXPECT_EQ(ann.exists("F", "BIG"), "0");
}

// Locks.

TEST_F(DataAccessTest, ASharedLockLetsOthersShareAndKeepsWritersOut) {
  EXPECT_EQ(ann.read("F", "A", kShared), "0 'alpha'");
  EXPECT_EQ(bob.read("F", "A", kShared), "0 'alpha'");
  EXPECT_EQ(bob.read("F", "A", kUpdate), "2");
  EXPECT_EQ(bob.write("F", "A", "x"), "2");
  EXPECT_EQ(bob.write("F", "A", "x", 1), "2");
  EXPECT_EQ(bob.write("F", "A", "x", 2), "2");
  EXPECT_EQ(bob.remove("F", "A"), "2");
}

TEST_F(DataAccessTest, AnUpdateLockKeepsAllButPlainReadersOut) {
  EXPECT_EQ(ann.read("F", "A", kUpdate), "0 'alpha'");
  EXPECT_EQ(bob.read("F", "A"), "0 'alpha'");
  EXPECT_EQ(bob.exists("F", "A"), "0");
  EXPECT_EQ(bob.read("F", "A", kShared), "2");
  EXPECT_EQ(bob.read("F", "A", kUpdate | kDoNotWait), "2");
  EXPECT_EQ(bob.write("F", "A", "x"), "2");
  EXPECT_EQ(bob.remove("F", "A"), "2");
  EXPECT_EQ(bob.write("F", "B", "other records are free"), "0");
}

TEST_F(DataAccessTest, APlainReadThatDoesNotWaitIsAPlainRead) {
  EXPECT_EQ(ann.read("F", "A", kDoNotWait), "0 'alpha'");
  EXPECT_FALSE(isHeldBy(ann));
}

TEST_F(DataAccessTest, ARecordThatIsNotThereIsLockedAllTheSame) {
  EXPECT_EQ(ann.read("F", "NEW", kUpdate), "1");
  EXPECT_EQ(bob.read("F", "NEW", kUpdate | kDoNotWait), "2");
  EXPECT_EQ(bob.write("F", "NEW", "bob's", 2), "2");
  EXPECT_EQ(ann.write("F", "NEW", "ann's", 2), "0");
}

TEST_F(DataAccessTest, Mode0ReleasesTheLock) {
  ann.read("F", "A", kUpdate);
  EXPECT_EQ(ann.write("F", "A", "x", 0), "0");
  EXPECT_FALSE(isHeldBy(ann));
}

TEST_F(DataAccessTest, Mode0ReleasesASharedLockToo) {
  ann.read("F", "A", kShared);
  EXPECT_EQ(ann.write("F", "A", "x", 0), "0");
  EXPECT_FALSE(isHeldBy(ann));
}

TEST_F(DataAccessTest, Mode1KeepsTheLock) {
  ann.read("F", "A", kUpdate);
  EXPECT_EQ(ann.write("F", "A", "x", 1), "0");
  EXPECT_TRUE(isHeldBy(ann));
  EXPECT_EQ(bob.read("F", "A", kShared), "2");
}

TEST_F(DataAccessTest, Mode1KeepsTheLockThatItTookItself) {
  EXPECT_EQ(ann.write("F", "A", "x", 1), "0");
  EXPECT_EQ(bob.read("F", "A", kShared), "2");
}

TEST_F(DataAccessTest, Mode2LeavesLocksAsTheyWere) {
  EXPECT_EQ(ann.write("F", "NEW", "x", 2), "0");
  EXPECT_FALSE(isHeldBy(ann, "NEW"));
  EXPECT_EQ(ann.write("F", "NEW", "x", 2), "1");
  EXPECT_FALSE(isHeldBy(ann, "NEW"));
  ann.read("F", "NEW2", kUpdate);
  EXPECT_EQ(ann.write("F", "NEW2", "x", 2), "0");
  EXPECT_TRUE(isHeldBy(ann, "NEW2"));
}

TEST_F(DataAccessTest, AWriteThatFailsLeavesTheLockThatItFound) {
  ann.read("F", "A", kUpdate);
  EXPECT_EQ(ann.write("F", "A", std::string(kLongestRecord + 1, 'y')), "22/001");
  EXPECT_TRUE(isHeldBy(ann));
}

TEST_F(DataAccessTest, DeletingReleasesTheLock) {
  ann.read("F", "A", kUpdate);
  EXPECT_EQ(ann.remove("F", "A"), "0");
  EXPECT_FALSE(isHeldBy(ann));
  ann.read("F", "A", kUpdate);
  EXPECT_EQ(ann.remove("F", "A"), "1");
  EXPECT_FALSE(isHeldBy(ann));
}

TEST_F(DataAccessTest, WritingWithoutALockLeavesNone) {
  EXPECT_EQ(ann.write("F", "A", "x"), "0");
  EXPECT_EQ(ann.remove("F", "A"), "0");
  EXPECT_EQ(agent.agent().locks.size(), 0u);
}

TEST_F(DataAccessTest, AHolderUpgradesWhenAlone) {
  ann.read("F", "A", kShared);
  EXPECT_EQ(ann.read("F", "A", kUpdate), "0 'alpha'");
  EXPECT_EQ(bob.read("F", "A", kShared), "2");
}

TEST_F(DataAccessTest, ReleasingOneRecordAFileOrAll) {
  ann.session().store().createFile("G");
  const auto lockSome = [&] {
    for (const char* id : {"A", "B"}) ann.read("F", id, kUpdate);
    ann.read("DICT F", "C", kUpdate);
    ann.read("G", "D", kUpdate);
  };
  lockSome();
  EXPECT_EQ(ann.release(0, "F", "A"), "OK");
  EXPECT_EQ(agent.agent().locks.size(), 3u);
  EXPECT_FALSE(isHeldBy(ann, "A"));
  lockSome();
  EXPECT_EQ(ann.release(1, "F"), "OK");
  EXPECT_EQ(agent.agent().locks.size(), 2u);
  EXPECT_TRUE(isHeldBy(ann, "C"));
  lockSome();
  EXPECT_EQ(ann.release(2), "OK");
  EXPECT_EQ(agent.agent().locks.size(), 0u);
}

TEST_F(DataAccessTest, ReleasingWhatIsNotHeldIsFine) {
  EXPECT_EQ(ann.release(0, "F", "A"), "OK");
  EXPECT_EQ(ann.release(0, "NONE", "A"), "OK");
  EXPECT_EQ(ann.release(0, "no file name", "A"), "OK");
  EXPECT_EQ(ann.release(1, "NONE"), "OK");
  EXPECT_EQ(ann.release(1, ""), "OK");
  EXPECT_EQ(ann.release(2, "no file name", "\xFE"), "OK");
  EXPECT_EQ(ann.release(0, "F", ""), "22/021");
}

TEST_F(DataAccessTest, NobodyReleasesTheLocksOfAnother) {
  ann.read("F", "A", kUpdate);
  EXPECT_EQ(bob.release(0, "F", "A"), "OK");
  EXPECT_EQ(bob.release(2), "OK");
  EXPECT_TRUE(isHeldBy(ann));
}

TEST_F(DataAccessTest, TheEndOfASessionFreesItsLocks) {
  {
    ClientInProcess cid(agent, Right::Write, "cid");
    cid.read("F", "A", kUpdate);
    EXPECT_EQ(bob.write("F", "A", "x"), "2");
  }
  EXPECT_EQ(bob.write("F", "A", "x"), "0");
}

TEST_F(DataAccessTest, AReaderWithALockWaitsForTheWriterAndSeesWhatItWrote) {
  ann.read("F", "A", kUpdate);
  letWait(bob);
  auto answer = std::async(std::launch::async, [&] { return bob.read("F", "A", kShared); });
  agent.waitUntilSomebodyWaits();
  EXPECT_EQ(ann.write("F", "A", "written"), "0");
  EXPECT_EQ(answer.get(), "0 'written'");
}

TEST_F(DataAccessTest, NoUpdateIsLost) {
  constexpr int kRounds = 50;
  letWait(ann);
  letWait(bob);
  ann.write("F", "COUNT", "0");
  const auto count = [](ClientInProcess& client) {
    for (int i = 0; i < kRounds; ++i) {
      const std::string answer = client.read("F", "COUNT", kUpdate);  // 0 'n'
      const int n = std::stoi(answer.substr(3));
      EXPECT_EQ(client.write("F", "COUNT", std::to_string(n + 1)), "0");
    }
  };
  std::thread other([&] { count(bob); });
  count(ann);
  other.join();
  EXPECT_EQ(ann.read("F", "COUNT"), "0 '" + std::to_string(2 * kRounds) + "'");
}

TEST_F(DataAccessTest, AWaitThatWouldNeverEndIsRefused) {
  ann.read("F", "A", kUpdate);
  bob.read("F", "B", kUpdate);
  letWait(ann);
  letWait(bob);
  auto answer = std::async(std::launch::async, [&] { return ann.read("F", "B", kUpdate); });
  agent.waitUntilSomebodyWaits();
  EXPECT_EQ(bob.read("F", "A", kUpdate), "40/000");
  EXPECT_TRUE(isHeldBy(bob, "B")) << "outside of a transaction nothing is taken away";
  bob.release(2);
  EXPECT_EQ(answer.get(), "1");
}

TEST_F(DataAccessTest, InATransactionThatAlsoRollsItBack) {
  ann.read("F", "A", kUpdate);
  bob.begin();
  EXPECT_EQ(bob.write("F", "B", "uncommitted"), "0");
  letWait(ann);
  letWait(bob);
  auto answer = std::async(std::launch::async, [&] { return ann.read("F", "B", kUpdate); });
  agent.waitUntilSomebodyWaits();
  EXPECT_EQ(bob.read("F", "A", kUpdate), "40/000");
  EXPECT_EQ(answer.get(), "1") << "the record was never there, and is free";
  EXPECT_EQ(bob.commit(), "25/000") << "no transaction is open any more";
}

TEST_F(DataAccessTest, ALockOfOneWhoWaitsForTheWriterIsNotWaitedForByThatWriter) {
  letWait(ann);
  letWait(bob);
  ann.begin();
  EXPECT_EQ(ann.write("F", "A", "ann's"), "0");
  bob.begin();
  auto answer = std::async(std::launch::async, [&] { return bob.write("F", "B", "bob's"); });
  agent.waitUntilSomebodyWaitsForTheWriter();
  EXPECT_EQ(ann.write("F", "B", "ann's"), "40/000");
  EXPECT_EQ(answer.get(), "0");
  EXPECT_EQ(ann.commit(), "25/000") << "no transaction is open any more";
  EXPECT_EQ(bob.commit(), "OK");
  EXPECT_EQ(ann.read("F", "A"), "0 'alpha'");
  EXPECT_EQ(ann.read("F", "B"), "0 'bob's'");
}

TEST_F(DataAccessTest, AWriterWhoWaitsForOnesLockIsNotWaitedFor) {
  letWait(ann);
  bob.read("F", "B", kUpdate);
  ann.begin();
  EXPECT_EQ(ann.write("F", "A", "ann's"), "0");
  auto answer = std::async(std::launch::async, [&] { return ann.read("F", "B", kUpdate); });
  agent.waitUntilSomebodyWaits();
  EXPECT_EQ(bob.write("F", "B", "bob's"), "40/000");
  EXPECT_TRUE(isHeldBy(bob, "B")) << "outside of a transaction nothing is taken away";
  bob.begin();
  EXPECT_EQ(bob.write("F", "C", "bob's"), "40/000");
  EXPECT_EQ(bob.commit(), "25/000") << "no transaction is open any more";
  bob.release(2);
  EXPECT_EQ(answer.get(), "1");
  EXPECT_EQ(ann.commit(), "OK");
  EXPECT_EQ(bob.write("F", "B", "bob's"), "2") << "ann has it locked now";
}

TEST_F(DataAccessTest, AWriterWhoHasEndedIsWaitedForNoMore) {
  letWait(ann);
  letWait(bob);
  for (const bool commits : {true, false}) {
    ann.begin();
    EXPECT_EQ(ann.write("F", "A", "ann's"), "0");
    EXPECT_EQ(commits ? ann.commit() : ann.rollback(), "OK");
    bob.begin();
    EXPECT_EQ(bob.write("F", "B", "bob's"), "0");
    auto answer = std::async(std::launch::async, [&] { return ann.write("F", "B", "ann's"); });
    agent.waitUntilSomebodyWaits();
    EXPECT_EQ(bob.commit(), "OK");
    EXPECT_EQ(answer.get(), "0");
  }
}

TEST_F(DataAccessTest, AWaitingSessionThatIsInterruptedStopsWaiting) {
  ann.read("F", "A", kUpdate);
  letWait(bob);
  auto answer = std::async(std::launch::async, [&] { return bob.read("F", "A", kShared); });
  agent.waitUntilSomebodyWaits();
  bob.session().interrupt();
  EXPECT_EQ(answer.get(), "2");
}

TEST_F(DataAccessTest, LocksOfAFileThatIsGoneAreNotWaitedFor) {
  ann.read("F", "A", kUpdate);
  ann.session().store().deleteFile("F");
  letWait(bob);
  EXPECT_EQ(bob.read("F", "A", kUpdate), "IE/008");
  EXPECT_EQ(bob.read("F", "A", kUpdate | kDoNotWait), "IE/008");
  EXPECT_EQ(bob.write("F", "A", "x"), "IE/009");
}

// Clearing.

TEST_F(DataAccessTest, ClearingDeletesAllRecords) {
  ann.write("F", "B", "beta");
  EXPECT_EQ(ann.clear("F"), "OK");
  EXPECT_EQ(ann.select("F"), "1:");
  EXPECT_EQ(agent.agent().locks.size(), 0u);
}

TEST_F(DataAccessTest, AFileWithARecordThatAnotherLocksIsNotCleared) {
  bob.read("F", "A", kShared);
  EXPECT_EQ(ann.clear("F"), "IE/024");
  EXPECT_EQ(ann.read("F", "A"), "0 'alpha'");
  bob.release(2);
  EXPECT_EQ(ann.clear("F"), "OK");
}

TEST_F(DataAccessTest, ClearingWaitsForLocksToGo) {
  bob.read("F", "A", kShared);
  letWait(ann);
  auto answer = std::async(std::launch::async, [&] { return ann.clear("F"); });
  // Whether it waits already or comes later: it ends when the lock does.
  bob.release(2);
  EXPECT_EQ(answer.get(), "OK");
}

TEST_F(DataAccessTest, OwnLocksDoNotKeepAFileFromBeingCleared) {
  ann.read("F", "A", kUpdate);
  EXPECT_EQ(ann.clear("F"), "OK");
  EXPECT_TRUE(isHeldBy(ann));
}

TEST_F(DataAccessTest, AFileThatATransactionClearedIsLockedUntilItsEnd) {
  ann.begin();
  EXPECT_EQ(ann.clear("F"), "OK");
  EXPECT_EQ(bob.read("F", "A"), "0 'alpha'") << "a plain read sees what is committed";
  EXPECT_EQ(bob.read("F", "A", kUpdate), "2");
  ann.rollback();
  EXPECT_EQ(bob.read("F", "A", kUpdate), "0 'alpha'");
}

TEST_F(DataAccessTest, AChangeThatATransactionIsRefusedLocksNothing) {
  ann.session().transactions().startBranch({1, "x"});
  EXPECT_EQ(ann.run("DELETE-FILE F (Y"), "0A/000") << "files stay while a branch runs";
  EXPECT_EQ(ann.clear("NONE"), "IE/006");
  EXPECT_EQ(ann.write("NONE", "A", "x"), "IE/009");
  EXPECT_EQ(ann.remove("NONE", "A"), "IE/010");
  EXPECT_EQ(agent.agent().locks.size(), 0u);
}

// Many at once.

TEST_F(DataAccessTest, ManyAreWrittenTogetherAndTheirLocksEnd) {
  const FilePart file{"F", Part::Data};
  ann.read("F", "B", kUpdate);
  ann.session().data().writeAll({{file, "B", "b"}, {file, "A", "a"}, {file, "B", "b2"}});
  EXPECT_EQ(ann.read("F", "A"), "0 'a'");
  EXPECT_EQ(ann.read("F", "B"), "0 'b2'");
  EXPECT_EQ(agent.agent().locks.size(), 0u);
}

TEST_F(DataAccessTest, OneThatIsLockedKeepsAllFromBeingWritten) {
  const FilePart file{"F", Part::Data};
  bob.read("F", "C", kUpdate);
  try {
    ann.session().data().writeAll({{file, "A", "a"}, {file, "C", "c"}, {file, "D", "d"}});
    ADD_FAILURE() << "nothing was thrown";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.state().sqlClass + failure.state().sqlSubClass, "IE024");
  }
  EXPECT_EQ(ann.read("F", "A"), "0 'alpha'");
  EXPECT_EQ(ann.exists("F", "D"), "1");
  EXPECT_EQ(agent.agent().locks.size(), 1u);
}

// What the store's failures are to clients.

struct Mapped {
  StoreError::Kind kind;
  const char* code;
};
class StoreFailures : public ::testing::TestWithParam<Mapped> {};

TEST_P(StoreFailures, HaveACode) {
  try {
    throwAsFailure(StoreError(GetParam().kind, "reason", 13), "IE", "009");
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.state().sqlClass + "/" + failure.state().sqlSubClass, GetParam().code);
    EXPECT_EQ(failure.status(), 13);
  }
}

INSTANTIATE_TEST_SUITE_P(All, StoreFailures,
                         ::testing::Values(Mapped{StoreError::Kind::Busy, "IE/024"},
                                           Mapped{StoreError::Kind::NoFile, "IE/009"},
                                           Mapped{StoreError::Kind::RolledBack, "40/000"},
                                           Mapped{StoreError::Kind::NotAllowed, "IE/009"},
                                           Mapped{StoreError::Kind::NotInBranch, "0A/000"},
                                           Mapped{StoreError::Kind::Interrupted, "IE/009"},
                                           Mapped{StoreError::Kind::Full, "IE/009"},
                                           Mapped{StoreError::Kind::Damaged, "IE/009"}));

TEST(StoreFailure, WithoutAStatusOfTheEngineHasNone) {
  try {
    throwAsFailure(StoreError(StoreError::Kind::Failed, "reason"), "IE", "009");
  } catch (const Failure& failure) {
    EXPECT_FALSE(failure.status().has_value());
    EXPECT_EQ(failure.reason(), "reason");
  }
}

}  // namespace
}  // namespace nox::agent::test
