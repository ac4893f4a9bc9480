// What values are compared by: as numbers or bytewise, and with patterns.
#include "agent/commands/filter.h"

#include <gtest/gtest.h>

#include <string>

namespace nox::agent::test {
namespace {

TEST(CompareValues, ComparesNumbersAsNumbers) {
  EXPECT_EQ(compareValues("9", "10"), -1);
  EXPECT_EQ(compareValues("10.0", "10"), 0);
  EXPECT_EQ(compareValues("-1", "-2"), 1);
  EXPECT_EQ(compareValues("9007199254740993", "9007199254740992"), 1);
}

TEST(CompareValues, ComparesBytewiseWhereOneIsNoNumber) {
  EXPECT_EQ(compareValues("9", "10x"), 1);
  EXPECT_EQ(compareValues("abc", "abd"), -1);
  EXPECT_EQ(compareValues("", "0"), -1);
  EXPECT_EQ(compareValues("", ""), 0);
  EXPECT_EQ(compareValues("z", "é"), -1);
  EXPECT_EQ(compareValues("a", "B"), 1);
}

TEST(Like, ThreeDotsStandForAnyText) {
  EXPECT_TRUE(isLike("Oslo", "Os..."));
  EXPECT_TRUE(isLike("Oslo", "...lo"));
  EXPECT_TRUE(isLike("Oslo", "...sl..."));
  EXPECT_TRUE(isLike("Oslo", "O...o"));
  EXPECT_TRUE(isLike("Oslo", "..."));
  EXPECT_TRUE(isLike("", "..."));
  EXPECT_TRUE(isLike("Oslo", "......"));
  EXPECT_TRUE(isLike("Oslo", "Oslo..."));
  EXPECT_FALSE(isLike("Oslo", "os..."));
  EXPECT_FALSE(isLike("Oslo", "...l"));
  EXPECT_FALSE(isLike("Oslo", "...x..."));
}

TEST(Like, WithoutDotsIsEquality) {
  EXPECT_TRUE(isLike("Oslo", "Oslo"));
  EXPECT_FALSE(isLike("Oslo", "Osl"));
  EXPECT_FALSE(isLike("Oslo", "Osl.."));
}

TEST(Like, PartsDoNotOverlap) {
  EXPECT_FALSE(isLike("aba", "ab...ba"));
  EXPECT_TRUE(isLike("abba", "ab...ba"));
  EXPECT_TRUE(isLike("abcabc", "...abc"));
  EXPECT_TRUE(isLike("xaxbxc", "...a...b...c"));
  EXPECT_FALSE(isLike("xbxaxc", "...a...b...c"));
}

TEST(Like, TakesLinearTimeOnPatternsThatAlmostMatch) {
  const std::string text(20'000, 'a');
  std::string pattern = "...";
  for (int i = 0; i < 300; ++i) pattern += "a...";
  EXPECT_FALSE(isLike(text, pattern + "b"));
}

}  // namespace
}  // namespace nox::agent::test
