// Cursors: every record in key order, one state of the store however long it takes.
#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/agent/store/store_test.h"

namespace nox::agent::test {
namespace {

using ::testing::ElementsAre;
using ::testing::Eq;
using ::testing::IsEmpty;
using ::testing::Optional;

std::vector<std::string> rest(RecordCursor& cursor) {
  std::vector<std::string> records;
  while (cursor.next()) {
    records.push_back(std::string(cursor.key()) + "=" + std::string(cursor.body()));
  }
  return records;
}

class Scan : public StoreTest {
protected:
  Scan() { session->writeAll({{kFile, "1", "Ann"}, {kFile, "2", "Bob"}, {kFile, "3", "Cid"}}); }

  std::unique_ptr<StoreSession> session = newSession();
  std::unique_ptr<StoreSession> other = newSession();
};

TEST_F(Scan, GivesEveryRecordInByteWiseOrder) {
  session->write(kFile, "10", "Dan");
  session->write(kFile, "\xC3\xA4", "Eva");
  session->write(kFile, "Z", "Fay");
  EXPECT_THAT(rest(*session->scan(kFile, true)),
              ElementsAre("1=Ann", "10=Dan", "2=Bob", "3=Cid", "Z=Fay", "\xC3\xA4=Eva"));
}

TEST_F(Scan, GivesKeysAloneWhenAskedTo) {
  EXPECT_THAT(rest(*session->scan(kFile, false)), ElementsAre("1=", "2=", "3="));
}

TEST_F(Scan, StartsAtAKeyThatIsThere) {
  EXPECT_THAT(rest(*session->scan(kFile, true, "2")), ElementsAre("2=Bob", "3=Cid"));
}

TEST_F(Scan, StartsBehindAKeyThatIsNotThere) {
  EXPECT_THAT(rest(*session->scan(kFile, true, "11")), ElementsAre("2=Bob", "3=Cid"));
}

TEST_F(Scan, OfAnEmptyPartEndsAtOnce) {
  const auto cursor = session->scan(kDict, true);
  EXPECT_FALSE(cursor->next());
  EXPECT_FALSE(cursor->next());
}

TEST_F(Scan, SeesTheStateOfItsBeginning) {
  const auto cursor = session->scan(kFile, true);
  other->write(kFile, "2", "changed");
  other->remove(kFile, "3");
  other->write(kFile, "4", "new");
  EXPECT_THAT(rest(*cursor), ElementsAre("1=Ann", "2=Bob", "3=Cid"));
}

TEST_F(Scan, SeesTheStateOfItsBeginningAlsoWhenItsOwnSessionWrites) {
  const auto cursor = session->scan(kFile, true);
  ASSERT_TRUE(cursor->next());
  session->write(kFile, "2", "changed");
  EXPECT_THAT(rest(*cursor), ElementsAre("2=Bob", "3=Cid"));
}

TEST_F(Scan, OutlivesItsFile) {
  const auto cursor = session->scan(kFile, true);
  other->deleteFile(kFile.file);
  EXPECT_THAT(rest(*cursor), ElementsAre("1=Ann", "2=Bob", "3=Cid"));
}

TEST_F(Scan, OfATransactionSeesItsChanges) {
  session->begin(0);
  session->write(kFile, "2", "changed");
  EXPECT_THAT(rest(*session->scan(kFile, true)), ElementsAre("1=Ann", "2=changed", "3=Cid"));
}

TEST_F(Scan, OfATransactionIsNotChangedByItsLaterWrites) {
  session->begin(0);
  session->write(kFile, "0", "first");
  const auto cursor = session->scan(kFile, true);
  ASSERT_TRUE(cursor->next());
  session->write(kFile, "2", "changed");
  session->write(kFile, "4", "new");
  session->remove(kFile, "3");
  EXPECT_THAT(rest(*cursor), ElementsAre("1=Ann", "2=Bob", "3=Cid"));
  EXPECT_THAT(rest(*session->scan(kFile, true)),
              ElementsAre("0=first", "1=Ann", "2=changed", "4=new"));
}

TEST_F(Scan, KeepsItsRecordWhileTheTransactionWrites) {
  session->begin(0);
  session->write(kFile, "0", "first");
  const auto cursor = session->scan(kFile, true, "2");
  ASSERT_TRUE(cursor->next());
  const std::string_view key = cursor->key();
  session->clear(kFile);
  EXPECT_EQ(cursor->key(), "2");
  EXPECT_EQ(cursor->body(), "Bob");
  EXPECT_EQ(key.size(), 1u);
}

TEST_F(Scan, OfATransactionIsNotChangedByItsRollback) {
  session->begin(0);
  session->write(kFile, "2", "changed");
  const auto cursor = session->scan(kFile, true);
  session->rollback();
  EXPECT_THAT(rest(*cursor), ElementsAre("1=Ann", "2=changed", "3=Cid"));
}

TEST_F(Scan, OfATransactionIsNotChangedByWhatFollowsItsCommit) {
  session->begin(0);
  session->write(kFile, "2", "changed");
  const auto cursor = session->scan(kFile, true);
  session->commit();
  session->clear(kFile);
  EXPECT_THAT(rest(*cursor), ElementsAre("1=Ann", "2=changed", "3=Cid"));
}

TEST_F(Scan, OfATransactionIsNotChangedByItsMark) {
  session->begin(0);
  session->write(kFile, "2", "changed");
  session->setMark();
  session->write(kFile, "3", "changed too");
  const auto cursor = session->scan(kFile, true);
  session->rollbackToMark();
  EXPECT_THAT(rest(*cursor), ElementsAre("1=Ann", "2=changed", "3=changed too"));
}

TEST_F(Scan, DoesNotKeepItsTransactionFromDeletingTheFile) {
  session->begin(0);
  session->write(kFile, "2", "changed");
  const auto cursor = session->scan(kFile, true);
  EXPECT_TRUE(session->deleteFile(kFile.file));
  EXPECT_THAT(rest(*cursor), ElementsAre("1=Ann", "2=changed", "3=Cid"));
}

TEST_F(Scan, SeveralAtATimeGoTheirOwnWays) {
  const auto one = session->scan(kFile, true);
  ASSERT_TRUE(one->next());
  const auto two = session->scan(kFile, true, "3");
  ASSERT_TRUE(two->next());
  EXPECT_EQ(one->key(), "1");
  EXPECT_EQ(two->key(), "3");
  EXPECT_THAT(rest(*one), ElementsAre("2=Bob", "3=Cid"));
}

TEST_F(Scan, LetsItsConnectionGoAtTheEnd) {
  const auto cursor = session->scan(kFile, true);
  EXPECT_EQ(store().connections().borrowed(), 1u);
  while (cursor->next()) {
  }
  EXPECT_EQ(store().connections().borrowed(), 0u);
}

TEST_F(Scan, LetsItsConnectionGoWithoutReachingTheEnd) {
  session->scan(kFile, true)->next();
  EXPECT_EQ(store().connections().borrowed(), 0u);
}

}  // namespace
}  // namespace nox::agent::test
