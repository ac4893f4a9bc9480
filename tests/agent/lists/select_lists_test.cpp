// Select lists as one session has them, without the wire: limits, big lists, the active list.
#include "agent/lists/select_lists.h"

#include <gmock/gmock.h>

#include <string>
#include <utility>

#include "agent/failure.h"
#include "tests/agent/support/agent_in_process.h"

namespace nox::agent::test {
namespace {

using noxp::remote::SelectListProt;

class SelectListsTest : public ::testing::Test {
protected:
  explicit SelectListsTest(const AgentInProcess::Change& change = {}) : agent(change) {
    session->store().createFile("F");
    for (const char* id : {"A", "B", "C", "D", "E"}) {
      session->store().write(file, id, std::string("record ") + id);
    }
  }

  SelectedKeys keysOf(std::initializer_list<const char*> ids) const {
    SelectedKeys selected;
    selected.file = file;
    for (const char* id : ids) selected.keys.add(id);
    return selected;
  }
  int openAll() { return lists().open(keysOf({"A", "B", "C", "D", "E"})); }
  std::string fetch(int id, int direction, std::size_t size, bool withRecords = false) {
    return describe(lists().fetch(id, direction, size, withRecords).get());
  }
  SelectLists& lists() { return session->lists(); }
  /// The code of the Failure that `work` throws.
  template <class Work>
  static std::string failureOf(Work work) {
    try {
      work();
    } catch (const Failure& failure) {
      return failure.state().sqlClass + "/" + failure.state().sqlSubClass;
    }
    return "none";
  }

  AgentInProcess agent;
  std::unique_ptr<Session> session = agent.newSession();
  const FilePart file{"F", Part::Data};
};

TEST_F(SelectListsTest, IdsCountFromOneAndAreNotUsedAgain) {
  EXPECT_EQ(openAll(), 1);
  EXPECT_EQ(openAll(), 2);
  lists().close(2);
  EXPECT_EQ(openAll(), 3);
}

TEST_F(SelectListsTest, NoMoreThan64AreOpenAtOnce) {
  for (int i = 0; i < 64; ++i) openAll();
  EXPECT_EQ(failureOf([&] { openAll(); }), "IE/007");
  lists().close(7);
  EXPECT_EQ(openAll(), 65);
}

TEST_F(SelectListsTest, ForwardUntilTheEmptyChunk) {
  const int id = openAll();
  EXPECT_EQ(fetch(id, 1, 2), "1: A B");
  EXPECT_EQ(fetch(id, 1, 2), "1: C D");
  EXPECT_EQ(fetch(id, 1, 2), "1: E");
  EXPECT_EQ(fetch(id, 1, 2), "1:");
  EXPECT_EQ(fetch(id, 1, 2), "1:") << "it stays the end";
}

TEST_F(SelectListsTest, BackFromTheEndKeepsListOrder) {
  const int id = openAll();
  EXPECT_EQ(fetch(id, -2, 2), "1: D E");
  EXPECT_EQ(fetch(id, -1, 2), "1: B C");
  EXPECT_EQ(fetch(id, -1, 2), "1: A");
  EXPECT_EQ(fetch(id, -1, 2), "1:");
  EXPECT_EQ(fetch(id, 1, 2), "1: A B") << "behind what stands before the first";
}

TEST_F(SelectListsTest, BackFromBehindTheLast) {
  const int id = openAll();
  fetch(id, 1, 10);
  EXPECT_EQ(fetch(id, 1, 10), "1:");
  EXPECT_EQ(fetch(id, -1, 2), "1: D E");
}

TEST_F(SelectListsTest, BackwardGoesBeforeTheChunkThatWasSentLast) {
  const int id = openAll();
  fetch(id, 1, 2);
  fetch(id, 1, 2);
  EXPECT_EQ(fetch(id, -1, 2), "1: A B");
}

TEST_F(SelectListsTest, TheSameChunkAgain) {
  const int id = openAll();
  EXPECT_EQ(fetch(id, 0, 2), "1:") << "nothing was sent yet";
  fetch(id, 1, 2);
  fetch(id, 1, 2);
  EXPECT_EQ(fetch(id, 0, 2), "1: C D");
  EXPECT_EQ(fetch(id, 0, 100), "1: C D");
  EXPECT_EQ(fetch(id, 0, 1), "1: C") << "never more than was asked for";
  EXPECT_EQ(fetch(id, 1, 2), "1: D E") << "what was left out comes next";
}

TEST_F(SelectListsTest, FromTheStart) {
  const int id = openAll();
  fetch(id, -2, 2);
  EXPECT_EQ(fetch(id, 2, 3), "1: A B C");
  EXPECT_EQ(fetch(id, 1, 3), "1: D E");
}

TEST_F(SelectListsTest, ASizeOfNothingMovesNothing) {
  const int id = openAll();
  fetch(id, 1, 2);
  EXPECT_EQ(fetch(id, 1, 0), "1:");
  EXPECT_EQ(fetch(id, -2, 0), "1:");
  EXPECT_EQ(fetch(id, 1, 2), "1: C D");
}

TEST_F(SelectListsTest, OtherDirectionsAreRefused) {
  const int id = openAll();
  for (const int direction : {3, -3, 4, 2147483647, -2147483647}) {
    EXPECT_EQ(failureOf([&] { fetch(id, direction, 1); }), "22/003") << direction;
    EXPECT_EQ(failureOf([&] { fetch(id, direction, 0); }), "22/003") << direction;
  }
}

TEST_F(SelectListsTest, AListThatIsNotOpenCannotBeFetched) {
  openAll();
  for (const int id : {0, -1, 2}) {
    EXPECT_EQ(failureOf([&] { fetch(id, 1, 1); }), "24/000") << id;
  }
}

TEST_F(SelectListsTest, RecordsAreReadWhenTheChunkIs) {
  const int id = lists().open(keysOf({"A", "GONE", "B"}));
  session->store().write(file, "B", "changed");
  EXPECT_EQ(fetch(id, 1, 10, true), "1: A=record A GONE=- B=changed");
}

TEST_F(SelectListsTest, ARecordThatIsGoneIsNull) {
  const int id = lists().open(keysOf({"GONE"}));
  const auto list = lists().fetch(id, 1, 1, true);
  list->goToPosition(1);
  EXPECT_EQ(list->getRecord(), nullptr);
  EXPECT_TRUE(list->hasRecordData());
}

TEST_F(SelectListsTest, TheListIsASnapshot) {
  const int id = openAll();
  session->store().remove(file, "B");
  session->store().write(file, "AA", "new");
  EXPECT_EQ(fetch(id, 1, 10), "1: A B C D E");
}

TEST_F(SelectListsTest, AtMostTenThousandKeysComeAtOnce) {
  SelectedKeys selected;
  for (int i = 0; i < 10'005; ++i) selected.keys.add(std::to_string(i));
  const int id = lists().open(std::move(selected));
  EXPECT_EQ(lists().fetch(id, 1, 4'000'000'000u, false)->size(), 10'000u);
  EXPECT_EQ(lists().fetch(id, 1, 4'000'000'000u, false)->size(), 5u);
  EXPECT_EQ(lists().fetch(id, -2, 4'000'000'000u, false)->size(), 10'000u);
}

TEST_F(SelectListsTest, AFileThatIsGoneFailsWhenRecordsAreRead) {
  const int id = openAll();
  session->store().deleteFile("F");
  EXPECT_EQ(fetch(id, 1, 1), "1: A");
  EXPECT_EQ(failureOf([&] { fetch(id, 1, 1, true); }), "IE/008");
  EXPECT_EQ(fetch(id, 1, 1), "1: B") << "a chunk that failed was not sent";
}

TEST_F(SelectListsTest, ClosingTwiceIsFine) {
  openAll();
  lists().close(1);
  lists().close(1);
  lists().close(-1);
  EXPECT_EQ(lists().size(), 0u);
}

TEST_F(SelectListsTest, ChangesAreWrittenByTheirPositionsInTheListAsSent) {
  const int id = openAll();
  fetch(id, 1, 2);
  const auto chunk = lists().fetch(id, 1, 2, true);  // C D
  change(*chunk, 2, "new D");
  lists().commit(*chunk);
  NOXPBlob body;
  ASSERT_TRUE(session->store().read(file, "D", body));
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(body.getBuf()), body.length()), "new D");
  EXPECT_EQ(fetch(id, 0, 2, true), "1: C=record C D=new D");
}

TEST_F(SelectListsTest, AnEmptyRecordIsWrittenEmpty) {
  const int id = openAll();
  const auto chunk = lists().fetch(id, 1, 1, true);
  change(*chunk, 1, "");
  lists().commit(*chunk);
  NOXPBlob body;
  ASSERT_TRUE(session->store().read(file, "A", body));
  EXPECT_EQ(body.length(), 0u);
}

TEST_F(SelectListsTest, APositionOutsideOfTheListChangesNothing) {
  const int id = openAll();
  for (const unsigned long position : {0ul, 3ul, 4294967295ul}) {
    const auto chunk = lists().fetch(id, 2, 2, true);
    change(*chunk, 1, "changed");
    chunk->getAllModified()->insert(position);
    EXPECT_EQ(failureOf([&] { lists().commit(*chunk); }), "22/003") << position;
  }
  EXPECT_EQ(fetch(id, 2, 1, true), "1: A=record A");
}

TEST_F(SelectListsTest, ChangesOfAListThatIsNotOpenAreRefused) {
  const int id = openAll();
  const auto chunk = lists().fetch(id, 1, 1, true);
  change(*chunk, 1, "changed");
  lists().close(id);
  EXPECT_EQ(failureOf([&] { lists().commit(*chunk); }), "24/000");
  chunk->setId(0);
  EXPECT_EQ(failureOf([&] { lists().commit(*chunk); }), "24/000");
}

TEST_F(SelectListsTest, NoListAndAClientsOwnWithoutChangesChangeNothing) {
  SelectListProt none;
  lists().commit(none);
  const NOXPBlob keys(
      "A\xFE"
      "B");
  SelectListProt own(&keys);
  lists().commit(own);
}

TEST_F(SelectListsTest, AnOpenListBecomesActiveByItsId) {
  const int id = openAll();
  SelectListProt given;
  given.setId(id);
  lists().activate(&given);
  const std::optional<SelectedKeys> active = lists().takeActive();
  ASSERT_TRUE(active);
  EXPECT_EQ(active->keys.size(), 5u);
  EXPECT_TRUE(active->file == file);
  EXPECT_FALSE(lists().hasActive()) << "it is consumed";
  EXPECT_EQ(fetch(id, 1, 1), "1: A") << "and stays open";
}

TEST_F(SelectListsTest, KeysThatAreGivenBecomeActive) {
  const int id = openAll();
  const NOXPBlob keys(
      "Q\xFE"
      "P");
  SelectListProt given(&keys);
  lists().activate(&given);
  std::optional<SelectedKeys> active = lists().takeActive();
  ASSERT_TRUE(active);
  EXPECT_THAT(active->keys.read(0, 10), ::testing::ElementsAre("Q", "P"));
  EXPECT_EQ(active->file.file, "");
  given.setId(id);
  lists().activate(&given);
  active = lists().takeActive();
  ASSERT_TRUE(active);
  EXPECT_THAT(active->keys.read(0, 10), ::testing::ElementsAre("Q", "P"));
  EXPECT_EQ(active->file.file, "F");
}

TEST_F(SelectListsTest, NoListLeavesTheActiveOneAlone) {
  lists().setActive(keysOf({"A"}));
  lists().activate(nullptr);
  SelectListProt none;
  lists().activate(&none);
  EXPECT_TRUE(lists().hasActive());
}

TEST_F(SelectListsTest, AnUnknownListDoesNotBecomeActive) {
  lists().setActive(keysOf({"A"}));
  SelectListProt given;
  given.setId(17);
  EXPECT_EQ(failureOf([&] { lists().activate(&given); }), "24/000");
}

TEST_F(SelectListsTest, KeysThatAreNoIdsDoNotBecomeActive) {
  const NOXPBlob keys("A\xFE\xFF");
  SelectListProt given(&keys);
  EXPECT_EQ(failureOf([&] { lists().activate(&given); }), "22/021");
}

TEST_F(SelectListsTest, WhatIsActiveIsOfferedAsAnOpenList) {
  EXPECT_EQ(lists().offerActive(), nullptr);
  lists().setActive(keysOf({"A", "B"}));
  EXPECT_EQ(describe(lists().offerActive().get()), "1: A B");
  EXPECT_TRUE(lists().hasActive()) << "the next command may still use it";
  EXPECT_EQ(fetch(1, -2, 1), "1: B");
}

TEST_F(SelectListsTest, TheNextOfferReplacesTheLast) {
  lists().setActive(keysOf({"A"}));
  lists().offerActive();
  lists().setActive(keysOf({"B"}));
  EXPECT_EQ(describe(lists().offerActive().get()), "2: B");
  EXPECT_EQ(lists().size(), 1u);
}

class SelectListsInSmallFrames : public SelectListsTest {
protected:
  SelectListsInSmallFrames()
      : SelectListsTest([](ConfigurationValues& values) { values.maxFrame = 4096; }) {
    // Two of these fit beside what is around them, three do not.
    for (const char* id : {"A", "B", "C", "D", "E"}) {
      session->store().write(file, id, std::string(1500, *id));
    }
  }
  std::string keysFetched(int id, int direction, std::size_t size) {
    const auto list = lists().fetch(id, direction, size, true);
    std::string keys;
    while (list->next()) keys += list->getKey();
    return keys;
  }
};

TEST_F(SelectListsInSmallFrames, RecordsThatDoNotFitComeWithTheNextChunk) {
  const int id = openAll();
  EXPECT_EQ(keysFetched(id, 1, 5), "AB");
  EXPECT_EQ(keysFetched(id, 1, 5), "CD");
  EXPECT_EQ(keysFetched(id, 1, 5), "E");
  EXPECT_EQ(keysFetched(id, 1, 5), "");
}

TEST_F(SelectListsInSmallFrames, GoingBackLeavesOutTheFirst) {
  const int id = openAll();
  EXPECT_EQ(keysFetched(id, -2, 5), "DE");
  EXPECT_EQ(keysFetched(id, -1, 5), "BC");
  EXPECT_EQ(keysFetched(id, -1, 5), "A");
  EXPECT_EQ(keysFetched(id, -1, 5), "");
}

TEST_F(SelectListsInSmallFrames, NoChunkOutgrowsTheFrame) {
  SelectedKeys selected;
  selected.file = file;
  for (int i = 0; i < 1000; ++i) selected.keys.add(std::string(255, 'k'));
  const int id = lists().open(std::move(selected));
  std::size_t keys = 0;
  for (;;) {
    noxp::remote::SelectListFetchResponseProt reply(lists().fetch(id, 1, 1000, false).release());
    MemoryBufferOutStream out;
    BinaryWriter(&out).writeRoot(reply);
    EXPECT_LE(out.str().size(), 4096u);
    if (reply.getSelectList()->size() == 0) break;
    keys += reply.getSelectList()->size();
  }
  EXPECT_EQ(keys, 1000u);
}

TEST_F(SelectListsInSmallFrames, ARecordThatFitsIntoNoFrameIsAnError) {
  session->store().write(file, "C", std::string(5000, 'C'));
  const int id = openAll();
  EXPECT_EQ(keysFetched(id, 1, 5), "AB");
  EXPECT_EQ(failureOf([&] { keysFetched(id, 1, 5); }), "IE/008");
  EXPECT_EQ(fetch(id, 1, 1), "1: C") << "its key can be had without it";
}

}  // namespace
}  // namespace nox::agent::test
