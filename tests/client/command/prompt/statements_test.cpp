#include "client/command/prompt/statements.h"

#include <gtest/gtest.h>

#include "client/command/context.h"

namespace nox::command {
namespace {

using Kind = Statement::Kind;

void expectStatement(std::string_view line, Kind kind, const std::string& text) {
  StatementReader reader;
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
  StatementReader reader;
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
    StatementReader reader;
    EXPECT_FALSE(reader.add(line)) << line;
    EXPECT_TRUE(reader.isOpen()) << line;
  }
}

TEST(Statements, WithABackslashAreThePromptsOwn) {
  expectStatement("\\q", Kind::Meta, "q");
  expectStatement(" \\read ORDERS 10 ", Kind::Meta, "read ORDERS 10");
}

TEST(Statements, AreNeitherCommentsNorEmptyLines) {
  StatementReader reader;
  for (const char* line : {"", "   ", "# a comment", "-- a comment;"}) {
    EXPECT_FALSE(reader.add(line)) << line;
    EXPECT_FALSE(reader.isOpen()) << line;
  }
}

TEST(Statements, ThatWereBegunCanBeDropped) {
  StatementReader reader;
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
