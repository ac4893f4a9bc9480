// What all conversions have in common: values one by one, codes one after the other.
#include "agent/conversions/conversions.h"

#include <gtest/gtest.h>

#include <string>

#include "converted.h"

namespace nox::agent::test {
namespace {

TEST(Conversion, ConvertsValuesOneByOneAndKeepsTheMarks) {
  EXPECT_EQ(shown("0\xFD"
                  "1\xFC"
                  "2\xFE"
                  "3",
                  "DI"),
            "1967-12-31\xFD"
            "1968-01-01\xFC"
            "1968-01-02\xFE"
            "1968-01-03");
}

TEST(Conversion, LeavesEmptyValuesEmpty) {
  for (const char* const code : {"D", "MT", "MD2", "MCU", "MX", "G1*1"}) {
    EXPECT_EQ(shown("", code), "") << code;
    EXPECT_EQ(stored("", code), "") << code;
    EXPECT_EQ(shown("\xFD\xFD\xFC\xFE", code), "\xFD\xFD\xFC\xFE") << code;
  }
}

TEST(Conversion, AppliesSeveralCodesFromLeftToRight) {
  EXPECT_EQ(shown("A*7*C", "G1*1\xFDMD2"), "0.07");
  EXPECT_EQ(shown("x31 y", "MCN\xFDMX"), "1F");
  EXPECT_EQ(stored("dec 31, 2026",
                   "MCU\xFD"
                   "D"),
            "21550");
}

TEST(Conversion, WithoutCodesLeavesDataAlone) {
  EXPECT_EQ(shown("a\xFE\x80", ""), "a\xFE\x80");
  EXPECT_TRUE(Conversion().empty());
  EXPECT_TRUE(Conversion("").empty());
}

TEST(Conversion, RefusesUnknownCodes) {
  for (const char* const code : {"X", "Z9", "D\xFDX", "\xFD", "D\xFD",
                                 "\xFD"
                                 "D",
                                 " D", "D "}) {
    EXPECT_EQ(shown("0", code), kNoCode) << code;
  }
}

TEST(Conversion, RefusesMoreCodesThanAnyoneNeeds) {
  std::string codes = "MCU";
  for (std::size_t i = 1; i < Conversion::kMostCodes; ++i) codes += "\xFDMCL";
  EXPECT_EQ(shown("A", codes), "a");
  EXPECT_EQ(shown("A", codes + "\xFDMCL"), kNoCode);
}

TEST(Conversion, OneBadValueFailsTheWhole) {
  EXPECT_EQ(shown("1\xFDx", "D"), kNoDate);
  EXPECT_EQ(shown("1\xFDx", "MD2"), kNoData);
}

TEST(Conversion, CanLeaveABadValueAsItIs) {
  const Conversion date("DI");
  EXPECT_EQ(date.applyWherePossible("0\xFDsoon\xFD"
                                    "1",
                                    Direction::Output),
            "1967-12-31\xFDsoon\xFD"
            "1968-01-01");
}

TEST(Conversion, ALaterCodeThatFailsLeavesTheValueAsItWas) {
  EXPECT_EQ(Conversion("MCU\xFDMD2").applyWherePossible("abc", Direction::Output), "abc");
}

TEST(Conversion, NamesTheValueAndCutsALongOne) {
  const auto reason = [](const std::string& data) {
    try {
      convert(data, "D", Direction::Output);
      return std::string();
    } catch (const Failure& failure) {
      return failure.reason();
    }
  };
  EXPECT_EQ(reason("soon"), "\"soon\" is no day number");
  EXPECT_EQ(reason(std::string(59, 'x') + "é" + std::string(100, 'y')),
            "\"" + std::string(59, 'x') + "...\" is no day number");
}

}  // namespace
}  // namespace nox::agent::test
