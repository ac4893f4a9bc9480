// Records by key: what is written is what is read, in both parts, whatever the bytes.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/agent/store/store_test.h"

namespace nox::agent::test {
namespace {

using ::testing::Eq;
using ::testing::Optional;

using Records = StoreTest;

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
