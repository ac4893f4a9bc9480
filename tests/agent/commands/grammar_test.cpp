// The command language: what a line asks for, and how one that asks for nothing is refused.
#include "agent/commands/grammar.h"

#include <gtest/gtest.h>

#include <string>
#include <variant>
#include <vector>

#include "agent/failure.h"

namespace nox::agent::test {
namespace {

/// Writes a command as it was understood, with all that is optional made plain.
struct Describe {
  static std::string condition(const Condition& condition) {
    static constexpr const char* kSigns[] = {"", "=", "#", "<", "<=", ">", ">=", "LIKE"};
    const std::string sign = kSigns[static_cast<int>(condition.comparison)];
    if (sign.empty()) return condition.item.text;
    return condition.item.text + sign + "{" + condition.literal.text + "}";
  }

  static std::string target(const Target& target) {
    std::string text = target.file.text();
    for (const std::string& id : target.ids) text += " '" + id + "'";
    for (const With& with : target.with) {
      text += with.every ? " every(" : " with(";
      for (const auto& conditions : with.alternatives) {
        if (&conditions != &with.alternatives.front()) text += " or ";
        for (const Condition& one : conditions) {
          if (&one != &conditions.front()) text += " and ";
          text += condition(one);
        }
      }
      text += ")";
    }
    for (const By& by : target.by) text += (by.descending ? " down:" : " up:") + by.item.text;
    return text;
  }

  static std::string yes(bool confirmed) { return confirmed ? " yes" : ""; }

  std::string operator()(const CreateFileCommand& c) const { return "create " + c.file; }
  std::string operator()(const DeleteFileCommand& c) const {
    return "delete " + c.file + yes(c.confirmed);
  }
  std::string operator()(const ClearFileCommand& c) const {
    return "clear " + c.file + yes(c.confirmed);
  }
  std::string operator()(const ListFilesCommand&) const { return "files"; }
  std::string operator()(const ListCommand& c) const {
    std::string text = "list " + target(c.target);
    for (const Word& item : c.items) text += " +" + item.text;
    if (!c.headings) text += " no-headings";
    if (!c.ids) text += " no-ids";
    if (c.first) text += " first " + std::to_string(*c.first);
    return text;
  }
  std::string operator()(const CountCommand& c) const { return "count " + target(c.target); }
  std::string operator()(const SelectCommand& c) const { return "select " + target(c.target); }
  std::string operator()(const SaveListCommand& c) const { return "save " + c.name; }
  std::string operator()(const GetListCommand& c) const { return "get " + c.name; }
  std::string operator()(const DeleteListCommand& c) const { return "delete-list " + c.name; }
  std::string operator()(const ClearSelectCommand&) const { return "clear-select"; }
  std::string operator()(const WhoCommand&) const { return "who"; }
  std::string operator()(const DateCommand&) const { return "date"; }
  std::string operator()(const TimeCommand&) const { return "time"; }
  std::string operator()(const RunCommand& c) const {
    std::string text = "run " + c.subroutine.text;
    for (const std::string& argument : c.arguments) text += " {" + argument + "}";
    return text;
  }
};

/// What the line asks for, or why it is refused.
std::string understood(const std::string& line) {
  try {
    return std::visit(Describe(), parseCommand(line));
  } catch (const Failure& failure) {
    const std::string state = failure.state().sqlClass + "/" + failure.state().sqlSubClass;
    return state == "IE/011" ? "refused: " + failure.reason() : state;
  }
}

TEST(Grammar, VerbsAreUnderstoodInAnyCase) {
  EXPECT_EQ(understood("CREATE-FILE CUSTOMERS"), "create CUSTOMERS");
  EXPECT_EQ(understood("create-file customers"), "create customers");
  EXPECT_EQ(understood("LISTF"), "files");
  EXPECT_EQ(understood("Who"), "who");
  EXPECT_EQ(understood("DATE"), "date");
  EXPECT_EQ(understood("TIME"), "time");
  EXPECT_EQ(understood("CLEARSELECT"), "clear-select");
}

TEST(Grammar, WordsAreSplitAtBlanks) {
  EXPECT_EQ(understood("  COUNT \t CUSTOMERS  "), "count CUSTOMERS");
}

TEST(Grammar, ListsAreSavedByName) {
  EXPECT_EQ(understood("SAVE-LIST MINE"), "save MINE");
  EXPECT_EQ(understood("GET-LIST MINE"), "get MINE");
  EXPECT_EQ(understood("DELETE-LIST MINE"), "delete-list MINE");
}

TEST(Grammar, FilesAreDeletedAndClearedWithOrWithoutAYes) {
  EXPECT_EQ(understood("DELETE-FILE OLD"), "delete OLD");
  EXPECT_EQ(understood("DELETE-FILE OLD (Y"), "delete OLD yes");
  EXPECT_EQ(understood("DELETE-FILE OLD (y)"), "delete OLD yes");
  EXPECT_EQ(understood("CLEAR-FILE OLD"), "clear OLD");
  EXPECT_EQ(understood("CLEAR-FILE OLD (Y"), "clear OLD yes");
}

TEST(Grammar, SubroutinesRunWithArguments) {
  EXPECT_EQ(understood("RUN TAX"), "run TAX");
  EXPECT_EQ(understood("RUN TAX 12.5 \"two words\" 'quoted' (Y WITH"),
            "run TAX {12.5} {two words} {quoted} {(Y} {WITH}");
}

TEST(Grammar, ATargetIsAFileOrItsDictionary) {
  EXPECT_EQ(understood("COUNT CUSTOMERS"), "count CUSTOMERS");
  EXPECT_EQ(understood("COUNT DICT CUSTOMERS"), "count DICT CUSTOMERS");
  EXPECT_EQ(understood("count dict CUSTOMERS"), "count DICT CUSTOMERS");
}

TEST(Grammar, ATargetNamesIds) {
  EXPECT_EQ(understood("SELECT CUSTOMERS '1' 'two words''3'"),
            "select CUSTOMERS '1' 'two words' '3'");
}

TEST(Grammar, AnIdIsCheckedLikeAnyOther) {
  EXPECT_EQ(understood("SELECT CUSTOMERS ''"), "22/021");
  EXPECT_EQ(understood("SELECT CUSTOMERS '" + std::string(256, 'x') + "'"), "22/001");
}

TEST(Grammar, ConditionsCompareAnItemWithALiteral) {
  EXPECT_EQ(understood("COUNT C WITH A = 1"), "count C with(A={1})");
  EXPECT_EQ(understood("COUNT C WITH A # 1"), "count C with(A#{1})");
  EXPECT_EQ(understood("COUNT C WITH A < 1"), "count C with(A<{1})");
  EXPECT_EQ(understood("COUNT C WITH A <= 1"), "count C with(A<={1})");
  EXPECT_EQ(understood("COUNT C WITH A > 1"), "count C with(A>{1})");
  EXPECT_EQ(understood("COUNT C WITH A >= 1"), "count C with(A>={1})");
  EXPECT_EQ(understood("COUNT C WITH A like ...x"), "count C with(ALIKE{...x})");
}

TEST(Grammar, ALiteralIsAWordOrATextInDoubleQuotes) {
  EXPECT_EQ(understood("COUNT C WITH A = \"two words\""), "count C with(A={two words})");
  EXPECT_EQ(understood("COUNT C WITH A = \"\""), "count C with(A={})");
  EXPECT_EQ(understood("COUNT C WITH A = O'NEIL"), "count C with(A={O'NEIL})");
  EXPECT_EQ(understood("COUNT C WITH A = BY"), "count C with(A={BY})");
  EXPECT_EQ(understood("COUNT C WITH A = 'x'"),
            "refused: \"x\" at character 18: a word or a text in double quotes was expected");
}

TEST(Grammar, ABareItemIsACondition) {
  EXPECT_EQ(understood("COUNT C WITH A"), "count C with(A)");
  EXPECT_EQ(understood("COUNT C WITH A AND B OR D"), "count C with(A and B or D)");
}

TEST(Grammar, AndBindsBeforeOr) {
  const Command command = parseCommand("COUNT C WITH A = 1 OR B = 2 AND D = 3 OR E");
  const With& with = std::get<CountCommand>(command).target.with.at(0);
  ASSERT_EQ(with.alternatives.size(), 3u);
  EXPECT_EQ(with.alternatives[0].size(), 1u);
  EXPECT_EQ(with.alternatives[1].size(), 2u);
  EXPECT_EQ(with.alternatives[2].size(), 1u);
}

TEST(Grammar, SeveralWithClausesStandSideBySide) {
  EXPECT_EQ(understood("COUNT C WITH A OR B WITH EVERY D = 1 OR E"),
            "count C with(A or B) every(D={1} or E)");
}

TEST(Grammar, TargetsAreOrderedByItems) {
  EXPECT_EQ(understood("SELECT C BY A BY-DSND B"), "select C up:A down:B");
  EXPECT_EQ(understood("SELECT C by A by-dsnd B"), "select C up:A down:B");
}

TEST(Grammar, SortAndSselectOrderByTheIdAtTheEnd) {
  EXPECT_EQ(understood("SORT C BY A NAME"), "list C up:A up:@ID +NAME");
  EXPECT_EQ(understood("SSELECT C WITH A BY-DSND B"), "select C with(A) down:B up:@ID");
  EXPECT_EQ(understood("SORT C"), "list C up:@ID");
}

TEST(Grammar, ListsShowItemsUnderOptions) {
  EXPECT_EQ(understood("LIST C"), "list C");
  EXPECT_EQ(understood("LIST C NAME AGE"), "list C +NAME +AGE");
  EXPECT_EQ(understood("LIST C NAME HDR-SUPP ID-SUPP FIRST 10"),
            "list C +NAME no-headings no-ids first 10");
  EXPECT_EQ(understood("LIST C hdr-supp id-supp first 10"), "list C no-headings no-ids first 10");
}

TEST(Grammar, ClausesItemsAndOptionsStandInAnyOrder) {
  EXPECT_EQ(understood("LIST C NAME WITH A = 1 AGE FIRST 2 BY B ID-SUPP CITY"),
            "list C with(A={1}) up:B +NAME +AGE +CITY no-ids first 2");
}

TEST(Grammar, AnItemMayBeCalledFirst) {
  EXPECT_EQ(understood("LIST C FIRST LAST"), "list C +FIRST +LAST");
  EXPECT_EQ(understood("LIST C FIRST FIRST 3"), "list C +FIRST first 3");
  EXPECT_EQ(understood("LIST C FIRST"), "list C +FIRST");
}

TEST(Grammar, OnlyListsShowItems) {
  EXPECT_EQ(understood("COUNT C NAME"),
            "refused: \"NAME\" at character 9: nothing more was expected");
  EXPECT_EQ(understood("SELECT C ID-SUPP"),
            "refused: \"ID-SUPP\" at character 10: nothing more was expected");
}

TEST(Grammar, ErrorsNameTheWordAndItsPlace) {
  EXPECT_EQ(understood("LOST C"), "refused: \"LOST\" at character 1: there is no such command");
  EXPECT_EQ(understood("LIST ../x"),
            "refused: \"../x\" at character 6: the name of a file was expected");
  EXPECT_EQ(understood("LIST \"C\""),
            "refused: \"C\" at character 6: the name of a file was expected");
  EXPECT_EQ(understood("LIST C WITH AND"),
            "refused: \"AND\" at character 13: the name of an item was expected");
  EXPECT_EQ(understood("LIST C BY \"A\""),
            "refused: \"A\" at character 11: the name of an item was expected");
  EXPECT_EQ(understood("LIST C NAME '1'"),
            "refused: \"1\" at character 13: the name of an item was expected");
  EXPECT_EQ(understood("SAVE-LIST a/b"),
            "refused: \"a/b\" at character 11: the name of a list was expected");
  EXPECT_EQ(understood("WHO am i"), "refused: \"am\" at character 5: nothing more was expected");
  EXPECT_EQ(understood("DELETE-FILE C (N"),
            "refused: \"(N\" at character 15: nothing more was expected");
}

TEST(Grammar, PlacesCountCharactersNotBytes) {
  EXPECT_EQ(understood("LIST C WITH A = \"Tromsø\" \"x\""),
            "refused: \"x\" at character 26: the name of an item was expected");
}

TEST(Grammar, ErrorsSayWhatIsMissingAtTheEnd) {
  EXPECT_EQ(understood(""), "refused: the command is empty");
  EXPECT_EQ(understood("   "), "refused: the command is empty");
  EXPECT_EQ(understood("LIST"),
            "refused: the command ends too early: the name of a file was expected");
  EXPECT_EQ(understood("LIST DICT"),
            "refused: the command ends too early: the name of a file was expected");
  EXPECT_EQ(understood("LIST C WITH"),
            "refused: the command ends too early: the name of an item was expected");
  EXPECT_EQ(understood("LIST C WITH A ="),
            "refused: the command ends too early: a word or a text in double quotes was expected");
  EXPECT_EQ(understood("LIST C WITH A OR"),
            "refused: the command ends too early: the name of an item was expected");
  EXPECT_EQ(understood("RUN"),
            "refused: the command ends too early: the name of a subroutine was expected");
  EXPECT_EQ(understood("LIST C FIRST 99999999999999999999"),
            "refused: \"99999999999999999999\" at character 14: the number is too large");
}

TEST(Grammar, QuotesAreClosed) {
  EXPECT_EQ(understood("LIST C 'abc"), "refused: \"'abc\" at character 8: the quote is not closed");
  EXPECT_EQ(understood("LIST C WITH A = \"abc"),
            "refused: \"\"abc\" at character 17: the quote is not closed");
}

TEST(Grammar, ALineIsOneLineOfText) {
  EXPECT_EQ(understood("LIST C\nLIST D"),
            "refused: a command is one line, without control characters");
  EXPECT_EQ(understood("LIST C\xFELIST D"), "refused: a command is UTF-8 text, without marks");
  EXPECT_EQ(understood(std::string("LIST C\0", 7)),
            "refused: a command is one line, without control characters");
}

TEST(Grammar, WhatALineAsksForIsBounded) {
  std::string conditions = "COUNT C WITH A";
  for (std::size_t i = 1; i < kMostConditions; ++i) conditions += i % 2 == 0 ? " AND A" : " OR A";
  EXPECT_EQ(understood(conditions).substr(0, 7), "count C");
  EXPECT_NE(understood(conditions + " AND A").find("256 conditions at most"), std::string::npos);

  std::string items = "LIST C";
  for (std::size_t i = 0; i < kMostItems; ++i) items += " A";
  EXPECT_EQ(understood(items).substr(0, 6), "list C");
  EXPECT_NE(understood(items + " A").find("256 items at most"), std::string::npos);

  std::string order = "SELECT C";
  for (std::size_t i = 0; i <= kMostItems; ++i) order += " BY A";
  EXPECT_NE(understood(order).find("256 items at most"), std::string::npos);

  EXPECT_EQ(understood("RUN X " + std::string(kLongestCommand, 'x')),
            "refused: a command has at most 1 MiB");
}

}  // namespace
}  // namespace nox::agent::test
