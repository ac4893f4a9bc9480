// Lists of a real file, page by page.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "tests/client/wire/noxd_session.h"

namespace nox::client {
namespace {

using test::errorOf;
using testing::ElementsAre;
using testing::IsEmpty;

class NoxdLists : public test::NoxdSession {
protected:
  /// Records 0000 to the last, with their number in attribute 1.
  void fill(int records) {
    Transaction work = ann_.begin();  // each write would wait for the disk
    Batch batch(ann_);
    for (int i = 0; i < records; ++i) batch.write(fileName(), idOf(i), Record{std::to_string(i)});
    for (const Batch::Result& result : batch.run()) ASSERT_TRUE(result.ok());
    work.commit();
    ann_.file("DICT " + fileName()).write("N", Record{"D", "1", "", "N", "8R", "S"});
  }
  static std::string idOf(int i) {
    std::string digits = std::to_string(i);
    return std::string(4 - digits.size(), '0') + digits;
  }
  static std::vector<std::string> idsOf(SelectList& list) {
    std::vector<std::string> ids;
    for (const SelectList::Entry& entry : list) ids.push_back(entry.id());
    return ids;
  }

  File file_{ann_.file(fileName())};
};

TEST_F(NoxdLists, HoldEveryRecord) {
  fill(3500);
  SelectList list = file_.select();
  int next = 0;
  for (const SelectList::Entry& entry : list) EXPECT_EQ(entry.id(), idOf(next++));
  EXPECT_EQ(next, 3500);
  EXPECT_THAT(idsOf(list), testing::SizeIs(3500)) << "once more";
}

TEST_F(NoxdLists, BringRecords) {
  fill(25);
  SelectList list = file_.select().withRecords().pageSize(10);
  int next = 0;
  for (const SelectList::Entry& entry : list) {
    EXPECT_EQ(entry.record(), Record{std::to_string(next++)});
  }
  EXPECT_EQ(next, 25);
}

TEST_F(NoxdLists, GoForthAndBack) {
  fill(25);
  SelectList list = file_.select().pageSize(10);
  const auto first = [&] { return list.page().front().id(); };
  ASSERT_TRUE(list.nextPage());
  EXPECT_EQ(first(), "0000");
  ASSERT_TRUE(list.nextPage());
  EXPECT_EQ(first(), "0010");
  ASSERT_TRUE(list.samePage());
  EXPECT_EQ(first(), "0010");
  ASSERT_TRUE(list.previousPage());
  EXPECT_EQ(first(), "0000");
  EXPECT_FALSE(list.previousPage());
  ASSERT_TRUE(list.lastPage());
  EXPECT_EQ(list.page().back().id(), "0024");
  EXPECT_FALSE(list.nextPage());
  ASSERT_TRUE(list.firstPage());
  EXPECT_EQ(first(), "0000");
}

TEST_F(NoxdLists, CommitWhatIsChangedOnTheWay) {
  fill(25);
  for (SelectList::Entry& entry : file_.select().withRecords().pageSize(10)) {
    if (entry.record()[1].toInt64() % 2 == 1) entry.replace(Record{"odd"});
  }
  int odd = 0;
  for (const SelectList::Entry& entry : file_.select().withRecords()) {
    odd += entry.record() == Record{"odd"} ? 1 : 0;
  }
  EXPECT_EQ(odd, 12);
}

TEST_F(NoxdLists, CommitOnRequest) {
  fill(5);
  SelectList list = file_.select().withRecords();
  ASSERT_TRUE(list.nextPage());
  list.page()[2].replace(Record{"changed"});
  list.commit();
  EXPECT_EQ(bob_.file(fileName()).read("0002"), Record{"changed"});
  EXPECT_EQ(bob_.file(fileName()).read("0003"), Record{"3"});
}

TEST_F(NoxdLists, CommitAllOrNothing) {
  fill(5);
  SelectList list = file_.select().withRecords();
  ASSERT_TRUE(list.nextPage());
  ASSERT_TRUE(bob_.file(fileName()).read("0003", Lock::Update));
  for (SelectList::Entry& entry : list.page()) entry.replace(Record{"changed"});
  EXPECT_NE(errorOf([&] { list.commit(); }), "no error");
  EXPECT_EQ(file_.read("0000"), Record{"0"});
  bob_.releaseLocks();
  list.commit();
  EXPECT_EQ(file_.read("0000"), Record{"changed"});
  EXPECT_EQ(file_.read("0003"), Record{"changed"});
}

TEST_F(NoxdLists, TellEmptyRecordsFromDeletedOnes) {
  fill(3);
  SelectList list = file_.select();
  file_.write("0000", Record());
  file_.remove("0001");
  list.withRecords();
  ASSERT_TRUE(list.nextPage());
  EXPECT_TRUE(list.page()[0].hasRecord());
  EXPECT_TRUE(list.page()[0].record().empty());
  EXPECT_FALSE(list.page()[1].hasRecord());
  EXPECT_EQ(list.page()[2].record(), Record{"2"});
}

TEST_F(NoxdLists, AreMadeByCommands) {
  fill(20);
  SelectList list = ann_.select("SSELECT " + fileName() + " WITH N >= \"18\" BY-DSND N");
  EXPECT_THAT(idsOf(list), ElementsAre("0019", "0018"));
  SelectList none = ann_.select("SSELECT " + fileName() + " WITH N = \"99\"");
  EXPECT_THAT(idsOf(none), IsEmpty());
}

TEST_F(NoxdLists, GoAlongWithCommands) {
  fill(20);
  SelectList list = ann_.select("SELECT " + fileName() + " WITH N < \"5\"");
  EXPECT_EQ(ann_.execute("COUNT " + fileName(), list).items(), 5);
  EXPECT_EQ(ann_.execute("COUNT " + fileName(), {"0001", "0002", "none"}).items(), 2);
  EXPECT_EQ(ann_.execute("COUNT " + fileName()).items(), 20);
}

TEST_F(NoxdLists, CloseOnTheServer) {
  fill(1);
  for (int i = 0; i < 200; ++i) {
    SelectList list = file_.select();  // 64 may be open at a time
    EXPECT_TRUE(list.nextPage());
  }
}

TEST_F(NoxdLists, OfAnEmptyFileHaveNoEntries) {
  SelectList list = file_.select();
  EXPECT_THAT(idsOf(list), IsEmpty());
  EXPECT_EQ(list.count(), 0u);
}

}  // namespace
}  // namespace nox::client
