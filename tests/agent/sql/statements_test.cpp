#include "agent/sql/statements.h"

#include "tests/agent/sql/sql_fixture.h"

namespace nox::agent::test {
namespace {

class SqlStatementsTest : public SqlTest {
protected:
  SqlStatementsTest() {
    sql_.once("CREATE TABLE town(id INTEGER PRIMARY KEY, name TEXT NOT NULL, size INTEGER)");
    sql_.once("INSERT INTO town VALUES(1, 'Ulm', 126), (2, 'Linz', 210), (3, 'Bern', NULL)");
  }
};

TEST_F(SqlStatementsTest, IdsCountFromOne) {
  EXPECT_EQ(sql_.compile("SELECT 1"), "3 ok");  // two were released
  EXPECT_EQ(sql_.precompile("SELECT 1"), "4 ok");
}

TEST_F(SqlStatementsTest, AnExecutedQueryAnswersItsRows) {
  sql_.compile("SELECT id, name, size FROM town ORDER BY id");
  EXPECT_EQ(sql_.execute(3), "3 rows 1,Ulm,126|2,Linz,210|3,Bern,-");
}

TEST_F(SqlStatementsTest, AColumnMayHoldValuesOfEveryKind) {
  sql_.once("CREATE TABLE mixed(id INTEGER PRIMARY KEY, value)");
  sql_.once(
      "INSERT INTO mixed(value) VALUES('a'), (-9223372036854775808), (''), (NULL), ('b'), (1.5),"
      " (1e300), ('c'), (X''), (X'64'), (7)");
  EXPECT_EQ(sql_.once("SELECT value FROM mixed ORDER BY id"),
            "rows a|-9223372036854775808||-|b|1.5|1.0e+300|c||d|7");
}

TEST_F(SqlStatementsTest, AChangeAnswersHowManyRowsItChanged) {
  sql_.compile("UPDATE town SET size = size + 1 WHERE size > 0");
  EXPECT_EQ(sql_.execute(3), "3 changed 2");
  EXPECT_EQ(sql_.once("SELECT size FROM town ORDER BY id"), "rows 127|211|-");
}

TEST_F(SqlStatementsTest, ADefinitionChangesNoRows) {
  sql_.once("DELETE FROM town");
  EXPECT_EQ(sql_.once("CREATE TABLE empty(x)"), "changed 0");
}

TEST_F(SqlStatementsTest, CompiledAndExecutedInOne) {
  EXPECT_EQ(sql_.run("SELECT name FROM town WHERE id = 2"), "3 rows Linz");
  EXPECT_EQ(sql_.run("DELETE FROM town WHERE id = 2"), "4 changed 1");
  EXPECT_EQ(sql_.execute(3), "3 rows");
}

TEST_F(SqlStatementsTest, WhatFailsWhenExecutedInOneIsNotKept) {
  EXPECT_EQ(sql_.run("INSERT INTO town VALUES(1, 'Ulm', 1)"), "0 23/000 613");
  EXPECT_EQ(sql_.execute(3), "3 26/000");
}

TEST_F(SqlStatementsTest, AStatementIsExecutedAsOftenAsIsWished) {
  sql_.compile("SELECT count(*) FROM town");
  EXPECT_EQ(sql_.execute(3), "3 rows 3");
  sql_.once("DELETE FROM town WHERE id = 1");
  EXPECT_EQ(sql_.execute(3), "3 rows 2");
}

TEST_F(SqlStatementsTest, BoundValuesStayForEveryExecution) {
  sql_.compile("SELECT name FROM town WHERE id = ?");
  EXPECT_EQ(sql_.bind(3, {"2"}), "3 ok");
  EXPECT_EQ(sql_.execute(3), "3 rows Linz");
  EXPECT_EQ(sql_.execute(3), "3 rows Linz");
  EXPECT_EQ(sql_.bind(3, {"3"}), "3 ok");
  EXPECT_EQ(sql_.execute(3), "3 rows Bern");
}

TEST_F(SqlStatementsTest, ANullParameterIsNull) {
  sql_.compile("INSERT INTO town VALUES(?, ?, ?)");
  EXPECT_EQ(sql_.bind(3, {"4", "Graz", nullptr}), "3 ok");
  EXPECT_EQ(sql_.execute(3), "3 changed 1");
  EXPECT_EQ(sql_.once("SELECT size IS NULL FROM town WHERE id = 4"), "rows 1");
}

TEST_F(SqlStatementsTest, AnEmptyTextIsNoNull) {
  EXPECT_EQ(sql_.once("SELECT typeof(?), length(?)", {"", ""}), "rows text,0");
  EXPECT_EQ(sql_.once("SELECT typeof(?)", {{"", SqlType::kBlob}}), "rows blob");
}

TEST_F(SqlStatementsTest, TheTypeOfAParameterSaysHowItIsMeant) {
  EXPECT_EQ(sql_.once("SELECT typeof(?)", {"12"}), "rows text");
  EXPECT_EQ(sql_.once("SELECT typeof(?)", {{"12", SqlType::kInteger}}), "rows integer");
  EXPECT_EQ(sql_.once("SELECT typeof(?)", {{"12", SqlType::kNumeric}}), "rows integer");
  EXPECT_EQ(sql_.once("SELECT typeof(?)", {{"1.5", SqlType::kNumeric}}), "rows real");
  EXPECT_EQ(sql_.once("SELECT ? + 0", {{"+1.5e2", SqlType::kReal}}), "rows 150.0");
  EXPECT_EQ(sql_.once("SELECT typeof(?)", {{"12", SqlType::kBlob}}), "rows blob");
  EXPECT_EQ(sql_.once("SELECT typeof(?)", {{"12", 4711}}), "rows text");
}

TEST_F(SqlStatementsTest, ATextThatIsNoNumberIsRefusedWhereANumberIsMeant) {
  EXPECT_EQ(sql_.once("SELECT ?", {{"12a", SqlType::kInteger}}), "22/018");
  EXPECT_EQ(sql_.once("SELECT ?", {{"1.5", SqlType::kInteger}}), "22/018");
  EXPECT_EQ(sql_.once("SELECT ?", {{"", SqlType::kNumeric}}), "22/018");
  EXPECT_EQ(sql_.once("SELECT ?", {{"1e", SqlType::kReal}}), "22/018");
  EXPECT_EQ(sql_.once("SELECT ?", {{"0x10", SqlType::kReal}}), "22/018");
  EXPECT_EQ(sql_.once("INSERT INTO town VALUES('one', 'x', 1)"), "22/018 14");
  sql_.once("CREATE TABLE strict_one(x INTEGER) STRICT");
  EXPECT_EQ(sql_.once("INSERT INTO strict_one VALUES('one')"), "22/018 c13");
}

TEST_F(SqlStatementsTest, AWholeNumberBeyondTheStoresIsTakenAsANearOne) {
  EXPECT_EQ(sql_.once("SELECT typeof(?)", {{"99999999999999999999", SqlType::kInteger}}),
            "rows real");
}

TEST_F(SqlStatementsTest, AWrongCountOfValuesIsRefused) {
  sql_.compile("SELECT ?, ?");
  EXPECT_EQ(sql_.bind(3, {"1"}), "3 02/001");
  EXPECT_EQ(sql_.bind(3, {"1", "2", "3"}), "3 02/001");
  EXPECT_EQ(sql_.execute(3), "3 02/001");
  EXPECT_EQ(sql_.bind(3, {"1", "2"}), "3 ok");
  EXPECT_EQ(sql_.execute(3), "3 rows 1,2");
}

TEST_F(SqlStatementsTest, AParameterThatWasNeverGivenAValueIsRefused) {
  sql_.compile("SELECT ?");
  auto unset = std::make_unique<noxp::ACEBinaryFormatParameterListProt>(1);
  EXPECT_EQ(sql_.say(noxp::sql::BindRequestProt(3, unset.release())), "3 02/001");
}

TEST_F(SqlStatementsTest, ParametersInOneRequestCannotBeBound) {
  EXPECT_EQ(sql_.run("SELECT ?"), "0 02/001");
}

TEST_F(SqlStatementsTest, WhatCannotBeUnderstoodIsASyntaxError) {
  EXPECT_EQ(sql_.compile("SELEC 1"), "0 42/000 1");
  EXPECT_EQ(sql_.compile(""), "0 42/000");
  EXPECT_EQ(sql_.compile(" -- nothing\n ;"), "0 42/000");
  EXPECT_EQ(sql_.compile("SELECT 1; SELECT 2"), "0 42/000");
  EXPECT_EQ(sql_.precompile("SELECT FROM town"), "0 42/000 1");
}

TEST_F(SqlStatementsTest, BlanksCommentsAndSemicolonsMayStandAroundAStatement) {
  EXPECT_EQ(sql_.once("; -- one\n SELECT 1 ; /* no more */ ;; -- done"), "rows 1");
}

TEST_F(SqlStatementsTest, AMissingTableOrColumnIsNamed) {
  EXPECT_EQ(sql_.compile("SELECT 1 FROM nowhere"), "0 42/S02 1");
  EXPECT_NE(sql_.message().find("nowhere"), std::string::npos);
  EXPECT_EQ(sql_.compile("SELECT mayor FROM town"), "0 42/S22 1");
  EXPECT_NE(sql_.message().find("mayor"), std::string::npos);
  EXPECT_EQ(sql_.compile("SELECT \"mayor\" FROM town"), "0 42/S22 1");
  EXPECT_EQ(sql_.compile("INSERT INTO town(mayor) VALUES(1)"), "0 42/S22 1");
}

TEST_F(SqlStatementsTest, TablesOfAPrecompiledStatementMayBeMissingUntilItIsExecuted) {
  EXPECT_EQ(sql_.precompile("SELECT x FROM later WHERE x > ?"), "3 ok");
  EXPECT_EQ(sql_.bind(3, {{"1", SqlType::kInteger}}), "3 ok");
  EXPECT_EQ(sql_.execute(3), "3 42/S02 1");
  EXPECT_EQ(sql_.describe(3), "3 42/S02 1");
  sql_.once("CREATE TABLE later(x INTEGER)");
  sql_.once("INSERT INTO later VALUES(1), (2)");
  EXPECT_EQ(sql_.execute(3), "3 rows 2");
}

TEST_F(SqlStatementsTest, ValuesOfAPrecompiledStatementAreCountedWhenItsTablesAreThere) {
  EXPECT_EQ(sql_.precompile("SELECT x FROM later WHERE x > ?"), "3 ok");
  EXPECT_EQ(sql_.bind(3, {"1", "2"}), "3 ok");
  sql_.once("CREATE TABLE later(x INTEGER)");
  EXPECT_EQ(sql_.execute(3), "3 02/001");
}

TEST_F(SqlStatementsTest, AStatementThatLostItsTableFailsWhenItIsExecuted) {
  sql_.compile("SELECT name FROM town");
  sql_.once("DROP TABLE town");
  EXPECT_EQ(sql_.execute(3), "3 42/S02 1");
}

TEST_F(SqlStatementsTest, AConstraintIsAnErrorOfItsOwn) {
  EXPECT_EQ(sql_.once("INSERT INTO town VALUES(1, 'Rom', 1)"), "23/000 613");
  EXPECT_EQ(sql_.once("INSERT INTO town VALUES(9, NULL, 1)"), "23/000 513");
}

TEST_F(SqlStatementsTest, AnUnknownIdNamesNoStatement) {
  EXPECT_EQ(sql_.bind(7, {}), "7 26/000");
  EXPECT_EQ(sql_.execute(7), "7 26/000");
  EXPECT_EQ(sql_.fetch(7, 1), "7 26/000");
  EXPECT_EQ(sql_.describe(7), "7 26/000");
  EXPECT_EQ(sql_.call(7), "7 26/000");
  EXPECT_EQ(sql_.release(7), "7 IE/002");
  EXPECT_EQ(sql_.execute(-1), "-1 26/000");
}

TEST_F(SqlStatementsTest, AReleasedStatementIsGone) {
  sql_.compile("SELECT 1");
  EXPECT_EQ(sql_.release(3), "3 ok");
  EXPECT_EQ(sql_.execute(3), "3 26/000");
  EXPECT_EQ(sql_.release(3), "3 IE/002");
}

TEST_F(SqlStatementsTest, ASessionHolds256) {
  for (int i = 0; i < 256; ++i) ASSERT_NE(sql_.compile("SELECT 1").find("ok"), std::string::npos);
  EXPECT_EQ(sql_.compile("SELECT 1"), "0 IE/001");
  EXPECT_EQ(sql_.precompile("SELECT 1"), "0 IE/001");
  EXPECT_EQ(sql_.release(10), "10 ok");
  EXPECT_EQ(sql_.compile("SELECT 1"), "259 ok");
}

TEST_F(SqlStatementsTest, StatementsOfAnotherSessionAreUnknown) {
  sql_.compile("SELECT 1");
  ClientInProcess bob(agent_);
  EXPECT_EQ(SqlCalls(bob).execute(3), "3 26/000");
}

TEST_F(SqlStatementsTest, ColumnsAndParametersAreDescribed) {
  sql_.compile("SELECT id, name AS town, size * 2, x'00' FROM town WHERE id > ? AND name = :name");
  EXPECT_EQ(sql_.describe(3),
            "3 columns id:4 town:12 size * 2:12 x'00':12 parameters ?1:12 name:12");
}

TEST_F(SqlStatementsTest, AColumnIsDescribedWithItsTableAndItsType) {
  sql_.once(
      "CREATE TABLE kinds(key INTEGER PRIMARY KEY AUTOINCREMENT,"
      " price DECIMAL(10,2) NOT NULL, ratio DOUBLE, photo BLOB, note VARCHAR(40), any)");
  sql_.compile("SELECT * FROM kinds");
  noxp::sql::MetaDataRequestProt request(4);
  const auto reply = ann_.askFor<noxp::sql::SQLRSMDResponseProt>(request);
  ASSERT_TRUE(reply);
  const auto* const columns = reply->getResultSetMetaData();
  EXPECT_EQ(columns->getClassVersion(), 2);
  const auto line = [&](int i) {
    return columns->getColumnMetaDataProt(i)->toString().getString();
  };
  ASSERT_EQ(columns->getNumberOfColumns(), 6);
  EXPECT_EQ(line(0),
            "1:key,tableName:kinds,scale:0,precision:0,displayWidth:20,indexable:1,"
            "inputConversion:,outputConversion:,datatype:4,nullable:1,readOnly:0,blob:0,"
            "autoIncrement:1,explicitSelect:0,nullFldDesc:0,chapter:0,hidden:0");
  EXPECT_EQ(line(1),
            "2:price,tableName:kinds,scale:2,precision:10,displayWidth:10,indexable:1,"
            "inputConversion:,outputConversion:,datatype:2,nullable:0,readOnly:0,blob:0,"
            "autoIncrement:0,explicitSelect:0,nullFldDesc:0,chapter:0,hidden:0");
  EXPECT_NE(line(2).find("datatype:8,"), std::string::npos);
  EXPECT_NE(line(3).find("indexable:0,"), std::string::npos);
  EXPECT_NE(line(3).find("datatype:2004,nullable:1,readOnly:0,blob:1,"), std::string::npos);
  EXPECT_NE(line(4).find("precision:40,displayWidth:40,"), std::string::npos);
  EXPECT_NE(line(5).find("datatype:12,"), std::string::npos);
}

TEST_F(SqlStatementsTest, ACommaOrAColonInANameDoesNotShiftTheDescription) {
  sql_.compile("SELECT max(1, 2), 3 AS \"a:b\"");
  EXPECT_EQ(sql_.describe(3), "3 columns max(1_ 2):12 a_b:12 parameters");
}

TEST_F(SqlStatementsTest, AStatementWithoutColumnsHasNoneDescribed) {
  sql_.compile("DELETE FROM town WHERE id = ?");
  EXPECT_EQ(sql_.describe(3), "3 columns parameters ?1:12");
}

TEST_F(SqlStatementsTest, WhoMayOnlyReadMayNotWrite) {
  ClientInProcess reader(agent_, Right::Read);
  SqlCalls reading(reader);
  EXPECT_EQ(reading.once("SELECT count(*) FROM town"), "rows 3");
  EXPECT_EQ(reading.compile("DELETE FROM town"), "0 42/000");
  EXPECT_EQ(reading.compile("CREATE TABLE mine(x)"), "0 42/000");
  EXPECT_EQ(reading.compile("INSERT INTO town VALUES(9, 'x', 1) RETURNING id"), "0 42/000");
  EXPECT_EQ(reading.precompile("DELETE FROM later"), "2 ok");
  sql_.once("CREATE TABLE later(x)");
  EXPECT_EQ(reading.execute(2), "2 42/000");
}

TEST_F(SqlStatementsTest, AWritingStatementMayAnswerRows) {
  EXPECT_EQ(sql_.once("INSERT INTO town(name) VALUES('Rom'), ('Bari') RETURNING id, name, size"),
            "rows 4,Rom,-|5,Bari,-");
  EXPECT_EQ(sql_.once("SELECT count(*) FROM town"), "rows 5");
}

TEST_F(SqlStatementsTest, AStatementThatTakesTooLongIsEnded) {
  ann_.session().settings().statementTimeout = std::chrono::seconds(1);
  EXPECT_EQ(sql_.once("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n)"
                      " SELECT max(i) FROM n"),
            "IE/001 9");
  EXPECT_NE(sql_.message().find("too long"), std::string::npos);
  EXPECT_EQ(sql_.once("SELECT 1"), "rows 1");
}

TEST_F(SqlStatementsTest, StatementsEndWithTheAccount) {
  sql_.compile("SELECT 1");
  agent_.agent().stores.createAccount("OTHER");
  ann_.session().switchTo("ann", "OTHER", Right::Admin);
  EXPECT_EQ(sql_.execute(3), "3 26/000");
}

}  // namespace
}  // namespace nox::agent::test
