// Records and locks, from one session and from two.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/client/wire/noxd_session.h"

namespace nox::client {
namespace {

using test::errorOf;

class NoxdRecords : public test::NoxdSession {
protected:
  File annsFile_{ann_.file(fileName())};
  File bobsFile_{bob_.file(fileName())};
};

TEST_F(NoxdRecords, ComeBackAsTheyWereWritten) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  annsFile_.write("1", Record(all));
  annsFile_.write("Ünï-漢", Record());
  EXPECT_EQ(bobsFile_.read("1"), Record(all));
  EXPECT_EQ(bobsFile_.read("Ünï-漢"), Record());
  EXPECT_EQ(bobsFile_.read("2"), std::nullopt);
}

TEST_F(NoxdRecords, AreDeletedOnce) {
  annsFile_.write("1", Record{"x"});
  EXPECT_TRUE(bobsFile_.exists("1"));
  EXPECT_TRUE(annsFile_.remove("1"));
  EXPECT_FALSE(annsFile_.remove("1"));
  EXPECT_FALSE(bobsFile_.exists("1"));
}

TEST_F(NoxdRecords, AreNewOnce) {
  EXPECT_TRUE(annsFile_.writeNew("1", Record{"first"}));
  EXPECT_FALSE(annsFile_.writeNew("1", Record{"second"}));
  EXPECT_EQ(annsFile_.read("1"), Record{"first"});
}

TEST_F(NoxdRecords, AreLockedAgainstOthers) {
  annsFile_.write("1", Record{"x"});
  ASSERT_TRUE(annsFile_.read("1", Lock::Update));
  EXPECT_EQ(bobsFile_.read("1", Lock::Update, Wait::No).status, Status::Locked);
  EXPECT_EQ(bobsFile_.read("1", Lock::Shared).status, Status::Locked);
  EXPECT_EQ(bobsFile_.tryWrite("1", Record{"y"}), Status::Locked);
  EXPECT_EQ(bobsFile_.tryRemove("1"), Status::Locked);
  EXPECT_EQ(errorOf([&] { bobsFile_.write("1", Record{"y"}); }), "IL002 Rejected");
  EXPECT_EQ(bobsFile_.read("1"), Record{"x"}) << "a plain read waits for nobody";
  annsFile_.write("1", Record{"z"});
  EXPECT_EQ(bobsFile_.tryWrite("1", Record{"y"}), Status::Done) << "the write gave the lock back";
}

TEST_F(NoxdRecords, KeepTheirLockWhereItIsWanted) {
  annsFile_.writeAndKeepLock("1", Record{"x"});
  EXPECT_EQ(bobsFile_.read("1", Lock::Update).status, Status::Locked);
  annsFile_.release("1");
  EXPECT_TRUE(bobsFile_.read("1", Lock::Update));
  bobsFile_.releaseAll();
  EXPECT_TRUE(annsFile_.read("1", Lock::Update));
  ann_.releaseLocks();
  EXPECT_TRUE(bobsFile_.read("1", Lock::Update));
}

TEST_F(NoxdRecords, AreLockedBeforeTheyAreThere) {
  EXPECT_EQ(annsFile_.read("new", Lock::Update).status, Status::NotDone);
  EXPECT_EQ(bobsFile_.read("new", Lock::Update).status, Status::Locked);
}

TEST_F(NoxdRecords, AreFreeOnceTheirSessionEnds) {
  ASSERT_EQ(annsFile_.read("1", Lock::Update).status, Status::NotDone);
  ann_.close();
  bob_.setProperty("LOCK_WAIT", "30");
  EXPECT_EQ(bobsFile_.read("1", Lock::Update).status, Status::NotDone);
}

TEST_F(NoxdRecords, HaveIdsThatTheServerJudges) {
  EXPECT_EQ(errorOf([&] { annsFile_.write("", Record()); }), "22021 Rejected");
  EXPECT_EQ(errorOf([&] { annsFile_.write("\xFF", Record()); }), "22021 Rejected");
  EXPECT_EQ(errorOf([&] { annsFile_.write(std::string(256, 'x'), Record()); }), "22001 Rejected");
  EXPECT_TRUE(ann_.isUsable());
}

TEST_F(NoxdRecords, AreNamedInTextThatIsTheServersToJudge) {
  EXPECT_EQ(errorOf([&] { ann_.file("\xFF"); }), "IE005 Rejected");
  EXPECT_EQ(errorOf([&] { annsFile_.read("\xFF"); }), "22021 Rejected");
  EXPECT_EQ(errorOf([&] { ann_.execute("COUNT \xFF"); }), "IE011 Rejected");
  Rows rows = ann_.query("SELECT '\xFF'");
  ASSERT_TRUE(rows.next());
  EXPECT_EQ(rows.row()[0].bytes(), "\xFF");
  EXPECT_EQ(errorOf([&] { annsFile_.read(std::string(1, '\0')); }), "22023 NotSent");
}

TEST_F(NoxdRecords, LieInFilesThatAreThere) {
  EXPECT_EQ(errorOf([&] { ann_.file("NONE"); }), "IE005 Rejected");
  File dictionary = ann_.file("DICT " + fileName());
  dictionary.write("NAME", Record{"D", "1", "", "Name", "10L", "S"});
  EXPECT_TRUE(dictionary.read("NAME"));
  annsFile_.write("1", Record{"x"});
  annsFile_.clear();
  EXPECT_FALSE(annsFile_.exists("1"));
  EXPECT_TRUE(dictionary.exists("NAME"));
}

TEST_F(NoxdRecords, TravelInBatches) {
  constexpr int kRecords = 5000;
  Transaction work = ann_.begin();  // each write would wait for the disk
  Batch writes(ann_);
  for (int i = 0; i < kRecords; ++i) {
    writes.write(fileName(), std::to_string(i), Record{"record " + std::to_string(i)});
  }
  for (const Batch::Result& result : writes.run()) ASSERT_TRUE(result.ok());
  work.commit();
  Batch reads(bob_);
  for (int i = 0; i < kRecords; ++i) reads.read(fileName(), std::to_string(i));
  reads.read(fileName(), "none");
  reads.read("NONE", "1");
  const std::vector<Batch::Result> results = reads.run();
  for (int i = 0; i < kRecords; ++i) {
    ASSERT_EQ(results[static_cast<std::size_t>(i)].record, Record{"record " + std::to_string(i)});
  }
  EXPECT_EQ(results[kRecords].status, Status::NotDone);
  EXPECT_FALSE(results[kRecords].error);
  ASSERT_TRUE(results[kRecords + 1].error);
  EXPECT_EQ(results[kRecords + 1].error->sqlState(), "IE008");
}

}  // namespace
}  // namespace nox::client
