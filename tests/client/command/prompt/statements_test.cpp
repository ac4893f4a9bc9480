#include "client/command/prompt/statements.h"

#include <gtest/gtest.h>

#include "client/command/context.h"

namespace nox::command {
namespace {

using Kind = Statement::Kind;

bool isFile(const std::string& name) { return name == "ORDERS"; }

void expectStatement(std::string_view line, Kind kind, const std::string& text) {
  StatementReader reader(isFile);
  const auto statement = reader.add(line);
  ASSERT_TRUE(statement) << line;
  EXPECT_EQ(statement->kind, kind) << line;
  EXPECT_EQ(statement->text, text);
  EXPECT_FALSE(reader.isOpen());
}

TEST(Statements, OfTheCommandLanguageAreLines) {
  expectStatement("LIST ORDERS WITH TOTAL > 100", Kind::Command, "LIST ORDERS WITH TOTAL > 100");
  expectStatement("  who\r", Kind::Command, "who");
}

TEST(Statements, EndedByASemicolonAreSql) {
  expectStatement("SELECT * FROM ORDERS;", Kind::Sql, "SELECT * FROM ORDERS");
  expectStatement("select 1 ; ", Kind::Sql, "select 1 ");
}

TEST(Statements, OfSqlMayTakeSeveralLines) {
  StatementReader reader(isFile);
  EXPECT_FALSE(reader.add("INSERT INTO t"));
  EXPECT_TRUE(reader.isOpen());
  EXPECT_FALSE(reader.add("VALUES (1,"));
  const auto statement = reader.add("2);");
  ASSERT_TRUE(statement);
  EXPECT_EQ(statement->kind, Kind::Sql);
  EXPECT_EQ(statement->text, "INSERT INTO t\nVALUES (1,\n2)");
  EXPECT_FALSE(reader.isOpen());
}

TEST(Statements, SelectIsACommandWhereOnlyAFileAndClausesFollow) {
  expectStatement("SELECT ORDERS", Kind::Command, "SELECT ORDERS");
  expectStatement("SELECT DICT ORDERS", Kind::Command, "SELECT DICT ORDERS");
  expectStatement("select orders with TOTAL > 5", Kind::Command, "select orders with TOTAL > 5");
  expectStatement("SELECT ORDERS BY TOTAL", Kind::Command, "SELECT ORDERS BY TOTAL");
  expectStatement("SELECT ORDERS '1' '2'", Kind::Command, "SELECT ORDERS '1' '2'");
  for (const char* line : {"SELECT *", "SELECT a, b", "SELECT DISTINCT a", "SELECT a FROM t",
                           "select count(*) from t"}) {
    StatementReader reader(isFile);
    EXPECT_FALSE(reader.add(line)) << line;
    EXPECT_TRUE(reader.isOpen()) << line;
  }
}

TEST(Statements, SelectWithAWordThatIsNoFileIsSql) {
  StatementReader reader(isFile);
  EXPECT_FALSE(reader.add("SELECT ID"));
  const auto statement = reader.add("FROM ORDERS;");
  ASSERT_TRUE(statement);
  EXPECT_EQ(statement->kind, Kind::Sql);
  EXPECT_EQ(statement->text, "SELECT ID\nFROM ORDERS");
  EXPECT_FALSE(reader.add("select orders")) << "capital letters are others";
}

TEST(Statements, OfSqlGoOnBehindASemicolonInAQuotation) {
  StatementReader reader(isFile);
  EXPECT_FALSE(reader.add("INSERT INTO t VALUES ('a;"));
  EXPECT_FALSE(reader.add("b;"));
  const auto statement = reader.add("c');");
  ASSERT_TRUE(statement);
  EXPECT_EQ(statement->text, "INSERT INTO t VALUES ('a;\nb;\nc')");
}

TEST(Statements, OfSqlGoOnBehindASemicolonInATrigger) {
  StatementReader reader(isFile);
  EXPECT_FALSE(reader.add("CREATE TRIGGER g AFTER INSERT ON t BEGIN"));
  EXPECT_FALSE(reader.add("  DELETE FROM u;"));
  EXPECT_FALSE(reader.add("  DELETE FROM v;"));
  const auto statement = reader.add("END;");
  ASSERT_TRUE(statement);
  EXPECT_EQ(statement->text,
            "CREATE TRIGGER g AFTER INSERT ON t BEGIN\n  DELETE FROM u;\n  DELETE FROM v;\nEND");
}

TEST(Statements, OfSqlMayHaveCommentsBehindTheirEnd) {
  expectStatement("SELECT 3; -- done", Kind::Sql, "SELECT 3");
  expectStatement("SELECT 3; -- done; and over;", Kind::Sql, "SELECT 3");
  expectStatement("SELECT ';' ; /* done; */ ", Kind::Sql, "SELECT ';' ");
  expectStatement(";", Kind::Sql, "");
  StatementReader reader(isFile);
  EXPECT_FALSE(reader.add("SELECT 3; /* it is"));
  const auto statement = reader.add("done */");
  ASSERT_TRUE(statement);
  EXPECT_EQ(statement->text, "SELECT 3");
}

TEST(Statements, OfSqlDoNotEndWithAComment) {
  StatementReader reader(isFile);
  EXPECT_FALSE(reader.add("SELECT 3 -- not done;"));
  const auto statement = reader.add(";");
  ASSERT_TRUE(statement);
  EXPECT_EQ(statement->text, "SELECT 3 -- not done;\n");
}

TEST(Statements, OfTheCommandLanguageMayHoldSemicolons) {
  expectStatement("LIST ORDERS WITH NAME = 'a;b'", Kind::Command, "LIST ORDERS WITH NAME = 'a;b'");
  expectStatement("LIST ORDERS WITH NAME = 'a;", Kind::Command, "LIST ORDERS WITH NAME = 'a;");
}

TEST(Statements, WithABackslashAreThePromptsOwn) {
  expectStatement("\\q", Kind::Meta, "q");
  expectStatement(" \\read ORDERS 10 ", Kind::Meta, "read ORDERS 10");
}

TEST(Statements, AreNeitherCommentsNorEmptyLines) {
  StatementReader reader(isFile);
  for (const char* line : {"", "   ", "# a comment", "-- a comment;"}) {
    EXPECT_FALSE(reader.add(line)) << line;
    EXPECT_FALSE(reader.isOpen()) << line;
  }
}

TEST(Statements, ThatWereBegunCanBeDropped) {
  StatementReader reader(isFile);
  reader.add("SELECT *");
  EXPECT_EQ(reader.drop(), "SELECT *");
  EXPECT_FALSE(reader.isOpen());
}

TEST(SplitWords, HoldsQuotationsTogether) {
  EXPECT_EQ(splitWords("read  ORDERS 'a b' \"c'd\" x'y z'"),
            (std::vector<std::string>{"read", "ORDERS", "a b", "c'd", "xy z"}));
  EXPECT_EQ(splitWords("write F ''"), (std::vector<std::string>{"write", "F", ""}));
  EXPECT_TRUE(splitWords("  ").empty());
  EXPECT_THROW(splitWords("write F 'x"), UsageError);
}

TEST(UpperCase, IsOfAsciiAlone) { EXPECT_EQ(upperCase("select ıiß"), "SELECT ıIß"); }

}  // namespace
}  // namespace nox::command
