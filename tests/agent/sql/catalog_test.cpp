// Facts about the account's tables, as requests ask for them.
#include <algorithm>

#include "tests/agent/sql/sql_fixture.h"

namespace nox::agent::test {
namespace {

class SqlCatalogTest : public SqlTest {
protected:
  explicit SqlCatalogTest(const AgentInProcess::Change& change = {}) : SqlTest(change) {
    ann_.run("CREATE-FILE BOOKS");
    ann_.write("DICT BOOKS", "TITLE", record({"D", "1", "", "", "", "S"}));
    ann_.write("DICT BOOKS", "PRICE", record({"D", "2", "MD2", "", "9R", "S"}));
    ann_.write("DICT BOOKS", "AUTHOR", record({"D", "3", "", "", "", "M"}));
    sql_.once(
        "CREATE TABLE town(id INTEGER PRIMARY KEY AUTOINCREMENT,"
        " name VARCHAR(30) NOT NULL DEFAULT 'x', tax DECIMAL(8,2), UNIQUE(name, tax))");
    sql_.once("CREATE TABLE visit(day TEXT, town INTEGER, note, PRIMARY KEY(town, day))");
    sql_.once("CREATE VIEW big AS SELECT name FROM town");
  }
};

TEST_F(SqlCatalogTest, TablesViewsAndFilesAreTables) {
  EXPECT_EQ(sql_.catalog("TABLES"),
            "0 rows big,VIEW|town,TABLE|visit,TABLE|BOOKS,FILE|BOOKS__AUTHOR,FILE");
}

TEST_F(SqlCatalogTest, NamesAreChosenByPatterns) {
  EXPECT_EQ(sql_.catalog("TABLES", {"b%"}), "0 rows big,VIEW|BOOKS,FILE|BOOKS__AUTHOR,FILE");
  EXPECT_EQ(sql_.catalog("TABLES", {"BOOKS\\_\\_%"}), "0 rows BOOKS__AUTHOR,FILE");
  EXPECT_EQ(sql_.catalog("TABLES", {"tow_"}), "0 rows town,TABLE");
  EXPECT_EQ(sql_.catalog("TABLES", {""}), sql_.catalog("TABLES", {"%"}));
  EXPECT_EQ(sql_.catalog("TABLES", {nullptr}), sql_.catalog("TABLES"));
  EXPECT_EQ(sql_.catalog("TABLES", {"none"}), "0 rows");
}

TEST_F(SqlCatalogTest, ColumnsOfTables) {
  EXPECT_EQ(sql_.catalog("COLUMNS", {"town"}),
            "0 rows town,id,1,4,INTEGER,-,-,1,-,1,0,-"
            "|town,name,2,12,VARCHAR(30),30,-,0,'x',0,0,-"
            "|town,tax,3,2,DECIMAL(8,2),8,2,1,-,0,0,-");
  EXPECT_EQ(sql_.catalog("COLUMNS", {"big"}), "0 rows big,name,1,12,VARCHAR(30),30,-,1,-,0,1,-");
  EXPECT_EQ(sql_.catalog("COLUMNS", {"%", "note"}), "0 rows visit,note,3,12,TEXT,-,-,1,-,0,0,-");
}

TEST_F(SqlCatalogTest, ColumnsOfFiles) {
  EXPECT_EQ(sql_.catalog("COLUMNS", {"BOOKS"}),
            "0 rows BOOKS,ID,1,12,TEXT,-,-,0,-,0,1,-"
            "|BOOKS,TITLE,2,12,TEXT,-,-,0,-,0,1,-"
            "|BOOKS,PRICE,3,2,NUMERIC,-,-,0,-,0,1,MD2");
  EXPECT_EQ(sql_.catalog("COLUMNS", {"BOOKS\\_\\_AUTHOR"}),
            "0 rows BOOKS__AUTHOR,ID,1,12,TEXT,-,-,0,-,0,1,-"
            "|BOOKS__AUTHOR,POS,2,4,INTEGER,-,-,0,-,0,1,-"
            "|BOOKS__AUTHOR,VALUE,3,12,TEXT,-,-,0,-,0,1,-");
}

TEST_F(SqlCatalogTest, AViewOfAFileHasColumns) {
  sql_.once("CREATE VIEW titles AS SELECT ID AS book, TITLE FROM BOOKS");
  ClientInProcess bob(agent_);
  EXPECT_EQ(SqlCalls(bob).catalog("COLUMNS", {"titles"}),
            "0 rows titles,book,1,12,TEXT,-,-,1,-,0,1,-|titles,TITLE,2,12,TEXT,-,-,1,-,0,1,-");
}

TEST_F(SqlCatalogTest, AViewThatLostItsTableHasNone) {
  sql_.once("DROP TABLE town");
  EXPECT_EQ(sql_.catalog("COLUMNS", {"big"}), "0 rows");
  EXPECT_EQ(sql_.catalog("TABLES", {"big"}), "0 rows big,VIEW");
}

TEST_F(SqlCatalogTest, PrimaryKeys) {
  EXPECT_EQ(sql_.catalog("PRIMARYKEYS"),
            "0 rows town,id,1|visit,town,1|visit,day,2|BOOKS,ID,1|BOOKS__AUTHOR,ID,1"
            "|BOOKS__AUTHOR,POS,2");
  EXPECT_EQ(sql_.catalog("PRIMARYKEYS", {"town"}), "0 rows town,id,1");
}

TEST_F(SqlCatalogTest, Indexes) {
  sql_.once("CREATE INDEX notes ON visit(lower(note), day)");
  EXPECT_EQ(sql_.catalog("INDEXES"),
            "0 rows town,sqlite_autoindex_town_1,1,1,name|town,sqlite_autoindex_town_1,1,2,tax"
            "|visit,notes,0,1,-|visit,notes,0,2,day"
            "|visit,sqlite_autoindex_visit_1,1,1,town|visit,sqlite_autoindex_visit_1,1,2,day");
  EXPECT_EQ(sql_.catalog("INDEXES", {"visit", "n%"}),
            "0 rows visit,notes,0,1,-|visit,notes,0,2,day");
}

TEST_F(SqlCatalogTest, ProceduresAreTheSubroutines) {
  EXPECT_EQ(sql_.catalog("PROCEDURES"), "0 rows");
  ann_.run("CREATE-FILE NOX.SUBS");
  ann_.write("NOX.SUBS", "TWICE", "args[1] = args[1] .. args[1]");
  ann_.write("NOX.SUBS", "NONE", "");
  EXPECT_EQ(sql_.catalog("PROCEDURES"), "0 rows NONE|TWICE");
  EXPECT_EQ(sql_.catalog("PROCEDURES", {"T%"}), "0 rows TWICE");
}

TEST_F(SqlCatalogTest, Types) {
  EXPECT_EQ(sql_.catalog("TYPES"),
            "0 rows BLOB,2004,x',',0,1|INTEGER,4,-,-,0,0|NUMERIC,2,-,-,0,0|REAL,8,-,-,0,0"
            "|TEXT,12,',',1,0");
}

TEST_F(SqlCatalogTest, WhatIsNoPropertyIsRefused) {
  EXPECT_EQ(sql_.catalog("TRIGGERS"), "0 0A/000");
  EXPECT_EQ(sql_.catalog("tables"), "0 0A/000");
  EXPECT_EQ(sql_.catalog(""), "0 0A/000");
}

TEST_F(SqlCatalogTest, ItsColumnsAreDescribedUnderTheIdZero) {
  EXPECT_EQ(sql_.describe(0), "0 26/000");
  sql_.catalog("PRIMARYKEYS");
  EXPECT_EQ(sql_.describe(0), "0 columns TABLE_NAME:12 COLUMN_NAME:12 KEY_SEQ:12 parameters");
  EXPECT_EQ(sql_.fetch(0, 10), "0 rows");
}

TEST_F(SqlCatalogTest, WhatATransactionDefinedIsSeenInIt) {
  ASSERT_EQ(sql_.begin(), "OK");
  sql_.once("CREATE TABLE fresh(x)");
  EXPECT_EQ(sql_.catalog("TABLES", {"fresh"}), "0 rows fresh,TABLE");
  ASSERT_EQ(sql_.rollback(), "OK");
  EXPECT_EQ(sql_.catalog("TABLES", {"fresh"}), "0 rows");
}

class SqlSmallCatalogTest : public SqlCatalogTest {
protected:
  SqlSmallCatalogTest()
      : SqlCatalogTest([](ConfigurationValues& values) { values.maxFrame = 4'096; }) {}
};

TEST_F(SqlSmallCatalogTest, WhatDoesNotFitIntoTheReplyIsFetched) {
  for (int i = 0; i < 60; ++i) {
    sql_.once("CREATE TABLE wide_name_of_a_table_" + std::to_string(1'000 + i) + "(x, y)");
  }
  EXPECT_EQ(sql_.fetch(0, 10), "0 26/000");
  std::size_t rows = 0;
  for (std::string batch = sql_.catalog("TABLES", {"wide%"}); batch != "0 rows";
       batch = sql_.fetch(0, 1'000)) {
    ASSERT_EQ(batch.substr(0, 7), "0 rows ");
    rows += 1 + static_cast<std::size_t>(std::count(batch.begin(), batch.end(), '|'));
  }
  EXPECT_EQ(rows, 60u);
}

}  // namespace
}  // namespace nox::agent::test
