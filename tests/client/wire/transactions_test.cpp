// Transactions and branches, through a crash too.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/agent/support/noxd_process.h"
#include "tests/client/wire/noxd_session.h"

namespace nox::client {
namespace {

using agent::test::NoxdProcess;
using test::errorOf;
using testing::IsEmpty;

class NoxdTransactions : public test::NoxdSession {
protected:
  File annsFile_{ann_.file(fileName())};
  File bobsFile_{bob_.file(fileName())};
  const Xid xid_ = Xid::of(1, fileName(), "b");
};

TEST_F(NoxdTransactions, AreSeenOnceTheyAreCommitted) {
  Transaction work = ann_.begin();
  annsFile_.write("1", Record{"x"});
  EXPECT_FALSE(bobsFile_.exists("1"));
  work.commit();
  EXPECT_TRUE(bobsFile_.exists("1"));
}

TEST_F(NoxdTransactions, LeaveNothingWhereTheyAreRolledBack) {
  {
    Transaction work = ann_.begin();
    annsFile_.write("1", Record{"x"});
    ann_.update("CREATE TABLE X" + fileName() + " (A)");
  }
  EXPECT_FALSE(annsFile_.exists("1"));
  EXPECT_EQ(errorOf([&] { ann_.query("SELECT * FROM X" + fileName()); }), "42S02 Rejected");
}

TEST_F(NoxdTransactions, DoNotNest) {
  Transaction work = ann_.begin(Isolation::Serializable);
  EXPECT_EQ(errorOf([&] { ann_.begin(); }), "25000 Rejected");
  work.rollback();
}

TEST_F(NoxdTransactions, KeepTheLocksOfTheirWritesUntilTheirEnd) {
  Transaction work = ann_.begin();
  annsFile_.write("1", Record{"x"});
  EXPECT_EQ(bobsFile_.read("1", Lock::Update).status, Status::Locked);
  work.commit();
  EXPECT_EQ(bobsFile_.read("1", Lock::Update).status, Status::Done);
}

TEST_F(NoxdTransactions, BranchesAreCommittedFromAnotherSession) {
  {
    XaBranch branch = ann_.startBranch(xid_);
    annsFile_.write("1", Record{"x"});
    branch.end();
    EXPECT_FALSE(annsFile_.exists("1")) << "taken out of the store";
    branch.prepare();
  }
  EXPECT_EQ(bobsFile_.read("1", Lock::Update).status, Status::Locked);
  const std::vector<XaBranchInfo> branches = bob_.recover();
  ASSERT_EQ(branches.size(), 1u);
  EXPECT_EQ(branches[0].xid, xid_);
  EXPECT_EQ(branches[0].state, "prepared");
  bob_.preparedBranch(xid_).commit();
  EXPECT_EQ(bobsFile_.read("1"), Record{"x"});
  EXPECT_THAT(bob_.recover(), IsEmpty());
}

TEST_F(NoxdTransactions, BranchesThatNobodyPreparesAreGone) {
  {
    XaBranch branch = ann_.startBranch(xid_);
    annsFile_.write("1", Record{"x"});
  }
  EXPECT_THAT(ann_.recover(), IsEmpty());
  EXPECT_TRUE(bobsFile_.writeNew("1", Record{"y"}));
}

TEST_F(NoxdTransactions, BranchesSayWhatIsWrong) {
  XaBranch branch = ann_.startBranch(xid_);
  try {
    bob_.startBranch(xid_);
    ADD_FAILURE() << "started twice";
  } catch (const Error& error) {
    EXPECT_EQ(error.sqlState(), "IE012");
    EXPECT_EQ(error.status(), -8) << "known already";
  }
  try {
    bob_.preparedBranch({9, "no such"}).commit();
    ADD_FAILURE() << "committed";
  } catch (const Error& error) {
    EXPECT_EQ(error.status(), -4) << "not known";
  }
  branch.rollback();
}

class NoxdRestart : public testing::Test {
protected:
  const test::Environment empty_;
  NoxdProcess noxd_;
};

TEST_F(NoxdRestart, KeepsPreparedBranchesThroughACrash) {
  noxd_.set("session.lock_wait", "0").start();
  const Xid xid = Xid::of(1, "crash", "b");
  Connection before = Connection::open(test::optionsFor(noxd_));
  before.execute("CREATE-FILE F");
  {
    File file = before.file("F");
    XaBranch branch = before.startBranch(xid);
    file.write("1", Record{"x"});
    branch.end();
    branch.prepare();
  }
  noxd_.kill();
  EXPECT_EQ(errorOf([&] { before.dateTime(); }).substr(0, 2), "08");
  noxd_.start();
  Connection after = Connection::open(test::optionsFor(noxd_));
  ASSERT_EQ(after.recover().size(), 1u);
  EXPECT_EQ(after.file("F").read("1", Lock::Update).status, Status::Locked);
  after.preparedBranch(xid).commit();
  EXPECT_EQ(after.file("F").read("1"), Record{"x"});
}

TEST_F(NoxdRestart, IsSurvivedByAPool) {
  noxd_.start();
  const std::string port = std::to_string(noxd_.plainPort());
  noxd_.set("server.listen", "\"127.0.0.1:" + port + "\"");
  Pool pool(test::optionsFor(noxd_));
  EXPECT_EQ(pool.acquire()->common("@USER"), Record{"ann"});
  EXPECT_EQ(noxd_.stop(), 0);
  noxd_.start();
  EXPECT_EQ(pool.acquire()->common("@USER"), Record{"ann"});
  EXPECT_EQ(pool.statistics().discarded, 1u);
}

}  // namespace
}  // namespace nox::client
