// Characters of UTF-8 text.
#include "agent/conversions/characters.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace nox::agent::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> split(std::string_view text) {
  std::vector<std::string> characters;
  for (Characters c(text); c; c.next()) characters.emplace_back(c.bytes());
  return characters;
}

TEST(Characters, AreWalkedOneByOne) {
  EXPECT_THAT(split("aé日😀"), ElementsAre("a", "é", "日", "😀"));
  EXPECT_THAT(split(""), IsEmpty());
}

TEST(Characters, AStrayByteIsOneOfItsOwn) {
  EXPECT_THAT(split("a\xFD"
                    "b\xC3"),
              ElementsAre("a", "\xFD", "b", "\xC3"));
  EXPECT_EQ(Characters("\xFD").value(), Characters::kNone);
}

TEST(Characters, ChangeTheirCaseOneForOne) {
  EXPECT_EQ(toUpper(U'é'), U'É');
  EXPECT_EQ(toLower(U'Σ'), U'σ');
  EXPECT_EQ(toUpper(U'ß'), U'ß');
  EXPECT_EQ(toUpper(U'i'), U'I');  // in every locale
  EXPECT_EQ(toUpper(Characters::kNone), Characters::kNone);
}

TEST(Characters, LettersAreThoseOfAnyScript) {
  EXPECT_TRUE(isLetter(U'x'));
  EXPECT_TRUE(isLetter(U'Ж'));
  EXPECT_TRUE(isLetter(U'日'));
  EXPECT_FALSE(isLetter(U'7'));
  EXPECT_FALSE(isLetter(U' '));
  EXPECT_FALSE(isLetter(Characters::kNone));
}

TEST(Characters, TakeTheColumnsThatATerminalGivesThem) {
  EXPECT_EQ(columnsOf("Oslo"), 4u);
  EXPECT_EQ(columnsOf("Tromsø"), 6u);
  EXPECT_EQ(columnsOf("東京"), 4u);
  EXPECT_EQ(columnsOf("e\u0301"), 1u);  // a letter and the accent that combines with it
  EXPECT_EQ(columnsOf("\xFD"), 1u);
}

TEST(Characters, CaseCountsForAsciiLettersOnlyInKeywords) {
  EXPECT_TRUE(equalsIgnoringCase("By-Dsnd", "BY-DSND"));
  EXPECT_FALSE(equalsIgnoringCase("é", "É"));
  EXPECT_FALSE(equalsIgnoringCase("WITH", "WITHIN"));
}

}  // namespace
}  // namespace nox::agent::test
