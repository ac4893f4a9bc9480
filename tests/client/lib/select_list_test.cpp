// Lists that are walked page by page, changed and committed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "nox/client/select_list.h"
#include "tests/client/lib/recorder.h"

namespace nox::client {
namespace {

using noxp::remote::SelectListFetchResponseProt;
using noxp::remote::SelectListProt;
using noxp::remote::ToviResponseProt;
using test::Peer;
using test::PeerConnection;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kListId = 4;

/// A chunk as a server makes it. With records, "-" is one that is not there.
SelectListProt* chunk(const std::vector<std::string>& keys,
                      const std::vector<std::string>& records = {}) {
  std::string joined;
  for (const std::string& key : keys) joined += key + '\xFE';
  const NOXPBlob blob(joined.data(), joined.size());
  auto list = std::make_unique<SelectListProt>(&blob);
  list->setId(kListId);
  if (!records.empty()) {
    list->setHasRecordData(true);
    for (const std::string& record : records) {
      list->next();
      list->setRecord(record == "-" ? nullptr : new NOXPBlob(record.c_str()));
    }
    list->getAllModified()->clear();
  }
  return list.release();
}

class SelectLists : public test::RecordedSession {
protected:
  SelectLists() : file_(connection_.file("F")) { asked(); }

  SelectList select(const std::vector<std::string>& keys) {
    reply<ToviResponseProt>(0, nullptr, chunk(keys));
    SelectList list = file_.select();
    EXPECT_THAT(asked(), ElementsAre("Select F v1"));
    return list;
  }
  void replyPage(const std::vector<std::string>& keys,
                 const std::vector<std::string>& records = {}) {
    reply<SelectListFetchResponseProt>(chunk(keys, records));
  }

  static std::vector<std::string> idsOf(SelectList& list) {
    std::vector<std::string> ids;
    for (const SelectList::Entry& entry : list) ids.push_back(entry.id());
    return ids;
  }

  File file_;
};

TEST_F(SelectLists, BeginWithTheIdsThatCameWithThem) {
  SelectList list = select({"A", "B"});
  replyPage({"C"});
  replyPage({});
  EXPECT_THAT(idsOf(list), ElementsAre("A", "B", "C"));
  EXPECT_THAT(asked(), ElementsAre("ListFetch 4 1 1000 0 changes none",
                                   "ListFetch 4 1 1000 0 changes none"));
}

TEST_F(SelectLists, AreOverWhenTheirFirstPageIsEmpty) {
  SelectList list = select({});
  EXPECT_THAT(idsOf(list), IsEmpty());
  EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(SelectLists, BringRecordsFromTheFirstPageOn) {
  SelectList list = select({"A", "B"}).withRecords();
  replyPage({"A", "B"}, {"alpha", "beta"});
  replyPage({});
  std::vector<std::string> seen;
  for (const SelectList::Entry& entry : list) {
    EXPECT_TRUE(entry.hasRecord());
    seen.push_back(entry.id() + "=" + entry.record().bytes());
  }
  EXPECT_THAT(seen, ElementsAre("A=alpha", "B=beta"));
  EXPECT_THAT(asked(), ElementsAre("ListFetch 4 2 1000 1 changes none",
                                   "ListFetch 4 1 1000 1 changes none"));
}

TEST_F(SelectLists, TellEmptyRecordsFromThoseThatWereDeleted) {
  SelectList list = select({"A", "B"}).withRecords();
  replyPage({"A", "B"}, {"", "-"});
  ASSERT_TRUE(list.nextPage());
  EXPECT_TRUE(list.page()[0].hasRecord());
  EXPECT_TRUE(list.page()[0].record().empty());
  EXPECT_FALSE(list.page()[1].hasRecord());
}

TEST_F(SelectLists, HaveNoRecordsUnlessAskedForThem) {
  SelectList list = select({"A"});
  ASSERT_TRUE(list.nextPage());
  EXPECT_FALSE(list.page()[0].hasRecord());
}

TEST_F(SelectLists, AskForPagesOfTheSizeThatIsWanted) {
  SelectList list = select({"A", "B", "C"}).pageSize(2);
  replyPage({"A", "B"});
  ASSERT_TRUE(list.nextPage());
  EXPECT_THAT(asked(), ElementsAre("ListFetch 4 2 2 0 changes none"))
      << "what came with the list is too long a page";
}

TEST_F(SelectLists, GoInEveryDirection) {
  SelectList list = select({"A"});
  ASSERT_TRUE(list.nextPage());
  for (int i = 0; i < 4; ++i) replyPage({"X"});
  EXPECT_TRUE(list.previousPage());
  EXPECT_TRUE(list.samePage());
  EXPECT_TRUE(list.firstPage());
  EXPECT_TRUE(list.lastPage());
  EXPECT_THAT(
      asked(),
      ElementsAre("ListFetch 4 -1 1000 0 changes none", "ListFetch 4 0 1000 0 changes none",
                  "ListFetch 4 2 1000 0 changes none", "ListFetch 4 -2 1000 0 changes none"));
}

TEST_F(SelectLists, SayWhereTheyEnd) {
  SelectList list = select({"A"});
  ASSERT_TRUE(list.nextPage());
  replyPage({});
  EXPECT_FALSE(list.nextPage());
  EXPECT_THAT(list.page(), IsEmpty());
}

TEST_F(SelectLists, StartAnewWithEachWalk) {
  SelectList list = select({"A"});
  replyPage({});
  EXPECT_THAT(idsOf(list), ElementsAre("A"));
  replyPage({"A"});
  replyPage({});
  EXPECT_THAT(idsOf(list), ElementsAre("A"));
  EXPECT_THAT(asked(),
              ElementsAre("ListFetch 4 1 1000 0 changes none", "ListFetch 4 2 1000 0 changes none",
                          "ListFetch 4 1 1000 0 changes none"));
}

TEST_F(SelectLists, CommitWhatWasChangedWithTheNextPage) {
  SelectList list = select({"A", "B", "C"}).withRecords();
  replyPage({"A", "B", "C"}, {"a", "b", "c"});
  replyPage({});
  for (SelectList::Entry& entry : list) {
    if (entry.id() != "B") entry.replace(Record{entry.record()[1].str() + "!"});
  }
  EXPECT_THAT(asked(), ElementsAre("ListFetch 4 2 1000 1 changes none",
                                   "ListFetch 4 1 1000 1 changes 4 A=a! C=c!"));
}

TEST_F(SelectLists, CommitWhenTheyAreTold) {
  SelectList list = select({"A", "B"}).withRecords();
  replyPage({"A", "B"}, {"a", "b"});
  ASSERT_TRUE(list.nextPage());
  list.page()[1].replace(Record{"B!"});
  EXPECT_TRUE(list.page()[1].isModified());
  list.commit();
  EXPECT_FALSE(list.page()[1].isModified());
  list.commit();
  EXPECT_THAT(asked(), ElementsAre("ListFetch 4 2 1000 1 changes none", "ListCommit 4 B=B!"));
}

TEST_F(SelectLists, KeepTheirChangesWhereTheCommitIsRefused) {
  SelectList list = select({"A"}).withRecords();
  replyPage({"A"}, {"a"});
  ASSERT_TRUE(list.nextPage());
  list.page()[0].replace(Record{"A!"});
  reply<ErrorResponseProt>(SQLExtError("IE", "024", "somebody else writes"));
  EXPECT_THROW(list.nextPage(), Error);
  EXPECT_TRUE(list.page()[0].isModified());
  list.commit();
  EXPECT_EQ(asked().back(), "ListCommit 4 A=A!");
}

TEST_F(SelectLists, MayWriteAnEmptyRecord) {
  SelectList list = select({"A"}).withRecords();
  replyPage({"A"}, {"a"});
  ASSERT_TRUE(list.nextPage());
  list.page()[0].replace(Record());
  list.commit();
  EXPECT_EQ(asked().back(), "ListCommit 4 A=");
}

TEST_F(SelectLists, CloseOnTheServerWhenTheyEnd) {
  { SelectList list = select({"A"}); }
  EXPECT_THAT(asked(), ElementsAre("ListClose 4"));
}

TEST_F(SelectLists, CloseWhenTheWalkIsBrokenOff) {
  reply<ToviResponseProt>(0, nullptr, chunk({"A", "B"}));
  for (const SelectList::Entry& entry : file_.select()) {
    EXPECT_EQ(entry.id(), "A");
    break;
  }
  EXPECT_THAT(asked(), ElementsAre("Select F v1", "ListClose 4"));
}

TEST_F(SelectLists, CloseOnce) {
  SelectList list = select({"A"});
  SelectList moved = std::move(list);
  moved.close();
  moved.close();
  EXPECT_THAT(asked(), ElementsAre("ListClose 4"));
  EXPECT_THROW(moved.nextPage(), Error);
}

TEST_F(SelectLists, GiveAllIdsAndTheirNumber) {
  SelectList list = select({"A", "B"}).withRecords();
  replyPage({"C"});
  replyPage({});
  EXPECT_THAT(list.ids(), ElementsAre("A", "B", "C"));
  replyPage({"A"});
  ASSERT_TRUE(list.firstPage());
  replyPage({"B", "C"});
  replyPage({});
  EXPECT_EQ(list.count(), 2u) << "what is left";
}

TEST_F(SelectLists, ThatACommandLeavesAreOneLikeOthers) {
  NOXPBlob none("");
  reply<noxp::remote::ExecuteResponseProt>(&none, &none, chunk({"A"}));
  SelectList list = connection_.select("SSELECT F");
  replyPage({});
  EXPECT_THAT(idsOf(list), ElementsAre("A"));
  EXPECT_EQ(list.id(), kListId);
}

TEST_F(SelectLists, ThatSelectNothingHaveNoEntries) {
  NOXPBlob none("");
  reply<noxp::remote::ExecuteResponseProt>(&none, &none, nullptr);
  {
    SelectList list = connection_.select("SSELECT F WITH X");
    EXPECT_THAT(idsOf(list), IsEmpty());
    EXPECT_FALSE(list.nextPage());
    list.commit();
  }
  EXPECT_THAT(asked(), ElementsAre("Run SSELECT F WITH X list none v0"));
}

TEST_F(SelectLists, AreClosedWhereAnotherOneTakesTheirPlace) {
  SelectList list = select({"A"});
  SelectList other = select({"B"});
  list = std::move(other);
  EXPECT_THAT(asked(), ElementsAre("ListClose 4"));
  ASSERT_TRUE(list.nextPage());
  EXPECT_EQ(list.page()[0].id(), "B");
}

TEST_F(SelectLists, HavePagesOfUpTo10000Ids) {
  for (const std::size_t ids : {std::size_t{10'001}, std::size_t{1} << 32}) {
    SelectList list = select({"A"}).withRecords().pageSize(ids);
    replyPage({"A"}, {"alpha"});
    EXPECT_TRUE(list.nextPage());
    EXPECT_THAT(asked(), ElementsAre("ListFetch 4 2 10000 1 changes none"));
    list.close();
    asked();
  }
}

TEST_F(SelectLists, GoAlongWithACommand) {
  SelectList list = select({"A"});
  NOXPBlob none("");
  reply<noxp::remote::ExecuteResponseProt>(&none, &none, nullptr);
  connection_.execute("LIST F", list);
  reply<noxp::remote::ExecuteResponseProt>(&none, &none, nullptr);
  connection_.execute("LIST F", {"x", "y"});
  EXPECT_THAT(asked(), ElementsAre("Run LIST F list 4: v1", "Run LIST F list 0:x|y v1"));
}

TEST_F(SelectLists, GoAlongWithNoCommandOfAnotherConnection) {
  // This server's list 4 is another one.
  Peer peer(test::serving([](PeerConnection& client, Serializable&) {
    NOXPBlob none("");
    client.send(noxp::remote::ExecuteResponseProt(&none, &none, nullptr));
  }));
  Connection other = Connection::open(peer.uri());
  SelectList list = select({"A"});
  const auto refused = [&](Connection& connection) -> std::string {
    try {
      connection.execute("LIST F", list);
    } catch (const Error& error) {
      EXPECT_EQ(error.outcome(), Outcome::NotSent);
      return error.what();
    }
    return "done";
  };
  EXPECT_EQ(refused(other), "22023: the list belongs to another connection");
  list.close();
  EXPECT_EQ(refused(connection_), "08003: the list was closed");
  EXPECT_THAT(asked(), ElementsAre("ListClose 4"));
}

TEST_F(SelectLists, GiveTheirRecordsAway) {
  SelectList list = select({"A"}).withRecords();
  replyPage({"A"}, {"alpha"});
  ASSERT_TRUE(list.nextPage());
  EXPECT_EQ(list.page()[0].takeRecord(), Record{"alpha"});
  EXPECT_TRUE(list.page()[0].record().empty());
}

TEST_F(SelectLists, EndWithTheirConnection) {
  SelectList list = select({"A"});
  ASSERT_TRUE(list.nextPage());
  connection_.close();
  EXPECT_THROW(list.nextPage(), Error);
}

}  // namespace
}  // namespace nox::client
