// What a client's SQL may not touch.
#include <sqlite3.h>

#include <memory>

#include "tests/agent/sql/sql_fixture.h"

namespace nox::agent::test {
namespace {

class SqlRefusalsTest : public SqlTest {
protected:
  SqlRefusalsTest() {
    ann_.run("CREATE-FILE F");
    ann_.write("F", "a", "alpha");
    sql_.once("CREATE TABLE t(x)");
  }

  /// As somebody with another program could change the account.
  void besideTheAgent(const char* statement) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(agent_.directory().file("accounts/MAIN.db").c_str(), &db), SQLITE_OK);
    const std::unique_ptr<sqlite3, int (*)(sqlite3*)> guard(db, sqlite3_close);
    ASSERT_EQ(sqlite3_exec(db, statement, nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(db);
  }
  /// The reason behind the catalogue's text.
  std::string reason(const char* statement) {
    const std::string answer = sql_.once(statement);
    if (answer.substr(0, 6) != "42/000") return answer;
    const std::string& message = sql_.message();
    const std::size_t begin = message.find(": ") + 2;
    return message.substr(begin, message.rfind(" (Status") - begin);
  }
};

TEST_F(SqlRefusalsTest, TransactionsAreNoStatements) {
  const char* const expected = "transactions are begun and ended by requests of their own";
  for (const char* const statement : {"BEGIN", "BEGIN IMMEDIATE", "COMMIT", "END", "ROLLBACK",
                                      "SAVEPOINT s", "RELEASE s", "ROLLBACK TO s"}) {
    EXPECT_EQ(reason(statement), expected) << statement;
  }
}

TEST_F(SqlRefusalsTest, PragmasAreRefused) {
  const char* const expected = "pragmas are no business of a client";
  EXPECT_EQ(reason("PRAGMA journal_mode = DELETE"), expected);
  EXPECT_EQ(reason("PRAGMA table_info(t)"), expected);
  EXPECT_EQ(reason("SELECT * FROM pragma_table_info('t')"), expected);
}

TEST_F(SqlRefusalsTest, OtherDatabasesAreRefused) {
  EXPECT_EQ(reason("ATTACH '/tmp/x.db' AS x"), "an account has one database");
  EXPECT_EQ(reason("DETACH main"), "an account has one database");
  EXPECT_EQ(reason("VACUUM"), "VACUUM is no business of a client");
  EXPECT_EQ(reason("vacuum INTO '/tmp/x.db'"), "VACUUM is no business of a client");
  EXPECT_EQ(reason("SELECT load_extension('x')"), "extensions cannot be loaded");
}

TEST_F(SqlRefusalsTest, TemporaryAndVirtualTablesAreRefused) {
  EXPECT_EQ(reason("CREATE TEMP TABLE x(y)"), "there are no temporary tables");
  EXPECT_EQ(reason("CREATE TABLE temp.x(y)"), "there are no temporary tables");
  EXPECT_EQ(reason("CREATE TEMP VIEW x AS SELECT 1"), "there are no temporary tables");
  EXPECT_EQ(reason("CREATE VIRTUAL TABLE x USING fts5(y)"), "there are no virtual tables");
}

TEST_F(SqlRefusalsTest, FilesAreNotWritten) {
  EXPECT_EQ(sql_.once("INSERT INTO F VALUES('b')"), "42/000 1");
  EXPECT_EQ(sql_.once("UPDATE F SET ID = 'b'"), "42/000 1");
  EXPECT_EQ(sql_.once("DELETE FROM F"), "42/000 1");
  EXPECT_EQ(ann_.read("F", "a"), "0 'alpha'");
}

TEST_F(SqlRefusalsTest, FilesAreNotDefinedThroughSql) {
  EXPECT_NE(sql_.once("DROP TABLE F").substr(0, 2), "ch");
  EXPECT_EQ(sql_.once("CREATE INDEX i ON F(ID)").substr(0, 6), "42/000");
  EXPECT_EQ(sql_.once("CREATE TRIGGER g AFTER INSERT ON F BEGIN SELECT 1; END").substr(0, 3),
            "42/");
  EXPECT_EQ(ann_.read("F", "a"), "0 'alpha'");
}

TEST_F(SqlRefusalsTest, TheTablesOfTheStoreAreItsOwn) {
  for (const char* const statement :
       {"SELECT * FROM nox_files", "SELECT * FROM NOX_XA", "SELECT body FROM nox_data_1",
        "INSERT INTO nox_data_1 VALUES('b', x'')", "UPDATE nox_data_1 SET body = x''",
        "DELETE FROM nox_files", "DROP TABLE nox_data_1", "ALTER TABLE nox_data_1 ADD COLUMN x",
        "CREATE INDEX i ON nox_data_1(body)",
        "CREATE TRIGGER g AFTER INSERT ON nox_data_1 BEGIN DELETE FROM t; END",
        "CREATE TABLE nox_data_2(x)", "CREATE VIEW nox_v AS SELECT 1",
        "ALTER TABLE t RENAME TO nox_data_2", "CREATE INDEX nox_i ON t(x)",
        "CREATE TABLE u(x REFERENCES nox_data_1(body))", "CREATE VIEW v AS SELECT * FROM NOX_FILES",
        "CREATE TRIGGER g AFTER INSERT ON t BEGIN DELETE FROM nox_data_1; END"}) {
    EXPECT_EQ(sql_.once(statement).substr(0, 6), "42/000") << statement;
  }
  EXPECT_EQ(ann_.read("F", "a"), "0 'alpha'");
}

TEST_F(SqlRefusalsTest, TheTablesOfTheStoreAreNotReachedThroughWhatIsThere) {
  besideTheAgent("CREATE VIEW v AS SELECT * FROM nox_files");
  EXPECT_EQ(sql_.once("SELECT * FROM v").substr(0, 6), "42/000");
  besideTheAgent("CREATE TRIGGER g AFTER INSERT ON t BEGIN DELETE FROM nox_data_1; END");
  EXPECT_EQ(sql_.once("INSERT INTO t VALUES(1)").substr(0, 6), "42/000");
  EXPECT_EQ(ann_.read("F", "a"), "0 'alpha'");
}

TEST_F(SqlRefusalsTest, AViewThatChangesBehindAStatementOpensNothing) {
  sql_.once("CREATE VIEW v AS SELECT 'own' AS name");
  ASSERT_EQ(sql_.compile("SELECT name FROM v"), "3 ok");
  besideTheAgent("DROP VIEW v");
  besideTheAgent("CREATE VIEW v AS SELECT name FROM nox_files");
  EXPECT_EQ(sql_.execute(3).substr(0, 8), "3 42/000");
}

TEST_F(SqlRefusalsTest, TheSchemaIsReadAndNotWritten) {
  EXPECT_EQ(sql_.once("SELECT type FROM sqlite_schema WHERE name = 't'"), "rows table");
  EXPECT_EQ(sql_.once("DELETE FROM sqlite_schema").substr(0, 6), "42/000");
  EXPECT_EQ(sql_.once("UPDATE sqlite_master SET sql = ''").substr(0, 6), "42/000");
}

TEST_F(SqlRefusalsTest, StatementsOfOthersAreNotSeen) {
  EXPECT_EQ(reason("SELECT * FROM sqlite_stmt"), "sqlite_stmt is the store's own");
  EXPECT_EQ(reason("SELECT * FROM dbstat"), "dbstat is the store's own");
}

TEST_F(SqlRefusalsTest, ATableDoesNotTakeTheNameOfAFile) {
  EXPECT_EQ(reason("CREATE TABLE f(x)"), "there is a file of the name f");
  EXPECT_EQ(reason("CREATE VIEW \"F\" AS SELECT 1"), "there is a file of the name F");
}

TEST_F(SqlRefusalsTest, TextsAndExpressionsHaveLimits) {
  StoreSession& store = ann_.session().store();
  EXPECT_THROW(store.prepare("SELECT '" + std::string(1'000'001, 'x') + "'", true), StoreError);
  EXPECT_THROW(store.prepare(std::string_view("SELECT 1\0 FROM t", 16), true), StoreError);
  std::string deep = "SELECT 1";
  for (int i = 0; i < 2'000; ++i) deep += "+1";
  EXPECT_EQ(sql_.once(deep).substr(0, 6), "42/000");
  EXPECT_EQ(
      sql_.once("SELECT " + std::string(5'000, '(') + "1" + std::string(5'000, ')')).substr(0, 6),
      "42/000");
  EXPECT_EQ(sql_.once("SELECT ?40000").substr(0, 6), "42/000");
  EXPECT_EQ(sql_.once("SELECT length(zeroblob(1000000000))").substr(0, 6), "IE/001");
}

TEST_F(SqlRefusalsTest, ABranchHoldsNoDefinitions) {
  EXPECT_EQ(sql_.once("CREATE TABLE keyed(k INTEGER PRIMARY KEY, v)"), "changed 0");
  EXPECT_EQ(ann_.xaStart("b"), "OK");
  EXPECT_EQ(sql_.once("CREATE TABLE u(x)").substr(0, 6), "0A/000");
  EXPECT_EQ(sql_.once("DROP TABLE t").substr(0, 6), "0A/000");
  EXPECT_EQ(sql_.once("INSERT INTO t VALUES(1)").substr(0, 6), "0A/000") << "t has no key";
  EXPECT_EQ(sql_.once("INSERT INTO keyed VALUES(1, 'one')"), "changed 1");
  EXPECT_EQ(ann_.xaEnd("b"), "OK");
  EXPECT_EQ(sql_.once("SELECT count(*) FROM keyed"), "rows 0");
  EXPECT_EQ(ann_.xaCommit("b"), "OK");
  EXPECT_EQ(sql_.once("SELECT v FROM keyed"), "rows one");
}

}  // namespace
}  // namespace nox::agent::test
