#include "nox/protocol/sql/sql_statement.h"

#include <gtest/gtest.h>

#include "tests/protocol/sql/statement_double.h"

namespace nox {
namespace {

TEST(SQLStatement, StartsWithoutIdResultSetOrOverride) {
  test::StatementDouble statement;
  EXPECT_EQ(statement.getId(), 0);
  EXPECT_EQ(statement.getResultSet(), nullptr);
  EXPECT_EQ(statement.getCursorType(), 0);
  EXPECT_EQ(statement.getFetchSize(), 1000ul);
  EXPECT_EQ(statement.get_overide_fetch_size(), 0);
  EXPECT_EQ(statement.getLastError().getMsg(), "No error.");
  EXPECT_EQ(statement.getErrorMessage(), "");
}

TEST(SQLStatement, KeepsWhatItIsGiven) {
  test::StatementDouble statement;
  noxp::sql::ResultSetProt set;
  statement.become(7, &set);
  statement.setCursorType(1);
  statement.setFetchSize(5);
  statement.set_overide_fetch_size(3);
  statement.getLastError() = SQLExtError("42", "000", "bad");
  statement.getErrorMessage() = "text";
  EXPECT_EQ(statement.getId(), 7);
  EXPECT_EQ(statement.getResultSet(), &set);
  EXPECT_EQ(statement.getCursorType(), 1);
  EXPECT_EQ(statement.getFetchSize(), 5ul);
  EXPECT_EQ(statement.get_overide_fetch_size(), 3);
  EXPECT_EQ(statement.getLastError().getMsg(), "bad");
  EXPECT_EQ(statement.getErrorMessage(), "text");
}

}  // namespace
}  // namespace nox
