// Subroutines as SQL requests load and call them, and SQL as subroutines run it.
#include "agent/sql/script_sql.h"

#include "agent/failure.h"
#include "tests/agent/sql/sql_fixture.h"

namespace nox::agent::test {
namespace {

SqlValue text(const char* bytes) { return {SqlValue::Kind::Text, bytes}; }
SqlValue number(const char* digits) { return {SqlValue::Kind::Number, digits}; }

class SqlSubroutinesTest : public SqlTest {
protected:
  SqlSubroutinesTest() { ann_.run("CREATE-FILE NOX.SUBS"); }

  void subroutine(const char* name, const char* text) {
    ASSERT_EQ(ann_.write("NOX.SUBS", name, text), "0");
  }
  std::string failure(std::string_view sql, const std::vector<SqlValue>& parameters = {}) {
    try {
      runSql(ann_.session(), sql, parameters);
    } catch (const Failure& thrown) {
      return thrown.state().sqlClass + "/" + thrown.state().sqlSubClass;
    }
    return {};
  }
};

TEST_F(SqlSubroutinesTest, ALoadedSubroutineIsCalledByItsId) {
  subroutine("SWAP", "args[1], args[2] = args[2], args[1]");
  EXPECT_EQ(sql_.load("SWAP"), "1 ok");
  EXPECT_EQ(sql_.call(1, {"a", nullptr}), "1 left -,a");
  EXPECT_EQ(sql_.call(1, {"x", "y"}), "1 left y,x");
  EXPECT_EQ(sql_.release(1), "1 ok");
  EXPECT_EQ(sql_.call(1), "1 26/000");
}

TEST_F(SqlSubroutinesTest, ParametersComeBackWithTheTypesOfTheCall) {
  subroutine("SAME", "");
  sql_.load("SAME");
  noxp::sql::CallSubroutineRequestProt request(
      1, parameterList({{"12", SqlType::kInteger}, {nullptr, SqlType::kBlob}, "x"}).release());
  const auto reply = ann_.askFor<noxp::sql::SQLParamsResponseProt>(request);
  ASSERT_TRUE(reply);
  noxp::ParameterListProt& left = *reply->getParameterList();
  ASSERT_EQ(left.count(), 3u);
  EXPECT_EQ(left.getParameterType(0), SqlType::kInteger);
  EXPECT_EQ(left.getParameterType(1), SqlType::kBlob);
  EXPECT_EQ(left.isNull(1), 1);
  EXPECT_EQ(left.getParameterType(2), SqlType::kText);
}

TEST_F(SqlSubroutinesTest, OneThatIsNotThereIsNotLoaded) {
  EXPECT_EQ(sql_.load("NOWHERE"), "0 IE/004");
  EXPECT_EQ(sql_.load(""), "0 IE/004");
  subroutine("BROKEN", "this is no program");
  EXPECT_EQ(sql_.load("BROKEN"), "0 IE/004");
}

TEST_F(SqlSubroutinesTest, OneThatFailsIsAnErrorOfTheCall) {
  subroutine("FAIL", "error('so sorry')");
  sql_.load("FAIL");
  EXPECT_EQ(sql_.call(1), "1 IE/003");
  EXPECT_NE(sql_.message().find("so sorry"), std::string::npos);
  subroutine("ABORT", "nox.abort()");
  sql_.load("ABORT");
  EXPECT_EQ(sql_.call(2), "2 IE/003");
  subroutine("ASK", "nox.input('name?')");
  sql_.load("ASK");
  EXPECT_EQ(sql_.call(3), "3 IE/003");
  ann_.remove("NOX.SUBS", "ABORT");
  EXPECT_EQ(sql_.call(2), "2 IE/003");
}

TEST_F(SqlSubroutinesTest, ASubroutineIsNoStatementAndAStatementNoSubroutine) {
  subroutine("NONE", "");
  sql_.load("NONE");
  EXPECT_EQ(sql_.execute(1), "1 26/000");
  EXPECT_EQ(sql_.bind(1, {}), "1 26/000");
  EXPECT_EQ(sql_.fetch(1, 1), "1 26/000");
  EXPECT_EQ(sql_.describe(1), "1 columns parameters");
  sql_.compile("SELECT 1");
  EXPECT_EQ(sql_.call(2), "2 26/000");
}

TEST_F(SqlSubroutinesTest, SubroutinesRunSql) {
  sql_.once("CREATE TABLE t(x, y)");
  const ScriptSqlResult changed =
      runSql(ann_.session(), "INSERT INTO t VALUES(?, ?), (3, NULL)", {number("1"), text("one")});
  EXPECT_FALSE(changed.isQuery);
  EXPECT_EQ(changed.changes, 2);
  const ScriptSqlResult found = runSql(ann_.session(), "SELECT x, y FROM t", {});
  EXPECT_TRUE(found.isQuery);
  EXPECT_EQ(found.columns, (std::vector<std::string>{"x", "y"}));
  ASSERT_EQ(found.rows.size(), 2u);
  EXPECT_EQ(found.rows[0], (std::vector<std::optional<std::string>>{"1", "one"}));
  EXPECT_EQ(found.rows[1], (std::vector<std::optional<std::string>>{"3", std::nullopt}));
}

TEST_F(SqlSubroutinesTest, NumbersOfASubroutineAreNumbers) {
  subroutine("LESS", "args[1] = nox.sql('SELECT 2 < ?', 10)[1][1]");
  sql_.load("LESS");
  EXPECT_EQ(sql_.call(1, {"?"}), "1 left 1");
}

TEST_F(SqlSubroutinesTest, TheSqlOfASubroutineFailsAsAStatementDoes) {
  EXPECT_EQ(failure("SELECT * FROM nowhere"), "42/S02");
  EXPECT_EQ(failure("SELEC"), "42/000");
  EXPECT_EQ(failure("SELECT ?"), "02/001");
  EXPECT_EQ(failure("SELECT 1", {text("x")}), "02/001");
  EXPECT_EQ(failure("BEGIN"), "42/000");
}

TEST_F(SqlSubroutinesTest, TheSqlOfASubroutineHasTheRightsOfItsSession) {
  sql_.once("CREATE TABLE t(x)");
  ClientInProcess reader(agent_, Right::Read);
  EXPECT_EQ(runSql(reader.session(), "SELECT count(*) FROM t", {}).rows[0][0], "0");
  EXPECT_THROW(runSql(reader.session(), "DELETE FROM t", {}), Failure);
}

TEST_F(SqlSubroutinesTest, MoreRowsThanASubroutineCanTakeAreRefused) {
  const std::string rows =
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < ?) SELECT ";
  EXPECT_EQ(runSql(ann_.session(), rows + "i FROM n", {number("100000")}).rows.size(),
            kMostScriptRows);
  EXPECT_EQ(failure(rows + "i FROM n", {number("100001")}), "22/003");
  EXPECT_EQ(failure(rows + "zeroblob(1000000) FROM n", {number("40")}), "22/003");
}

}  // namespace
}  // namespace nox::agent::test
