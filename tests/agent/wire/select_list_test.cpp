// Requests about select lists as noxd answers them: 230 to 232.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/agent/wire/shared_noxd.h"

namespace nox::agent::test {
namespace {

using noxp::remote::SelectListProt;

/// Each test has a session of its own, whose first list is 1: the keys A to E.
class WireSelectLists : public SharedNoxd {
protected:
  WireSelectLists() {
    for (const char* id : {"A", "B", "C", "D", "E"}) {
      EXPECT_EQ(ann().write(file(), id, std::string("record ") + id), "0");
    }
    EXPECT_EQ(client_->set("FETCH_SIZE", "1"), "OK");
    EXPECT_EQ(client_->select(file()), "1: A");
  }
  Client& client() { return *client_; }
  std::string record(const char* id) { return bob().read(file(), id); }

private:
  const std::unique_ptr<Client> client_ = newClient();
};

TEST_F(WireSelectLists, NextGoesOnBehindWhatCameLast) {
  EXPECT_EQ(client().fetch(1, 1, 2), "1: B C");
  EXPECT_EQ(client().fetch(1, 1, 2), "1: D E");
  EXPECT_EQ(client().fetch(1, 1, 2), "1:");
}

TEST_F(WireSelectLists, PreviousGoesBackInListOrder) {
  client().fetch(1, 1, 3);
  EXPECT_EQ(client().fetch(1, -1, 2), "1: A");
  EXPECT_EQ(client().fetch(1, -1, 2), "1:");
}

TEST_F(WireSelectLists, AgainGivesTheSameChunk) {
  client().fetch(1, 1, 2);
  EXPECT_EQ(client().fetch(1, 0, 2), "1: B C");
}

TEST_F(WireSelectLists, FromTheStartAndTheLast) {
  EXPECT_EQ(client().fetch(1, -2, 2), "1: D E");
  EXPECT_EQ(client().fetch(1, 2, 2), "1: A B");
}

TEST_F(WireSelectLists, FewerThanAskedForIsNotTheEnd) {
  EXPECT_EQ(client().fetch(1, 2, 4'000'000'000u), "1: A B C D E");
  EXPECT_EQ(client().fetch(1, 1, 4'000'000'000u), "1:") << "this is";
}

TEST_F(WireSelectLists, RecordsAreThoseOfTheMoment) {
  bob().write(file(), "B", "changed");
  bob().remove(file(), "C");
  EXPECT_EQ(client().fetch(1, 1, 3, true), "1: B=changed C=- D=record D");
}

TEST_F(WireSelectLists, RecordsAreReadWithoutLocks) {
  bob().read(file(), "B", kUpdate);
  EXPECT_EQ(client().fetch(1, 1, 1, true), "1: B=record B");
}

TEST_F(WireSelectLists, ChangedRecordsAreCommitted) {
  const auto chunk = client().fetchChunk(1, 1, 3);
  SelectListProt& list = *chunk->getSelectList();
  change(list, 1, "new B");
  change(list, 3, "");
  EXPECT_EQ(client().commitList(list), "OK");
  EXPECT_EQ(record("B"), "0 'new B'");
  EXPECT_EQ(record("C"), "0 'record C'");
  EXPECT_EQ(record("D"), "0") << "written empty, not deleted";
}

TEST_F(WireSelectLists, AFetchCommitsFirst) {
  const auto chunk = client().fetchChunk(1, 1, 1);
  change(*chunk->getSelectList(), 1, "new B");
  EXPECT_EQ(client().fetch(1, 0, 1, true, chunk->getSelectList()), "1: B=new B");
}

TEST_F(WireSelectLists, AFetchOfNothingOnlyCommits) {
  const auto chunk = client().fetchChunk(1, 1, 1);
  change(*chunk->getSelectList(), 1, "new B");
  EXPECT_EQ(client().fetch(1, 1, 0, false, chunk->getSelectList()), "1:");
  EXPECT_EQ(record("B"), "0 'new B'");
  EXPECT_EQ(client().fetch(1, 1, 1), "1: C") << "nothing was passed over";
}

TEST_F(WireSelectLists, AFetchThatIsRefusedCommitsNothing) {
  const auto chunk = client().fetchChunk(1, 1, 1);
  change(*chunk->getSelectList(), 1, "new B");
  EXPECT_EQ(client().fetch(7, 1, 1, false, chunk->getSelectList()), "24/000");
  EXPECT_EQ(client().fetch(1, 3, 1, false, chunk->getSelectList()), "22/003");
  EXPECT_EQ(record("B"), "0 'record B'");
}

TEST_F(WireSelectLists, CommittingReleasesLikeWritingInMode0) {
  const auto chunk = client().fetchChunk(1, 1, 1);
  client().read(file(), "B", kUpdate);
  change(*chunk->getSelectList(), 1, "new B");
  EXPECT_EQ(client().commitList(*chunk->getSelectList()), "OK");
  EXPECT_EQ(bob().write(file(), "B", "x"), "0");
}

TEST_F(WireSelectLists, OneRecordThatAnotherLocksKeepsAllFromBeingWritten) {
  const auto chunk = client().fetchChunk(1, 2, 3);
  SelectListProt& list = *chunk->getSelectList();
  for (const unsigned long position : {1ul, 2ul, 3ul}) change(list, position, "new");
  bob().read(file(), "B", kUpdate);
  EXPECT_EQ(client().commitList(list), "IE/024");
  EXPECT_EQ(client().fetch(1, 0, 3, false, &list), "IE/024");
  for (const char* id : {"A", "B", "C"})
    EXPECT_EQ(record(id), "0 'record " + std::string(id) + "'");
  bob().release(2);
  EXPECT_EQ(client().commitList(list), "OK");
  EXPECT_EQ(record("C"), "0 'new'");
}

TEST_F(WireSelectLists, ChangesBelongToTheOpenTransaction) {
  const auto chunk = client().fetchChunk(1, 1, 1);
  change(*chunk->getSelectList(), 1, "new B");
  client().begin();
  EXPECT_EQ(client().commitList(*chunk->getSelectList()), "OK");
  EXPECT_EQ(record("B"), "0 'record B'");
  client().rollback();
  EXPECT_EQ(record("B"), "0 'record B'");
}

TEST_F(WireSelectLists, APositionOutsideOfTheListIsRefused) {
  for (const unsigned long position : {0ul, 2ul, 100ul, 4294967295ul}) {
    const auto chunk = client().fetchChunk(1, 2, 1);
    change(*chunk->getSelectList(), 1, "new A");
    chunk->getSelectList()->getAllModified()->insert(position);
    EXPECT_EQ(client().commitList(*chunk->getSelectList()), "22/003") << position;
  }
  EXPECT_EQ(record("A"), "0 'record A'");
}

TEST_F(WireSelectLists, KeysThatAreNoIdsAreRefused) {
  const NOXPBlob keys("A\xFE");
  SelectListProt list(&keys);
  list.setId(1);
  change(list, 1, "x");
  EXPECT_EQ(client().commitList(list), "OK") << "what was not there is new";
  const NOXPBlob tooLong(std::string(256, 'k').c_str());
  SelectListProt wrong(&tooLong);
  wrong.setId(1);
  change(wrong, 1, "x");
  EXPECT_EQ(client().commitList(wrong), "22/001");
}

TEST_F(WireSelectLists, AFileThatIsGoneTakesNoChanges) {
  const auto chunk = client().fetchChunk(1, 1, 1);
  change(*chunk->getSelectList(), 1, "x");
  ASSERT_NE(ann().run(("DELETE-FILE " + std::string(file()) + " (Y").c_str()), "IE/011");
  EXPECT_EQ(client().commitList(*chunk->getSelectList()), "IE/009");
  EXPECT_EQ(client().fetch(1, 1, 1, true), "IE/008");
  EXPECT_EQ(client().fetch(1, 1, 1), "1: C") << "its keys are still there";
}

TEST_F(WireSelectLists, AListWithoutChangesAndNoListChangeNothing) {
  const auto chunk = client().fetchChunk(1, 1, 1);
  EXPECT_EQ(client().commitList(*chunk->getSelectList()), "OK");
  SelectListProt none;
  EXPECT_EQ(client().commitList(none), "OK");
}

TEST_F(WireSelectLists, AnUnknownListIsRefused) {
  EXPECT_EQ(client().fetch(2, 1, 1), "24/000");
  EXPECT_EQ(client().fetch(0, 1, 1), "24/000");
  EXPECT_EQ(client().fetch(-1, 1, 1), "24/000");
  const auto chunk = client().fetchChunk(1, 1, 1);
  chunk->getSelectList()->setId(7);
  EXPECT_EQ(client().commitList(*chunk->getSelectList()), "24/000");
  EXPECT_EQ(bob().fetch(1, 1, 1), "24/000") << "lists are their session's";
}

TEST_F(WireSelectLists, OtherDirectionsAreRefused) {
  for (const int direction : {3, -3, 1000}) EXPECT_EQ(client().fetch(1, direction, 1), "22/003");
}

TEST_F(WireSelectLists, ClosingFreesAList) {
  EXPECT_EQ(client().closeList(1), "OK");
  EXPECT_EQ(client().fetch(1, 1, 1), "24/000");
  EXPECT_EQ(client().closeList(1), "OK") << "twice is fine";
  EXPECT_EQ(client().closeList(-1), "OK");
}

TEST_F(WireSelectLists, ACommandLeavesAList) {
  noxp::remote::RemoteExecuteRequestProt request;
  const std::string line = "SELECT " + std::string(file());
  request.getCommand()->assign(line.data(), line.size());
  const auto reply = client().askFor<noxp::remote::ExecuteResponseProt>(request);
  ASSERT_TRUE(reply);
  EXPECT_EQ(describe(dynamic_cast<SelectListProt*>(reply->getSelectList())), "2: A");
  EXPECT_EQ(client().fetch(2, 1, 10), "2: B C D E");
}

TEST_F(WireSelectLists, MoreThanAHundredThousandKeysAreFetchedLikeFew) {
  // Through a subroutine: a request per record would take too long.
  ann().run("CREATE-FILE NOX.SUBS");
  ASSERT_EQ(ann().write("NOX.SUBS", "FILL",
                        "local f = nox.open(args[1])\n"
                        "for i = 100001, 200100 do f:write(tostring(i), '') end\n"),
            "0");
  ann().begin();
  ASSERT_EQ(ann().run(("RUN FILL " + std::string(file())).c_str()), "");
  ann().commit();
  EXPECT_EQ(client().select(file()), "2: 100001");
  EXPECT_EQ(client().fetch(2, -2, 6), "2: 200100 A B C D E");
  EXPECT_EQ(client().fetch(2, -1, 2), "2: 200098 200099");
  std::size_t keys = 0;
  int direction = 2;
  for (;;) {
    noxp::remote::SelectListFetchRequestProt request(2, direction, 10'000, false, nullptr);
    const auto chunk = client().askFor<noxp::remote::SelectListFetchResponseProt>(request);
    ASSERT_TRUE(chunk);
    if (chunk->getSelectList()->size() == 0) break;
    keys += chunk->getSelectList()->size();
    direction = 1;
  }
  EXPECT_EQ(keys, 100'105u);
}

}  // namespace
}  // namespace nox::agent::test
