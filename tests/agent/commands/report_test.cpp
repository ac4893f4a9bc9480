// What LIST prints: columns side by side.
#include "agent/commands/report.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "agent/failure.h"
#include "agent/scripting/subroutine.h"

namespace nox::agent::test {
namespace {

constexpr std::size_t kPlenty = 1'000'000;

/// "^" stands for the attribute mark, "]" for the value mark.
std::string marked(std::string text) {
  std::replace(text.begin(), text.end(), '^', '\xFE');
  std::replace(text.begin(), text.end(), ']', '\xFD');
  return text;
}

Item item(const std::string& name, const std::string& definition) {
  return Item(name, parseDefinition(marked(definition)), nullptr);
}

std::vector<Item> items(std::vector<std::pair<std::string, std::string>> definitions) {
  std::vector<Item> made;
  for (const auto& [name, definition] : definitions) made.push_back(item(name, definition));
  return made;
}

/// The lines with a line feed behind each.
std::string print(const std::vector<Item>& columns, const std::vector<std::string>& rows,
                  bool headings = true, std::size_t most = kPlenty) {
  Report report(columns, headings, most);
  for (const std::string& row : rows) report.add(marked(row));
  std::string text = report.text();
  if (text.empty()) return text;
  std::replace(text.begin(), text.end(), '\xFE', '\n');
  return text + "\n";
}

TEST(Report, SetsColumnsSideBySide) {
  EXPECT_EQ(print(items({{"@ID", "D^0^^^5L"}, {"NAME", "D^1^^Name^8L"}, {"AGE", "D^2^^Age^4R"}}),
                  {"1^Ann^42", "22^Bob^7"}),
            "@ID   Name      Age\n"
            "1     Ann        42\n"
            "22    Bob         7\n");
}

TEST(Report, LeavesTheHeadingsOut) {
  EXPECT_EQ(print(items({{"A", "D^1^^^3L"}, {"B", "D^2^^^3R"}}), {"x^1"}, false), "x     1\n");
}

TEST(Report, FitsColumnsWithoutAFormatToTheirValues) {
  EXPECT_EQ(print(items({{"A", "D^1"}, {"NAME", "D^2"}}), {"x^Ann", "longer^Bob"}),
            "A      NAME\n"
            "x      Ann\n"
            "longer Bob\n");
}

TEST(Report, CutsColumnsWithoutAFormatAtFortyButForTheLast) {
  const std::string letters(45, 'x');
  EXPECT_EQ(print(items({{"A", "D^1"}, {"B", "D^2"}}), {letters + "^" + letters}, false),
            letters.substr(0, 40) + " " + letters + "\n" + "xxxxx\n");
}

TEST(Report, GoesOnInTheNextLineWhereAValueIsTooLong) {
  EXPECT_EQ(print(items({{"A", "D^1^^^4L"}, {"B", "D^2^^^3R"}}), {"abcdefghij^12345"}, false),
            "abcd 123\n"
            "efgh  45\n"
            "ij\n");
}

TEST(Report, GivesEachValueALine) {
  EXPECT_EQ(print(items({{"A", "D^1^^^3L^M"}, {"B", "D^2^^^3R^M"}, {"C", "D^3^^^5L"}}),
                  {"x]y]z^1]2^same", "^^", "]a^^"}, false),
            "x     1 same\n"
            "y     2\n"
            "z\n"
            "\n"
            "\n"
            "a\n");
}

TEST(Report, GivesEachValueOfAHeadingALine) {
  EXPECT_EQ(print(items({{"A", "D^1^^First]name^8L"}, {"B", "D^2^^Age^5R"}}), {"Ann^42"}),
            "First      Age\n"
            "name\n"
            "Ann         42\n");
}

TEST(Report, ShowsMarksOfASinglevaluedItemAsTheyAre) {
  EXPECT_EQ(print(items({{"A", "D^1^^^5L"}, {"B", "D^2^^^3L"}}), {"a]b^c"}, false),
            "a\xFD"
            "b   c\n");
}

TEST(Report, CountsWhatATerminalShows) {
  EXPECT_EQ(print(items({{"CITY", "D^1^^^6L"}, {"N", "D^2^^^2R"}}),
                  {"Tromsø^1", "東京^2", "e\u0301^3", "東京都庁^4"}, false),
            "Tromsø  1\n"
            "東京    2\n"
            "e\u0301       3\n"
            "東京都  4\n"
            "庁\n");
}

TEST(Report, AWideCharacterInANarrowColumnStillAppears) {
  EXPECT_EQ(print(items({{"A", "D^1^^^1L"}, {"B", "D^2^^^1L"}}), {"東京^x"}, false), "東 x\n京\n");
}

TEST(Report, WritesNoBlanksAtTheEndOfALine) {
  EXPECT_EQ(
      print(items({{"A", "D^1^^^5L"}, {"B", "D^2^^^5R"}, {"C", "D^3^^^5L"}}), {"x^^", "^^"}, false),
      "x\n\n");
}

TEST(Report, WithoutColumnsPrintsNothing) { EXPECT_EQ(print({}, {"", ""}), ""); }

TEST(Report, WithoutRowsPrintsTheHeadings) {
  EXPECT_EQ(print(items({{"A", "D^1"}, {"B", "D^2^^^3R"}}), {}), "A   B\n");
}

TEST(Report, RefusesRowsThatNoFrameHolds) {
  Report report(items({{"A", "D^1"}}), true, 1000);
  const std::string row(100, 'x');
  EXPECT_THROW(
      {
        for (int i = 0; i < 11; ++i) report.add(row);
      },
      Failure);
}

TEST(Report, RefusesATextThatNoFrameHoldsHoweverShortItsRowsAre) {
  // A thousand values, each in a line that begins with some hundred blanks.
  std::string values(999, ']');
  EXPECT_THROW(
      print(items({{"A", "D^1^^^900L"}, {"B", "D^2^^^5L^M"}}), {"^x" + values + "y"}, false, 2'000),
      Failure);
  std::string filled = "^x";
  for (int i = 0; i < 999; ++i) filled += "]x";
  EXPECT_THROW(print(items({{"A", "D^1^^^900L"}, {"B", "D^2^^^5L^M"}}), {filled}, false, 100'000),
               Failure);
}

}  // namespace
}  // namespace nox::agent::test
