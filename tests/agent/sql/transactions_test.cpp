// Statements inside transactions, and across their ends.
#include "tests/agent/sql/sql_fixture.h"

namespace nox::agent::test {
namespace {

class SqlTransactionsTest : public SqlTest {
protected:
  SqlTransactionsTest() {
    ann_.run("CREATE-FILE F");
    sql_.once("CREATE TABLE n(i INTEGER PRIMARY KEY)");
    sql_.once("INSERT INTO n VALUES(1), (2), (3), (4), (5), (6)");
    ann_.session().settings().fetchSize = 2;
  }
};

TEST_F(SqlTransactionsTest, SqlAndRecordsShareOneTransaction) {
  ASSERT_EQ(sql_.begin(), "OK");
  EXPECT_EQ(sql_.once("DELETE FROM n WHERE i > 1"), "changed 5");
  EXPECT_EQ(ann_.write("F", "a", "alpha"), "0");
  EXPECT_EQ(ann_.rollback(), "OK");
  EXPECT_EQ(sql_.once("SELECT count(*) FROM n"), "rows 6");
  EXPECT_EQ(ann_.exists("F", "a"), "1");

  ASSERT_EQ(ann_.begin(), "OK");
  EXPECT_EQ(sql_.once("DELETE FROM n WHERE i > 1"), "changed 5");
  EXPECT_EQ(ann_.write("F", "a", "alpha"), "0");
  EXPECT_EQ(sql_.commit(), "OK");
  EXPECT_EQ(sql_.once("SELECT count(*) FROM n"), "rows 1");
  EXPECT_EQ(ann_.read("F", "a"), "0 'alpha'");
}

TEST_F(SqlTransactionsTest, OthersSeeNothingBeforeTheCommit) {
  ClientInProcess bob(agent_);
  SqlCalls bobs(bob);
  ASSERT_EQ(sql_.begin(), "OK");
  sql_.once("DELETE FROM n");
  EXPECT_EQ(sql_.once("SELECT count(*) FROM n"), "rows 0");
  EXPECT_EQ(bobs.once("SELECT count(*) FROM n"), "rows 6");
  ASSERT_EQ(sql_.commit(), "OK");
  EXPECT_EQ(bobs.once("SELECT count(*) FROM n"), "rows 0");
}

TEST_F(SqlTransactionsTest, TheSecondWriterWaitsAndGivesUp) {
  ClientInProcess bob(agent_);
  bob.session().store().setWait(std::chrono::milliseconds(50));
  ASSERT_EQ(sql_.begin(), "OK");
  sql_.once("DELETE FROM n");
  EXPECT_EQ(SqlCalls(bob).once("INSERT INTO n VALUES(7)").substr(0, 6), "IE/024");
  ASSERT_EQ(sql_.rollback(), "OK");
  EXPECT_EQ(SqlCalls(bob).once("INSERT INTO n VALUES(7)"), "changed 1");
}

TEST_F(SqlTransactionsTest, AStatementThatFailsLeavesTheTransactionOpen) {
  ASSERT_EQ(sql_.begin(), "OK");
  sql_.once("INSERT INTO n VALUES(7)");
  EXPECT_EQ(sql_.once("INSERT INTO n VALUES(8), (1)").substr(0, 6), "23/000");
  ASSERT_EQ(sql_.commit(), "OK");
  EXPECT_EQ(sql_.once("SELECT i FROM n WHERE i > 6"), "rows 7");
}

TEST_F(SqlTransactionsTest, AStatementMayGiveTheWholeTransactionUp) {
  ASSERT_EQ(sql_.begin(), "OK");
  sql_.once("INSERT INTO n VALUES(7)");
  EXPECT_EQ(sql_.once("INSERT OR ROLLBACK INTO n VALUES(1)").substr(0, 6), "23/000");
  EXPECT_EQ(sql_.once("INSERT INTO n VALUES(8)"), "40/000") << "nothing is done outside of it";
  EXPECT_EQ(sql_.rollback(), "OK");
  EXPECT_EQ(sql_.once("SELECT max(i) FROM n"), "rows 6");
}

TEST_F(SqlTransactionsTest, ATableMadeInATransactionGoesWithIt) {
  ASSERT_EQ(sql_.begin(), "OK");
  EXPECT_EQ(sql_.once("CREATE TABLE u(x)"), "changed 0");
  EXPECT_EQ(sql_.once("INSERT INTO u VALUES(1)"), "changed 1");
  ASSERT_EQ(sql_.rollback(), "OK");
  EXPECT_EQ(sql_.once("SELECT * FROM u"), "42/S02 1");
}

TEST_F(SqlTransactionsTest, AQueryEndsWithTheTransactionInWhichItWasExecuted) {
  for (const bool writes : {false, true}) {
    for (const bool commits : {false, true}) {
      ASSERT_EQ(sql_.begin(), "OK");
      if (writes) sql_.once("UPDATE n SET i = i");
      sql_.compile("SELECT i FROM n");
      const std::string rows = sql_.run("SELECT i FROM n");
      const int id = std::stoi(rows);
      EXPECT_EQ(rows, std::to_string(id) + " rows 1|2");
      EXPECT_EQ(sql_.fetch(id, 2), std::to_string(id) + " rows 3|4");
      ASSERT_EQ(commits ? sql_.commit() : sql_.rollback(), "OK");
      EXPECT_EQ(sql_.fetch(id, 2), std::to_string(id) + " 24/000");
      EXPECT_EQ(sql_.execute(id), std::to_string(id) + " rows 1|2");
      EXPECT_EQ(sql_.fetch(id, 2), std::to_string(id) + " rows 3|4");
    }
  }
}

TEST_F(SqlTransactionsTest, AQueryThatWasAllReadEndsToo) {
  ASSERT_EQ(sql_.begin(), "OK");
  EXPECT_EQ(sql_.run("SELECT i FROM n WHERE i = 1"), "3 rows 1");
  ASSERT_EQ(sql_.commit(), "OK");
  EXPECT_EQ(sql_.fetch(3, 2), "3 24/000");
}

TEST_F(SqlTransactionsTest, AQueryFromBeforeTheTransactionOutlivesIt) {
  EXPECT_EQ(sql_.run("SELECT i FROM n"), "3 rows 1|2");
  ASSERT_EQ(sql_.begin(), "OK");
  sql_.once("DELETE FROM n WHERE i > 3");
  EXPECT_EQ(sql_.fetch(3, 2), "3 rows 3|4") << "as it was when the query was executed";
  ASSERT_EQ(sql_.commit(), "OK");
  EXPECT_EQ(sql_.fetch(3, 2), "3 rows 5|6");
}

TEST_F(SqlTransactionsTest, ATransactionCommitsWhileItsQueryIsOpen) {
  ASSERT_EQ(sql_.begin(), "OK");
  sql_.once("INSERT INTO n VALUES(7)");
  EXPECT_EQ(sql_.run("SELECT i FROM n"), "4 rows 1|2");
  sql_.once("INSERT INTO n VALUES(8)");
  ASSERT_EQ(sql_.commit(), "OK");
  ClientInProcess bob(agent_);
  EXPECT_EQ(SqlCalls(bob).once("SELECT count(*) FROM n"), "rows 8");
}

TEST_F(SqlTransactionsTest, AnOpenQueryKeepsNobodyFromWriting) {
  EXPECT_EQ(sql_.run("SELECT i FROM n"), "3 rows 1|2");
  ClientInProcess bob(agent_);
  SqlCalls bobs(bob);
  EXPECT_EQ(bobs.once("DELETE FROM n"), "changed 6");
  EXPECT_EQ(bobs.once("DROP TABLE n"), "changed 0");
  EXPECT_EQ(sql_.fetch(3, 2), "3 rows 3|4");
}

TEST_F(SqlTransactionsTest, AQueryOfABranchEndsWithTheBranch) {
  ASSERT_EQ(ann_.xaStart("b"), "OK");
  sql_.once("INSERT INTO n VALUES(7)");
  EXPECT_EQ(sql_.run("SELECT i FROM n"), "4 rows 1|2");
  ASSERT_EQ(ann_.xaEnd("b"), "OK");
  EXPECT_EQ(sql_.fetch(4, 2), "4 24/000");
  EXPECT_EQ(sql_.once("SELECT count(*) FROM n"), "rows 6");
  ASSERT_EQ(ann_.xaPrepare("b"), "OK");
  ASSERT_EQ(ann_.xaCommit("b"), "OK");
  EXPECT_EQ(sql_.once("SELECT count(*) FROM n"), "rows 7");
}

TEST_F(SqlTransactionsTest, TransactionsOutOfOrderFailAsSqlDoes) {
  EXPECT_EQ(sql_.commit(), "0 25/000");
  EXPECT_EQ(sql_.rollback(), "0 25/000");
  ASSERT_EQ(sql_.begin(), "OK");
  EXPECT_EQ(sql_.begin(), "0 25/000");
}

}  // namespace
}  // namespace nox::agent::test
