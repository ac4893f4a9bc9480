// Work that is done as a whole or not at all.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "nox/client/transaction.h"
#include "tests/client/lib/recorder.h"

namespace nox::client {
namespace {

using noxp::remote::MonitoringResponseProt;
using noxp::remote::TransactionResponseProt;
using testing::ElementsAre;
using testing::IsEmpty;

class Transactions : public test::RecordedSession {
protected:
  Transactions() { asked(); }

  void replyXa() { reply<TransactionResponseProt>(); }
  static std::string stateOf(const std::function<void()>& action) {
    try {
      action();
    } catch (const Error& error) {
      return error.sqlState();
    }
    return "no error";
  }

  const Xid xid_{7, "aa:bb"};
};

TEST_F(Transactions, AreCommitted) {
  {
    Transaction work = connection_.begin();
    EXPECT_TRUE(work.isOpen());
    work.commit();
    EXPECT_FALSE(work.isOpen());
  }
  EXPECT_THAT(asked(), ElementsAre("Begin 0", "Commit"));
}

TEST_F(Transactions, AreRolledBackWhereNobodyCommits) {
  { Transaction work = connection_.begin(); }
  EXPECT_THAT(asked(), ElementsAre("Begin 0", "Rollback"));
}

TEST_F(Transactions, AreRolledBackOnRequest) {
  {
    Transaction work = connection_.begin();
    work.rollback();
    EXPECT_EQ(stateOf([&] { work.commit(); }), "25000");
  }
  EXPECT_THAT(asked(), ElementsAre("Begin 0", "Rollback"));
}

TEST_F(Transactions, HaveAnIsolation) {
  connection_.begin(Isolation::Serializable).commit();
  EXPECT_THAT(asked(), ElementsAre("Begin 8", "Commit"));
}

TEST_F(Transactions, AreOverWhenTheirCommitIsRefused) {
  {
    Transaction work = connection_.begin();
    reply<noxp::sql::SQLErrorResponseProt>(0, SQLExtError("2D", "000", "rolled back"));
    EXPECT_EQ(stateOf([&] { work.commit(); }), "2D000");
    EXPECT_FALSE(work.isOpen());
  }
  EXPECT_THAT(asked(), ElementsAre("Begin 0", "Commit"));
  EXPECT_TRUE(connection_.isUsable());
}

TEST_F(Transactions, MakeTheConnectionUnusableWhereARollBackFails) {
  {
    Transaction work = connection_.begin();
    reply<noxp::sql::SQLErrorResponseProt>(0, SQLExtError("IE", "000", "no disk"));
  }
  EXPECT_FALSE(connection_.isUsable());
  EXPECT_EQ(connection_.unusableReason(), "a transaction could not be rolled back: no disk");
}

TEST_F(Transactions, AreOverAlreadyWhereTheServerSaysSo) {
  {
    Transaction work = connection_.begin();
    reply<noxp::sql::SQLErrorResponseProt>(0, SQLExtError("25", "000", "none is open"));
  }
  EXPECT_TRUE(connection_.isUsable());
}

TEST_F(Transactions, Move) {
  Transaction work = connection_.begin();
  Transaction moved = std::move(work);
  EXPECT_TRUE(moved.isOpen());
  moved.commit();
  EXPECT_THAT(asked(), ElementsAre("Begin 0", "Commit"));
}

TEST_F(Transactions, AreRolledBackWhereAnotherOneTakesTheirPlace) {
  Transaction work = connection_.begin();
  Transaction next = connection_.begin();  // the peer does not mind
  work = std::move(next);
  EXPECT_TRUE(work.isOpen());
  EXPECT_FALSE(next.isOpen());
  EXPECT_THAT(asked(), ElementsAre("Begin 0", "Begin 0", "Rollback"));
  work.commit();
}

TEST_F(Transactions, BranchesAreRolledBackWhereAnotherOneTakesTheirPlace) {
  replyXa();
  XaBranch branch = connection_.startBranch(xid_);
  XaBranch prepared = connection_.preparedBranch(xid_);
  asked();
  replyXa();
  replyXa();
  branch = std::move(prepared);
  EXPECT_EQ(branch.state(), XaBranch::State::Prepared);
  EXPECT_EQ(asked().size(), 2u) << "it is ended and rolled back";
}

TEST_F(Transactions, BranchesGoThroughTheirPhases) {
  for (int i = 0; i < 4; ++i) replyXa();
  {
    XaBranch branch = connection_.startBranch(xid_);
    EXPECT_EQ(branch.state(), XaBranch::State::Started);
    branch.end();
    branch.prepare();
    EXPECT_EQ(branch.state(), XaBranch::State::Prepared);
    branch.commit();
    EXPECT_EQ(branch.state(), XaBranch::State::Finished);
  }
  EXPECT_THAT(asked(), ElementsAre("XAStart 7 aa:bb", "XAEnd 7 aa:bb", "XAPrepare 7 aa:bb",
                                   "XACommit 7 aa:bb"));
}

TEST_F(Transactions, BranchesCommitInOnePhase) {
  for (int i = 0; i < 3; ++i) replyXa();
  XaBranch branch = connection_.startBranch(xid_);
  branch.end();
  branch.commit();
  EXPECT_THAT(asked(), ElementsAre("XAStart 7 aa:bb", "XAEnd 7 aa:bb", "XACommit 7 aa:bb"));
}

TEST_F(Transactions, BranchesThatNobodyPreparesAreRolledBack) {
  for (int i = 0; i < 3; ++i) replyXa();
  { XaBranch branch = connection_.startBranch(xid_); }
  EXPECT_THAT(asked(), ElementsAre("XAStart 7 aa:bb", "XAEnd 7 aa:bb", "XARollback 7 aa:bb"));
}

TEST_F(Transactions, PreparedBranchesStay) {
  for (int i = 0; i < 3; ++i) replyXa();
  {
    XaBranch branch = connection_.startBranch(xid_);
    branch.end();
    branch.prepare();
  }
  EXPECT_EQ(asked().back(), "XAPrepare 7 aa:bb");
}

TEST_F(Transactions, PreparedBranchesAreFinishedFromAnywhere) {
  replyXa();
  connection_.preparedBranch(xid_).commit();
  replyXa();
  connection_.preparedBranch(xid_).rollback();
  { const XaBranch untouched = connection_.preparedBranch(xid_); }
  EXPECT_THAT(asked(), ElementsAre("XACommit 7 aa:bb", "XARollback 7 aa:bb"));
}

TEST_F(Transactions, BranchesKeepTheirOrder) {
  for (int i = 0; i < 2; ++i) replyXa();
  XaBranch branch = connection_.startBranch(xid_);
  EXPECT_EQ(stateOf([&] { branch.prepare(); }), "25000");
  EXPECT_EQ(stateOf([&] { branch.commit(); }), "25000");
  branch.end();
  EXPECT_EQ(stateOf([&] { branch.end(); }), "25000");
  replyXa();
  branch.rollback();
  EXPECT_EQ(stateOf([&] { branch.rollback(); }), "25000");
}

TEST_F(Transactions, BranchesKeepTheirStateWhereAStepIsRefused) {
  for (int i = 0; i < 2; ++i) replyXa();
  XaBranch branch = connection_.startBranch(xid_);
  branch.end();
  reply<ErrorResponseProt>(SQLExtError("IE", "013", "cannot prepare (Status = 0xfffffffd)"));
  try {
    branch.prepare();
    ADD_FAILURE() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_EQ(error.status(), -3);
  }
  EXPECT_EQ(branch.state(), XaBranch::State::Ended);
  replyXa();
}

TEST_F(Transactions, IdsAreHexadecimalWithAColon) {
  const Xid xid = Xid::of(3, std::string("\x00\xFFg", 3), "b");
  EXPECT_EQ(xid.format, 3);
  EXPECT_EQ(xid.id, "00ff67:62");
  EXPECT_EQ(Xid::of(0, std::string(63, 'x'), "").id.size(), 127u);
  EXPECT_EQ(stateOf([] { Xid::of(0, std::string(64, 'x'), ""); }), sqlstate::kBadArgument);
}

TEST_F(Transactions, IdsHaveOneTo128Bytes) {
  EXPECT_EQ(stateOf([&] { connection_.startBranch({1, ""}); }), sqlstate::kBadArgument);
  EXPECT_EQ(stateOf([&] {
              connection_.startBranch({1, std::string(129, 'x')});
            }),
            sqlstate::kBadArgument);
  EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(Transactions, AreRecoveredFromTheServersList) {
  reply<MonitoringResponseProt>(
      "branch\tstate\tlocks\tsince\n"
      "7:aa:bb\tprepared\t2\t2026-01-01T00:00:00Z\n"
      "-1:odd\\x09 id\\\\\tended\t0\t2026-01-01T00:00:00Z\n"
      "not a branch\n"
      "99999999999:x\tprepared\t0\t-");
  const std::vector<XaBranchInfo> branches = connection_.recover();
  ASSERT_EQ(branches.size(), 2u);
  EXPECT_EQ(branches[0].xid, xid_);
  EXPECT_EQ(branches[0].state, "prepared");
  EXPECT_EQ(branches[1].xid.format, -1);
  EXPECT_EQ(branches[1].xid.id, "odd\t id\\");
  EXPECT_THAT(asked(), ElementsAre("Monitor xa list"));
}

TEST_F(Transactions, AreRecoveredFromAnEmptyList) {
  reply<MonitoringResponseProt>("branch\tstate\tlocks\tsince");
  EXPECT_THAT(connection_.recover(), IsEmpty());
}

}  // namespace
}  // namespace nox::client
