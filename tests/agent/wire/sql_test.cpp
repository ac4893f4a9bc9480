// The SQL requests, 2 to 10, 14 and 16, asked of noxd itself.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <memory>
#include <string>

#include "tests/agent/support/client.h"
#include "tests/agent/support/noxd_process.h"
#include "tests/agent/support/sanitized.h"
#include "tests/agent/support/sql_calls.h"

namespace nox::agent::test {
namespace {

using namespace noxp;

/// One noxd for all tests, and bob's session. Ann's is a new one for each test, so that her ids
/// count from 1; each test has a table of its own name.
class WireSql : public testing::Test {
protected:
  static void SetUpTestSuite() {
    noxd = std::make_unique<NoxdProcess>();
    noxd->addUser("reader", "just looking", {"MAIN=read"});
    noxd->start();
    Client client(noxd->plainPort());
    client.logIn().run("CREATE-FILE NOX.SUBS");
    client.write("NOX.SUBS", "JOIN", "args[1] = args[1] .. (args[2] or '-'); args[2] = nil");
    bobClient = std::make_unique<Client>(noxd->plainPort());
    bobClient->logIn();
  }
  static void TearDownTestSuite() {
    bobClient.reset();
    EXPECT_EQ(noxd->stop(), 0);
    noxd.reset();
  }

  WireSql() : annClient(noxd->plainPort()) {
    annClient.logIn();
    table = testing::UnitTest::GetInstance()->current_test_info()->name();
    bob.once("CREATE TABLE " + table + "(id INTEGER PRIMARY KEY, name TEXT NOT NULL)");
    bob.once("INSERT INTO " + table + " VALUES(1, 'one'), (2, 'two'), (3, 'three')");
  }

  /// A statement about the test's table, which "%" stands for.
  std::string on(std::string sql) const {
    const std::size_t at = sql.find('%');
    return sql.replace(at, 1, table);
  }
  /// Fills the table with numbers up to `last`.
  void fill(int last) {
    bob.once(on("DELETE FROM %"));
    bob.once(on("INSERT INTO % WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n") +
             " LIMIT " + std::to_string(last) + ") SELECT i, 'name ' || i FROM n");
  }

  static std::unique_ptr<NoxdProcess> noxd;
  static std::unique_ptr<Client> bobClient;
  Client annClient;
  SqlCalls ann{annClient};
  SqlCalls bob{*bobClient};
  std::string table;
};
std::unique_ptr<NoxdProcess> WireSql::noxd;
std::unique_ptr<Client> WireSql::bobClient;

// 2, 3.

TEST_F(WireSql, CompileAnswersTheStatement) {
  EXPECT_EQ(ann.compile(on("SELECT name FROM %")), "1 ok");
  EXPECT_EQ(ann.compile(on("DELETE FROM %")), "2 ok");
}

TEST_F(WireSql, CompileRefusesWhatIsWrong) {
  EXPECT_EQ(ann.compile("SELEC"), "0 42/000 1");
  EXPECT_EQ(ann.message().substr(0, 37), "Syntax error or access violation: nea");
  EXPECT_EQ(ann.compile("SELECT 1 FROM no_such"), "0 42/S02 1");
  EXPECT_EQ(ann.compile(on("SELECT no_such FROM %")), "0 42/S22 1");
  EXPECT_EQ(ann.compile("SELECT 1; SELECT 2"), "0 42/000");
  EXPECT_EQ(ann.compile("BEGIN"), "0 42/000 17");
}

TEST_F(WireSql, PrecompileWaitsForTablesUntilTheExecution) {
  EXPECT_EQ(ann.precompile("SELECT x FROM Later"), "1 ok");
  EXPECT_EQ(ann.execute(1), "1 42/S02 1");
  bob.once("CREATE TABLE Later(x)");
  EXPECT_EQ(ann.execute(1), "1 rows");
  EXPECT_EQ(ann.precompile("SELEC"), "0 42/000 1");
}

// 5, 4, 14.

TEST_F(WireSql, BindAndExecute) {
  ann.compile(on("SELECT name FROM % WHERE id = ?"));
  EXPECT_EQ(ann.bind(1, {"2"}), "1 ok");
  EXPECT_EQ(ann.execute(1), "1 rows two");
  EXPECT_EQ(ann.bind(1, {{"3", SqlType::kInteger}}), "1 ok");
  EXPECT_EQ(ann.execute(1), "1 rows three");
}

TEST_F(WireSql, BindRefusesAWrongCountAndWrongNumbers) {
  ann.compile(on("SELECT name FROM % WHERE id = ?"));
  EXPECT_EQ(ann.bind(1, {}), "1 02/001");
  EXPECT_EQ(ann.bind(1, {"1", "2"}), "1 02/001");
  EXPECT_EQ(ann.execute(1), "1 02/001");
  EXPECT_EQ(ann.bind(1, {{"x", SqlType::kInteger}}), "1 22/018");
  EXPECT_EQ(ann.bind(2, {}), "2 26/000");
}

TEST_F(WireSql, ExecuteAnswersRowsOrACount) {
  EXPECT_EQ(ann.run(on("SELECT id, name FROM %")), "1 rows 1,one|2,two|3,three");
  EXPECT_EQ(ann.run(on("UPDATE % SET name = name || '!' WHERE id > 1")), "2 changed 2");
  EXPECT_EQ(ann.execute(1), "1 rows 1,one|2,two!|3,three!");
}

TEST_F(WireSql, ExecuteRefusesWhatTheTableDoes) {
  EXPECT_EQ(ann.run(on("INSERT INTO % VALUES(1, 'again')")), "0 23/000 613");
  EXPECT_EQ(ann.run(on("INSERT INTO % VALUES(9, NULL)")), "0 23/000 513");
  EXPECT_EQ(ann.run(on("INSERT INTO % VALUES('nine', 'x')")), "0 22/018 14");
  EXPECT_EQ(ann.execute(1), "1 26/000") << "none of them is kept";
}

TEST_F(WireSql, BytesAndNullsTravel) {
  EXPECT_EQ(
      ann.once("SELECT ?, ?, ?", {{std::string("\x00;\xFE", 3), SqlType::kBlob}, nullptr, ""}),
      "rows " + std::string("\x00;\xFE", 3) + ",-,");
  EXPECT_EQ(annClient.set("EMPTY_NULL", "1"), "OK");
  EXPECT_EQ(ann.once("SELECT NULL, 1"), "rows ,1");
}

// 6.

TEST_F(WireSql, RowsAreFetchedUntilABatchIsEmpty) {
  fill(2'500);
  int rows = 0;
  std::string batch = ann.run(on("SELECT id FROM %"));
  EXPECT_EQ(batch.substr(0, 10), "1 rows 1|2");
  for (; batch != "1 rows"; batch = ann.fetch(1, 700)) {
    const auto count = 1 + std::count(batch.begin(), batch.end(), '|');
    EXPECT_LE(count, rows == 0 ? 1'000 : 700);
    rows += static_cast<int>(count);
  }
  EXPECT_EQ(rows, 2'500);
  EXPECT_EQ(ann.fetch(1, 700), "1 rows");
}

TEST_F(WireSql, FetchNeedsAnExecutedQuery) {
  ann.compile(on("SELECT id FROM %"));
  EXPECT_EQ(ann.fetch(1, 10), "1 24/000");
  ann.run(on("DELETE FROM %"));
  EXPECT_EQ(ann.fetch(2, 10), "2 24/000");
  EXPECT_EQ(ann.fetch(3, 10), "3 26/000");
}

TEST_F(WireSql, TheAgentsMemoryDoesNotGrowWithTheRows) {
  if (kSanitized) GTEST_SKIP() << "sanitizers keep what was freed";
  fill(100'000);
  ann.run(on("SELECT id, name, name, name FROM %"));
  const long before = noxd->memoryKiB();
  int batches = 0;
  while (ann.fetch(1, 1'000) != "1 rows") ++batches;
  EXPECT_EQ(batches, 99);
  EXPECT_LT(noxd->memoryKiB() - before, 4'096);
}

TEST_F(WireSql, OneSessionReadsWhileTheOtherWrites) {
  fill(3'000);
  ann.run(on("SELECT id FROM %"));
  EXPECT_EQ(bob.once(on("DELETE FROM %")), "changed 3000");
  EXPECT_EQ(ann.fetch(1, 2).substr(0, 16), "1 rows 1001|1002");
  EXPECT_EQ(ann.once(on("SELECT count(*) FROM %")), "rows 0");
}

TEST_F(WireSql, OneThatGoesInTheMiddleOfItsRowsLeavesNothingBehind) {
  fill(3'000);
  for (int i = 0; i < 20; ++i) {
    Client gone(noxd->plainPort());
    SqlCalls(gone.logIn()).run(on("SELECT id FROM %"));
    gone.close();
  }
  EXPECT_EQ(ann.once(on("DROP TABLE %")), "changed 0");
}

// 7.

TEST_F(WireSql, ColumnsAndParametersAreDescribed) {
  ann.compile(on("SELECT id, name AS \"größe\" FROM % WHERE id > :least"));
  EXPECT_EQ(ann.describe(1), "1 columns id:4 größe:12 parameters least:12");
  EXPECT_EQ(ann.describe(2), "2 26/000");
  EXPECT_EQ(ann.describe(0), "0 26/000");
}

// 8.

TEST_F(WireSql, AReleasedStatementIsGone) {
  ann.compile("SELECT 1");
  EXPECT_EQ(ann.release(1), "1 ok");
  EXPECT_EQ(ann.release(1), "1 IE/002");
  EXPECT_EQ(ann.execute(1), "1 26/000");
}

TEST_F(WireSql, ASessionHolds256Statements) {
  for (int i = 0; i < 256; ++i) ann.compile("SELECT 1");
  EXPECT_EQ(ann.compile("SELECT 1"), "0 IE/001");
  EXPECT_EQ(bob.once("SELECT 1"), "rows 1") << "another one holds its own";
}

// 9, 10.

TEST_F(WireSql, ASubroutineIsLoadedAndCalled) {
  EXPECT_EQ(ann.load("JOIN"), "1 ok");
  EXPECT_EQ(ann.call(1, {"a", "b"}), "1 left ab,-");
  EXPECT_EQ(ann.call(1, {"a", nullptr}), "1 left a-,-");
  EXPECT_EQ(ann.load("NOWHERE"), "0 IE/004");
  EXPECT_EQ(ann.call(1, {nullptr}), "1 IE/003");
  EXPECT_EQ(ann.call(2), "2 26/000");
}

// 11 to 13.

TEST_F(WireSql, ATransactionEndsItsQueries) {
  fill(3'000);
  EXPECT_EQ(ann.begin(), "OK");
  EXPECT_EQ(ann.once(on("DELETE FROM % WHERE id = 1")), "changed 1");
  EXPECT_EQ(ann.run(on("SELECT id FROM %")).substr(0, 10), "2 rows 2|3");
  EXPECT_EQ(bob.once(on("SELECT count(*) FROM %")), "rows 3000");
  EXPECT_EQ(ann.commit(), "OK");
  EXPECT_EQ(ann.fetch(2, 10), "2 24/000");
  EXPECT_EQ(bob.once(on("SELECT count(*) FROM %")), "rows 2999");
  EXPECT_EQ(ann.rollback(), "0 25/000");
}

TEST_F(WireSql, AWriterWaitsForTheOther) {
  EXPECT_EQ(annClient.set("LOCK_WAIT", "0"), "OK");
  EXPECT_EQ(bob.begin(), "OK");
  EXPECT_EQ(bob.once(on("DELETE FROM %")), "changed 3");
  EXPECT_EQ(ann.once(on("INSERT INTO % VALUES(4, 'four')")).substr(0, 6), "IE/024");
  EXPECT_EQ(annClient.set("LOCK_WAIT", "30"), "OK");
  auto waits = std::async(std::launch::async,
                          [&] { return ann.once(on("INSERT INTO % VALUES(4, 'four')")); });
  EXPECT_EQ(bob.commit(), "OK");
  EXPECT_EQ(waits.get(), "changed 1");
  EXPECT_EQ(ann.once(on("SELECT id FROM %")), "rows 4");
}

// 16.

TEST_F(WireSql, FactsAboutTheTables) {
  EXPECT_EQ(ann.catalog("TABLES", {table}), "0 rows " + table + ",TABLE");
  EXPECT_EQ(ann.catalog("COLUMNS", {table, "n%"}),
            "0 rows " + table + ",name,2,12,TEXT,-,-,0,-,0,0,-");
  EXPECT_EQ(ann.catalog("PRIMARYKEYS", {table}), "0 rows " + table + ",id,1");
  EXPECT_EQ(ann.catalog("INDEXES", {table}), "0 rows");
  EXPECT_EQ(ann.catalog("PROCEDURES", {"J%"}), "0 rows JOIN");
  EXPECT_EQ(ann.catalog("TYPES", {"T%"}), "0 rows TEXT,12,',',1,0");
  EXPECT_EQ(ann.catalog("NOTHING"), "0 0A/000");
}

// Files.

TEST_F(WireSql, AFileIsATable) {
  annClient.run("CREATE-FILE WINES");
  annClient.write("DICT WINES", "NAME",
                  "D\xFE"
                  "1\xFE\xFE\xFE"
                  "20L\xFES");
  annClient.write("DICT WINES", "BOTTLED",
                  "D\xFE"
                  "2\xFE"
                  "DI\xFE\xFE"
                  "10R\xFES");
  annClient.write("DICT WINES", "GRAPE",
                  "D\xFE"
                  "3\xFE\xFE\xFE"
                  "20L\xFEM");
  annClient.write("WINES", "w1",
                  "Blend\xFE"
                  "366\xFEMerlot\xFD"
                  "Syrah");
  EXPECT_EQ(bob.once("SELECT * FROM WINES"), "rows w1,Blend,1968-12-31");
  EXPECT_EQ(bob.once("SELECT POS, VALUE FROM WINES__GRAPE WHERE ID = 'w1'"),
            "rows 1,Merlot|2,Syrah");
  EXPECT_EQ(bob.once("UPDATE WINES SET NAME = 'x'"), "42/000 1");
  EXPECT_EQ(bob.once("DELETE FROM nox_files"), "42/000 17");
}

// Limits.

TEST_F(WireSql, WhoMayOnlyReadMayNotWrite) {
  Client client(noxd->plainPort());
  ASSERT_EQ(client.logIn("reader", "just looking", "MAIN"), "OK");
  SqlCalls reader(client);
  EXPECT_EQ(reader.once(on("SELECT count(*) FROM %")), "rows 3");
  EXPECT_EQ(reader.compile(on("DELETE FROM %")), "0 42/000");
  EXPECT_EQ(reader.compile("CREATE TABLE Mine(x)"), "0 42/000");
}

TEST_F(WireSql, AStatementThatTakesTooLongIsEnded) {
  EXPECT_EQ(annClient.set("STATEMENT_TIMEOUT", "1"), "OK");
  const auto began = std::chrono::steady_clock::now();
  EXPECT_EQ(ann.once("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n)"
                     " SELECT max(i) FROM n"),
            "IE/001 9");
  EXPECT_NE(ann.message().find("too long"), std::string::npos);
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(30));
  EXPECT_EQ(ann.once("SELECT 1"), "rows 1");
}

TEST_F(WireSql, AnExpressionAsDeepAsItMayBeHasEnoughStack) {
  std::string deep = "SELECT 1";
  for (int i = 0; i < 490; ++i) deep += "+1";
  EXPECT_EQ(ann.once(deep), "rows 491");
  std::string nested = "1";
  for (int i = 0; i < 120; ++i) nested = "abs(" + nested + ")";
  const std::string answer = ann.once("SELECT " + nested);
  EXPECT_TRUE(answer == "rows 1" || answer.substr(0, 6) == "42/000") << answer;
  std::string unions = "SELECT 1";
  for (int i = 0; i < 499; ++i) unions += " UNION SELECT 1";
  EXPECT_EQ(ann.once(unions), "rows 1");
}

TEST_F(WireSql, AValueBeyondWhatAClientMayMakeIsRefused) {
  EXPECT_EQ(ann.once("SELECT length(zeroblob(100000000))").substr(0, 6), "IE/001");
  EXPECT_EQ(ann.once("SELECT zeroblob(20000000)").substr(0, 6), "22/001") << "more than a frame";
}

}  // namespace
}  // namespace nox::agent::test
