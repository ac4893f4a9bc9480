// D: dates as day numbers, and as people write them.
#include <gtest/gtest.h>

#include "converted.h"

namespace nox::agent::test {
namespace {

TEST(DateConversion, ShowsDayMonthAndYear) {
  EXPECT_EQ(shown("0", "D"), "31 DEC 1967");
  EXPECT_EQ(shown("1", "D"), "01 JAN 1968");
  EXPECT_EQ(shown("-1", "D"), "30 DEC 1967");
  EXPECT_EQ(shown("+21550", "D"), "31 DEC 2026");
}

TEST(DateConversion, ShowsAsManyDigitsOfTheYearAsItIsTold) {
  EXPECT_EQ(shown("21550", "D4"), "31 DEC 2026");
  EXPECT_EQ(shown("21550", "D3"), "31 DEC 026");
  EXPECT_EQ(shown("21550", "D2"), "31 DEC 26");
  EXPECT_EQ(shown("21550", "D1"), "31 DEC 6");
  EXPECT_EQ(shown("21550", "D0"), "31 DEC");
}

TEST(DateConversion, ShowsNumbersWithASeparatorMonthFirst) {
  EXPECT_EQ(shown("21550", "D-"), "12-31-2026");
  EXPECT_EQ(shown("21550", "D4/"), "12/31/2026");
  EXPECT_EQ(shown("21550", "D2/"), "12/31/26");
  EXPECT_EQ(shown("21550", "D0."), "12.31");
}

TEST(DateConversion, ShowsTheDayFirstWithE) {
  EXPECT_EQ(shown("21550", "D/E"), "31/12/2026");
  EXPECT_EQ(shown("21550", "D2.E"), "31.12.26");
  EXPECT_EQ(shown("21550", "DE"), "31 DEC 2026");
}

TEST(DateConversion, ShowsIsoDates) {
  EXPECT_EQ(shown("21550", "DI"), "2026-12-31");
  EXPECT_EQ(shown("-718430", "DI"), "0001-01-01");
}

TEST(DateConversion, ShowsPartsOfADate) {
  EXPECT_EQ(shown("21550", "DW"), "4");  // a Thursday
  EXPECT_EQ(shown("21550", "DM"), "12");
  EXPECT_EQ(shown("21550", "DQ"), "4");
  EXPECT_EQ(shown("21550", "DJ"), "365");
  EXPECT_EQ(shown("1", "DQ"), "1");
}

TEST(DateConversion, ReachesFromYear1ToYear9999) {
  EXPECT_EQ(shown("-718430", "D"), "01 JAN 0001");
  EXPECT_EQ(shown("2933628", "D"), "31 DEC 9999");
  EXPECT_EQ(shown("-718431", "D"), kNoDate);
  EXPECT_EQ(shown("2933629", "D"), kNoDate);
  EXPECT_EQ(shown("99999999999999999999", "D"), kNoDate);
}

TEST(DateConversion, ShowsOnlyDayNumbers) {
  for (const char* const data : {"x", "1.5", "+", "-", "+-1", "1 ", " 1", "31 DEC 2026"}) {
    EXPECT_EQ(shown(data, "D"), kNoDate) << data;
  }
}

TEST(DateConversion, ReadsDaysAndMonthsByName) {
  for (const char* const text :
       {"31 DEC 2026", "31 dec 2026", "31-DEC-2026", "31DEC2026", "31 December 2026", "31/DEC/26",
        "DEC 31 2026", "December 31, 2026", "2026 DEC 31", " 31  DEC  2026 ", "31 - DEC - 2026"}) {
    EXPECT_EQ(stored(text, "D"), "21550") << text;
  }
  EXPECT_EQ(stored("1 JAN 1968", "D"), "1");
}

TEST(DateConversion, ReadsNumbersMonthFirst) {
  EXPECT_EQ(stored("12/31/2026", "D"), "21550");
  EXPECT_EQ(stored("12-31-26", "D2/"), "21550");
  EXPECT_EQ(stored("1.2.1968", "D-"), "2");
  EXPECT_EQ(stored("31/12/2026", "D/"), kNoDate);
}

TEST(DateConversion, ReadsNumbersDayFirstWithE) {
  EXPECT_EQ(stored("31/12/2026", "D/E"), "21550");
  EXPECT_EQ(stored("2.1.1968", "DE"), "2");
  EXPECT_EQ(stored("12/31/2026", "D/E"), kNoDate);
}

TEST(DateConversion, ReadsTheYearFirstWhenItHasFourDigits) {
  EXPECT_EQ(stored("2026-12-31", "DI"), "21550");
  EXPECT_EQ(stored("2026-12-31", "D"), "21550");
  EXPECT_EQ(stored("2026/1/2", "D/E"), "21187");
  EXPECT_EQ(stored("0001-01-01", "DI"), "-718430");
}

TEST(DateConversion, ReadsTwoDigitsAsAYearFrom1930To2029) {
  EXPECT_EQ(stored("1 JAN 29", "D"), stored("1 JAN 2029", "D"));
  EXPECT_EQ(stored("1 JAN 30", "D"), stored("1 JAN 1930", "D"));
  EXPECT_EQ(stored("1 JAN 00", "D"), stored("1 JAN 2000", "D"));
}

TEST(DateConversion, ReadsDatesAlsoWhereItShowsAPartOfThem) {
  for (const char* const code : {"DI", "DW", "DM", "DQ", "DJ", "D0"}) {
    EXPECT_EQ(stored("31 DEC 2026", code), "21550") << code;
  }
}

TEST(DateConversion, ReadsNothingElse) {
  for (const char* const text :
       {"31 DEC",      "DEC 2026",     "32 DEC 2026",    "29 FEB 2023", "0 JAN 2026",
        "31 DEX 2026", "31 DECE 2026", "31 12",          "12/31/202",   "1/1/20266",
        "12//31/2026", "12/31/2026x",  "DEC DEC 2026",   "31 2026 DEC", "-12/31/2026",
        "12/31/",      "/12/31/2026",  "31 DEC 2026 12", "2026",        "21550",
        "0/1/2026",    "1/0/2026",     "1/1/0000",       "111/1/2026",  "2026-001-1"}) {
    EXPECT_EQ(stored(text, "D"), kNoDate) << text;
  }
}

TEST(DateConversion, IsTheInverseOfItself) {
  for (const char* const code : {"D", "D4/", "D-E", "DI", "D4.E"}) {
    for (const char* const day : {"-718430", "-1", "0", "11748", "21550", "2933628"}) {
      EXPECT_EQ(stored(shown(day, code), code), day) << code;
    }
  }
}

TEST(DateConversion, KnowsItsCodes) {
  for (const char* const code :
       {"D5", "D12", "D--", "DX", "D4/I", "d", "D/4", "DIE", "D/EE", "D\x80"}) {
    EXPECT_EQ(shown("0", code), kNoCode) << code;
    EXPECT_EQ(stored("1 JAN 2026", code), kNoCode) << code;
  }
}

}  // namespace
}  // namespace nox::agent::test
