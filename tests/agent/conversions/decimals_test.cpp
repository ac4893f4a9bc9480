// MD: numbers with implied decimals.
#include <gtest/gtest.h>

#include <string>

#include "converted.h"

namespace nox::agent::test {
namespace {

TEST(DecimalConversion, ShowsTheDecimalsThatAreImplied) {
  EXPECT_EQ(shown("12345", "MD2"), "123.45");
  EXPECT_EQ(shown("5", "MD2"), "0.05");
  EXPECT_EQ(shown("-5", "MD2"), "-0.05");
  EXPECT_EQ(shown("0", "MD2"), "0.00");
  EXPECT_EQ(shown("12345", "MD0"), "12345");
}

TEST(DecimalConversion, ShowsOneNumberOfDecimalsAndImpliesAnother) {
  EXPECT_EQ(shown("12345", "MD20"), "12345.00");
  EXPECT_EQ(shown("12345", "MD24"), "1.23");
  EXPECT_EQ(shown("12355", "MD24"), "1.24");
  EXPECT_EQ(shown("12345", "MD02"), "123");
  EXPECT_EQ(shown("7", "MD90"), "7.000000000");
}

TEST(DecimalConversion, RoundsHalvesAwayFromZero) {
  EXPECT_EQ(shown("1.5", "MD00"), "2");
  EXPECT_EQ(shown("-1.5", "MD00"), "-2");
  EXPECT_EQ(shown("1.49999", "MD00"), "1");
  EXPECT_EQ(shown("999.995", "MD20"), "1000.00");
  EXPECT_EQ(shown("0.004", "MD20"), "0.00");
  EXPECT_EQ(shown("-0.004", "MD20"), "0.00");  // no negative zero
  EXPECT_EQ(shown("0.005", "MD20"), "0.01");
  EXPECT_EQ(shown("0.05", "MD00"), "0");
}

TEST(DecimalConversion, GroupsThousandsWithAComma) {
  EXPECT_EQ(shown("123456789", "MD2,"), "1,234,567.89");
  EXPECT_EQ(shown("12345", "MD2,"), "123.45");
  EXPECT_EQ(shown("-100000", "MD0,"), "-100,000");
  EXPECT_EQ(shown("1000", "MD0,"), "1,000");
}

TEST(DecimalConversion, ShowsADollar) {
  EXPECT_EQ(shown("123456", "MD2$"), "$1234.56");
  EXPECT_EQ(shown("-123456", "MD2,$"), "-$1,234.56");
}

TEST(DecimalConversion, ShowsNothingForZeroWithZ) {
  EXPECT_EQ(shown("0", "MD2Z"), "");
  EXPECT_EQ(shown("0.001", "MD20Z"), "");
  EXPECT_EQ(shown("1", "MD2Z"), "0.01");
  EXPECT_EQ(shown("0", "MD2,$Z"), "");
}

TEST(DecimalConversion, IsExactHoweverLongTheNumber) {
  const std::string nines(400, '9');
  EXPECT_EQ(shown(nines, "MD2"), nines.substr(2) + ".99");
  EXPECT_EQ(shown(nines + ".995", "MD20"), "1" + std::string(400, '0') + ".00");
  EXPECT_EQ(stored(nines + ".12", "MD2"), nines + "12");
}

TEST(DecimalConversion, TakesNumbersAsTheyMayBeWritten) {
  EXPECT_EQ(shown("+7", "MD0"), "7");
  EXPECT_EQ(shown("007", "MD0"), "7");
  EXPECT_EQ(shown(".5", "MD10"), "0.5");
  EXPECT_EQ(shown("5.", "MD10"), "5.0");
  EXPECT_EQ(shown("-0", "MD2"), "0.00");
}

TEST(DecimalConversion, ShowsOnlyNumbers) {
  for (const char* const data :
       {"x", "1e3", "1,000", "--1", "+", ".", "1.2.3", " 1", "0x10", "inf"}) {
    EXPECT_EQ(shown(data, "MD2"), kNoData) << data;
  }
}

TEST(DecimalConversion, ReadsWhatItShows) {
  EXPECT_EQ(stored("123.45", "MD2"), "12345");
  EXPECT_EQ(stored("0.05", "MD2"), "5");
  EXPECT_EQ(stored("-0.05", "MD2"), "-5");
  EXPECT_EQ(stored("7", "MD2"), "700");
  EXPECT_EQ(stored("1,234,567.89", "MD2,"), "123456789");
  EXPECT_EQ(stored("-$1,234.56", "MD2,$"), "-123456");
  EXPECT_EQ(stored("$-1,234.56", "MD2"), "-123456");
  EXPECT_EQ(stored("0", "MD2Z"), "0");
  EXPECT_EQ(stored("1.50", "MD20"), "1.5");
  EXPECT_EQ(stored("0.00", "MD20"), "0");
}

TEST(DecimalConversion, RoundsWhatItReadsToWhatItShowsOrImplies) {
  EXPECT_EQ(stored("123.456", "MD2"), "12346");
  EXPECT_EQ(stored("1.555", "MD20"), "1.56");
  EXPECT_EQ(stored("123.45", "MD02"), "12345");
  EXPECT_EQ(stored("-0.001", "MD2"), "0");
}

TEST(DecimalConversion, ReadsCommasOnlyBetweenGroupsOfThree) {
  EXPECT_EQ(stored("1,234", "MD0"), "1234");
  for (const char* const text : {"1,23", "1,2345", "1234,567", ",123", "1,,234", "1,234.5,6", "1,",
                                 "1,234,5", "12,34,567", "1.234,567"}) {
    EXPECT_EQ(stored(text, "MD2"), kNoData) << text;
  }
}

TEST(DecimalConversion, ReadsNothingElse) {
  for (const char* const text :
       {"x", "--1", "$$1", "-+1", "1-", "1$", "$", "-", "1 000", "1e3", ".", "$-"}) {
    EXPECT_EQ(stored(text, "MD2"), kNoData) << text;
  }
}

TEST(DecimalConversion, KnowsItsCodes) {
  for (const char* const code : {"MD", "MDX", "MD2X", "MD2,,", "MD2$$", "MD123", "MD-1", "md2"}) {
    EXPECT_EQ(shown("1", code), kNoCode) << code;
  }
}

}  // namespace
}  // namespace nox::agent::test
