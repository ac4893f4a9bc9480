// Records by key: what is written is what is read, in both parts, whatever the bytes.
#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tests/agent/store/store_test.h"

namespace nox::agent::test {
namespace {

using ::testing::ElementsAre;
using ::testing::Eq;
using ::testing::IsEmpty;
using ::testing::Optional;

class Records : public StoreTest {
public:
  /// What `readEach` gives, "-" where there is no record, of the first `most` ids.
  static std::vector<std::string> readEach(StoreSession& session,
                                           const std::vector<std::string>& ids,
                                           std::size_t most = kAll, const FilePart& file = kFile) {
    struct Taker : RecordTaker {
      explicit Taker(std::size_t wanted) : most(wanted) {}
      bool take(std::size_t place, const std::string_view* body) override {
        EXPECT_EQ(place, bodies.size());
        if (bodies.size() == most) return false;
        bodies.emplace_back(body != nullptr ? *body : "-");
        return true;
      }
      const std::size_t most;
      std::vector<std::string> bodies;
    } taker(most);
    session.readEach(file, ids, taker);
    return taker.bodies;
  }
  static constexpr std::size_t kAll = 1'000'000;
};

TEST_F(Records, AWrittenRecordIsReadAgain) {
  const auto session = newSession();
  session->write(kFile, "1", "Ann");
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
}

TEST_F(Records, AMissingRecordIsNotRead) {
  const auto session = newSession();
  EXPECT_EQ(read(*session, "1"), std::nullopt);
}

TEST_F(Records, AnEmptyRecordIsARecord) {
  const auto session = newSession();
  session->write(kFile, "1", {});
  EXPECT_THAT(read(*session, "1"), Optional(Eq("")));
}

TEST_F(Records, ABodyMayHoldAnyBytes) {
  std::string body;
  for (int i = 0; i < 256; ++i) body += static_cast<char>(i);
  const auto session = newSession();
  session->write(kFile, "1", body);
  EXPECT_THAT(read(*session, "1"), Optional(Eq(body)));
}

TEST_F(Records, ABodyOfEightMebibytesIsKept) {
  const std::string body(kLongestRecord, 'x');
  const auto session = newSession();
  session->write(kFile, "1", body);
  EXPECT_TRUE(read(*session, "1") == body);
}

TEST_F(Records, AnIdMayHoldAnyTextOf255Bytes) {
  std::string id = "'\"; DROP TABLE nox_files; -- \xC3\xA4\xF0\x9F\x98\x80";
  id.resize(kLongestRecordId, '%');
  const auto session = newSession();
  session->write(kFile, id, "Ann");
  EXPECT_THAT(read(*session, id), Optional(Eq("Ann")));
  EXPECT_EQ(read(*session, id.substr(1)), std::nullopt);
}

TEST_F(Records, IdsAreCaseSensitive) {
  const auto session = newSession();
  session->write(kFile, "a", "small");
  session->write(kFile, "A", "capital");
  EXPECT_THAT(read(*session, "a"), Optional(Eq("small")));
}

TEST_F(Records, AnIdThatLooksLikeANumberStaysText) {
  const auto session = newSession();
  session->write(kFile, "007", "Bond");
  EXPECT_EQ(read(*session, "7"), std::nullopt);
}

TEST_F(Records, WritingAgainReplaces) {
  const auto session = newSession();
  session->write(kFile, "1", "Ann");
  session->write(kFile, "1", "Bob");
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Bob")));
}

TEST_F(Records, BothPartsOfAFileAreApart) {
  const auto session = newSession();
  session->write(kFile, "1", "data");
  session->write(kDict, "1", "dictionary");
  EXPECT_THAT(read(*session, "1", kFile), Optional(Eq("data")));
  EXPECT_THAT(read(*session, "1", kDict), Optional(Eq("dictionary")));
}

TEST_F(Records, WriteNewWritesWhereThereIsNone) {
  const auto session = newSession();
  EXPECT_TRUE(session->writeNew(kFile, "1", "Ann"));
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
}

TEST_F(Records, WriteNewLeavesAnExistingRecordAlone) {
  const auto session = newSession();
  session->write(kFile, "1", "Ann");
  EXPECT_FALSE(session->writeNew(kFile, "1", "Bob"));
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
}

TEST_F(Records, RemoveTellsWhetherThereWasARecord) {
  const auto session = newSession();
  session->write(kFile, "1", "Ann");
  EXPECT_TRUE(session->remove(kFile, "1"));
  EXPECT_FALSE(session->remove(kFile, "1"));
  EXPECT_EQ(read(*session, "1"), std::nullopt);
}

TEST_F(Records, ExistsTellsWhetherThereIsARecord) {
  const auto session = newSession();
  session->write(kFile, "1", "Ann");
  EXPECT_TRUE(session->exists(kFile, "1"));
  EXPECT_FALSE(session->exists(kFile, "2"));
}

TEST_F(Records, ReadEachGivesTheRecordsInTheOrderOfTheirIds) {
  const auto session = newSession();
  session->writeAll({{kFile, "1", "Ann"}, {kFile, "2", "Bob"}, {kFile, "3", ""}});
  EXPECT_THAT(readEach(*session, {"1", "2", "3"}), ElementsAre("Ann", "Bob", ""));
  EXPECT_THAT(readEach(*session, {"3", "1", "1", "2"}), ElementsAre("", "Ann", "Ann", "Bob"));
  EXPECT_THAT(readEach(*session, {}), IsEmpty());
}

TEST_F(Records, ReadEachTellsWhichRecordsAreMissing) {
  const auto session = newSession();
  session->writeAll({{kFile, "1", "Ann"}, {kFile, "3", "Bob"}});
  EXPECT_THAT(readEach(*session, {"0", "1", "2", "3", "4", "5", "1"}),
              ElementsAre("-", "Ann", "-", "Bob", "-", "-", "Ann"));
}

TEST_F(Records, ReadEachGivesNoMoreThanIsTaken) {
  const auto session = newSession();
  session->writeAll({{kFile, "1", "Ann"}, {kFile, "2", "Bob"}, {kFile, "3", "Cid"}});
  EXPECT_THAT(readEach(*session, {"1", "2", "3"}, 2), ElementsAre("Ann", "Bob"));
}

TEST_F(Records, ReadEachGivesWhatReadGivesHoweverTheIdsLie) {
  const auto session = newSession();
  std::vector<RecordWrite> writes;
  for (int i = 0; i < 400; i += 2)
    writes.push_back({kFile, std::to_string(i), "of " + std::to_string(i)});
  session->writeAll(writes);
  std::minstd_rand random;  // the same numbers in each run
  for (int round = 0; round < 50; ++round) {
    std::vector<std::string> ids;
    const auto count = static_cast<int>(random() % 200);
    for (int i = 0; i < count; ++i) ids.push_back(std::to_string(random() % 400));
    if (round % 3 > 0) std::sort(ids.begin(), ids.end());
    if (round % 3 > 1) std::reverse(ids.begin(), ids.end());
    std::vector<std::string> expected;
    for (const std::string& id : ids) expected.push_back(read(*session, id).value_or("-"));
    EXPECT_EQ(readEach(*session, ids), expected) << "round " << round;
  }
}

TEST_F(Records, ReadEachSeesTheTransactionsOwnChanges) {
  const auto session = newSession();
  session->writeAll({{kFile, "1", "Ann"}, {kFile, "2", "Bob"}});
  session->begin(0);
  session->write(kFile, "1", "Amy");
  session->remove(kFile, "2");
  EXPECT_THAT(readEach(*session, {"1", "2"}), ElementsAre("Amy", "-"));
  EXPECT_THAT(readEach(*newSession(), {"1", "2"}), ElementsAre("Ann", "Bob"));
  session->rollback();
}

TEST_F(Records, ReadEachFindsAFileThatWasMadeAgain) {
  const auto session = newSession();
  session->write(kFile, "1", "Ann");
  EXPECT_THAT(readEach(*session, {"1"}), ElementsAre("Ann"));
  const auto other = newSession();
  other->deleteFile(kFile.file);
  EXPECT_EQ(failure([&] { readEach(*session, {"1"}); }), StoreError::Kind::NoFile);
  other->createFile(kFile.file);
  other->write(kFile, "2", "Bob");
  EXPECT_THAT(readEach(*session, {"1", "2"}), ElementsAre("-", "Bob"));
}

TEST_F(Records, AnInterruptEndsReadEach) {
  const auto session = newSession();
  session->write(kFile, "1", "Ann");
  struct Interrupting : RecordTaker {
    explicit Interrupting(StoreSession& its) : session(its) {}
    bool take(std::size_t, const std::string_view*) override {
      ++taken;
      session.interrupt();
      return true;
    }
    StoreSession& session;
    int taken = 0;
  } taker(*session);
  EXPECT_EQ(failure([&] {
              session->readEach(kFile, {"1", "1"}, taker);
            }),
            StoreError::Kind::Interrupted);
  EXPECT_EQ(taker.taken, 1);
}

TEST_F(Records, WriteAllWritesToSeveralFiles) {
  const auto session = newSession();
  session->createFile("ORDERS");
  session->writeAll({{kFile, "1", "Ann"}, {{"ORDERS", Part::Data}, "7", "pens"}});
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
  EXPECT_THAT(read(*session, "7", {"ORDERS", Part::Data}), Optional(Eq("pens")));
}

TEST_F(Records, WriteAllWritesNothingWhereOneFails) {
  const auto session = newSession();
  EXPECT_EQ(failure([&] {
              session->writeAll({{kFile, "1", "Ann"}, {{"NOWHERE", Part::Data}, "2", "Bob"}});
            }),
            StoreError::Kind::NoFile);
  EXPECT_EQ(read(*session, "1"), std::nullopt);
}

TEST_F(Records, ClearDeletesAllRecordsOfThePartAndCountsThem) {
  const auto session = newSession();
  session->writeAll({{kFile, "1", "Ann"}, {kFile, "2", "Bob"}, {kDict, "NAME", "D"}});
  EXPECT_EQ(session->clear(kFile), 2u);
  EXPECT_FALSE(session->exists(kFile, "1"));
  EXPECT_TRUE(session->exists(kDict, "NAME"));
}

TEST_F(Records, EveryOperationOnAMissingFileSaysSo) {
  const auto session = newSession();
  const FilePart nowhere{"NOWHERE", Part::Data};
  NOXPBlob body;
  const auto kNoFile = StoreError::Kind::NoFile;
  EXPECT_EQ(failure([&] { session->read(nowhere, "1", body); }), kNoFile);
  EXPECT_EQ(failure([&] { readEach(*session, {"1"}, kAll, nowhere); }), kNoFile);
  EXPECT_EQ(failure([&] { session->exists(nowhere, "1"); }), kNoFile);
  EXPECT_EQ(failure([&] { session->write(nowhere, "1", "x"); }), kNoFile);
  EXPECT_EQ(failure([&] { session->writeNew(nowhere, "1", "x"); }), kNoFile);
  EXPECT_EQ(failure([&] { session->remove(nowhere, "1"); }), kNoFile);
  EXPECT_EQ(failure([&] { session->clear(nowhere); }), kNoFile);
  EXPECT_EQ(failure([&] { session->scan(nowhere, false); }), kNoFile);
}

TEST_F(Records, OneSessionsWriteIsReadByTheOthers) {
  const auto writer = newSession();
  const auto reader = newSession();
  EXPECT_EQ(read(*reader, "1"), std::nullopt);
  writer->write(kFile, "1", "Ann");
  EXPECT_THAT(read(*reader, "1"), Optional(Eq("Ann")));
}

TEST_F(Records, WhatWasWrittenIsThereAfterARestart) {
  newSession()->write(kFile, "1", "Ann");
  reopen();
  EXPECT_THAT(read(*newSession(), "1"), Optional(Eq("Ann")));
}

TEST_F(Records, EachChangeOutsideATransactionIsCountedAsACommit) {
  const auto session = newSession();
  const StoreStatistics before = store().statistics();
  session->write(kFile, "1", "Ann");
  session->writeAll({{kFile, "2", "Bob"}, {kFile, "3", "Cid"}});
  const StoreStatistics after = store().statistics();
  EXPECT_EQ(after.commits - before.commits, 2u);
  EXPECT_EQ(after.writes - before.writes, 3u);
  EXPECT_GT(after.bytes, 0u);
}

}  // namespace
}  // namespace nox::agent::test
