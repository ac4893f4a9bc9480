// Files: made, listed, deleted, and made again under the eyes of sessions that know the old one.
#include <gmock/gmock.h>

#include <string>

#include "tests/agent/store/store_test.h"

namespace nox::agent::test {
namespace {

using ::testing::ElementsAre;
using ::testing::Eq;
using ::testing::Optional;

using Files = StoreTest;

TEST_F(Files, ACreatedFileIsThere) {
  const auto session = newSession();
  EXPECT_FALSE(session->hasFile("ORDERS"));
  EXPECT_TRUE(session->createFile("ORDERS"));
  EXPECT_TRUE(session->hasFile("ORDERS"));
}

TEST_F(Files, CreatingAnExistingFileChangesNothing) {
  const auto session = newSession();
  session->write(kFile, "1", "Ann");
  EXPECT_FALSE(session->createFile(kFile.file));
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
}

TEST_F(Files, NamesAreCaseSensitive) {
  const auto session = newSession();
  EXPECT_TRUE(session->createFile("customers"));
  session->write({"customers", Part::Data}, "1", "small");
  session->write(kFile, "1", "capital");
  EXPECT_THAT(read(*session, "1"), Optional(Eq("capital")));
}

TEST_F(Files, ANameThatIsNoneIsRefused) {
  const auto session = newSession();
  EXPECT_EQ(failure([&] { session->createFile("A B"); }), StoreError::Kind::Failed);
}

TEST_F(Files, TheyAreListedInOrder) {
  const auto session = newSession();
  session->createFile("b");
  session->createFile("A");
  session->createFile("ORDERS");
  EXPECT_THAT(session->files(), ElementsAre("A", "CUSTOMERS", "ORDERS", "b"));
}

TEST_F(Files, ADeletedFileIsGoneWithItsRecords) {
  const auto session = newSession();
  session->write(kFile, "1", "Ann");
  EXPECT_TRUE(session->deleteFile(kFile.file));
  EXPECT_FALSE(session->hasFile(kFile.file));
  EXPECT_EQ(failure([&] { read(*session, "1"); }), StoreError::Kind::NoFile);
}

TEST_F(Files, DeletingAMissingFileSaysSo) { EXPECT_FALSE(newSession()->deleteFile("NOWHERE")); }

TEST_F(Files, OtherSessionsNoticeThatAFileWasDeleted) {
  const auto one = newSession();
  const auto two = newSession();
  two->write(kFile, "1", "Ann");
  EXPECT_THAT(read(*two, "1"), Optional(Eq("Ann")));
  one->deleteFile(kFile.file);
  EXPECT_EQ(failure([&] { read(*two, "1"); }), StoreError::Kind::NoFile);
  EXPECT_EQ(failure([&] { two->write(kFile, "1", "Bob"); }), StoreError::Kind::NoFile);
  EXPECT_EQ(failure([&] { two->exists(kFile, "1"); }), StoreError::Kind::NoFile);
}

TEST_F(Files, AFileThatIsMadeAgainIsEmptyAndWorksForAll) {
  const auto one = newSession();
  const auto two = newSession();
  two->write(kFile, "1", "Ann");
  EXPECT_THAT(read(*two, "1"), Optional(Eq("Ann")));
  one->deleteFile(kFile.file);
  one->createFile(kFile.file);
  EXPECT_EQ(read(*two, "1"), std::nullopt);
  two->write(kFile, "1", "Bob");
  EXPECT_THAT(read(*one, "1"), Optional(Eq("Bob")));
}

TEST_F(Files, AFileOfATransactionIsSeenByOthersAfterItsCommit) {
  const auto one = newSession();
  const auto two = newSession();
  one->begin(0);
  EXPECT_TRUE(one->createFile("ORDERS"));
  one->write({"ORDERS", Part::Data}, "7", "pens");
  EXPECT_TRUE(one->hasFile("ORDERS"));
  EXPECT_FALSE(two->hasFile("ORDERS"));
  one->commit();
  EXPECT_THAT(read(*two, "7", {"ORDERS", Part::Data}), Optional(Eq("pens")));
}

TEST_F(Files, AFileOfATransactionThatIsRolledBackLeavesNoTrace) {
  const auto session = newSession();
  session->begin(0);
  session->createFile("ORDERS");
  session->write({"ORDERS", Part::Data}, "7", "pens");
  session->rollback();
  EXPECT_FALSE(session->hasFile("ORDERS"));
  // The next file takes its place in the store, not its records.
  session->createFile("ITEMS");
  session->write({"ITEMS", Part::Data}, "7", "screws");
  EXPECT_EQ(failure([&] {
              read(*session, "7", {"ORDERS", Part::Data});
            }),
            StoreError::Kind::NoFile);
}

TEST_F(Files, ADeletionThatIsRolledBackKeepsTheFile) {
  const auto session = newSession();
  session->write(kFile, "1", "Ann");
  session->begin(0);
  session->deleteFile(kFile.file);
  EXPECT_FALSE(session->hasFile(kFile.file));
  session->rollback();
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
}

TEST_F(Files, MoreFilesThanAConnectionKnowsAtATimeAllWork) {
  const auto session = newSession();
  constexpr int kFiles = 100;
  const auto file = [](int i) { return FilePart{"F" + std::to_string(i), Part::Data}; };
  session->begin(0);
  for (int i = 0; i < kFiles; ++i) session->createFile(file(i).file);
  for (int i = 0; i < kFiles; ++i) session->write(file(i), "1", std::to_string(i));
  session->commit();
  for (int i = 0; i < kFiles; ++i) {
    EXPECT_THAT(read(*session, "1", file(i)), Optional(Eq(std::to_string(i))));
  }
}

}  // namespace
}  // namespace nox::agent::test
