#include "agent/store/sqlite/sql_text.h"

#include <gtest/gtest.h>

namespace nox::agent {
namespace {

TEST(SqlText, BlanksCommentsAndSemicolonsAreSkipped) {
  EXPECT_EQ(withoutLeadingBlanks(" \t\r\n\f;; -- one\n/* two */SELECT 1 ;"), "SELECT 1 ;");
  EXPECT_EQ(withoutLeadingBlanks("- 1"), "- 1");
  EXPECT_EQ(withoutLeadingBlanks("/ 1"), "/ 1");
}

TEST(SqlText, ACommentMayLackItsEnd) {
  EXPECT_EQ(withoutLeadingBlanks(" -- one"), "");
  EXPECT_EQ(withoutLeadingBlanks("/* one"), "");
  EXPECT_EQ(withoutLeadingBlanks("/*/ one */x"), "x");
  EXPECT_EQ(withoutLeadingBlanks("/*"), "");
  EXPECT_EQ(withoutLeadingBlanks("--"), "");
}

TEST(SqlText, TheFirstWordIsInCapitals) {
  EXPECT_EQ(firstWord("Vacuum into"), "VACUUM");
  EXPECT_EQ(firstWord("vacuum;"), "VACUUM");
  EXPECT_EQ(firstWord("(SELECT"), "");
  EXPECT_EQ(firstWord(""), "");
}

TEST(SqlText, NamesAreQuoted) {
  EXPECT_EQ(quotedName("a \"b\""), "\"a \"\"b\"\"\"");
  EXPECT_EQ(quotedName(""), "\"\"");
}

}  // namespace
}  // namespace nox::agent
