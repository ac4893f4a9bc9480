// Decimal numbers as text.
#include "agent/conversions/numbers.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "agent/conversions/conversions.h"

namespace nox::agent::test {
namespace {

/// From the lowest to the highest.
const std::vector<std::string>& ascending() {
  static const std::vector<std::string> numbers = {
      "-1" + std::string(300, '0'),
      "-1000.5",
      "-1000.25",
      "-999",
      "-10",
      "-9.99",
      "-2",
      "-1.000000000000000000001",
      "-1",
      "-.5",
      "-0.05",
      "-0.0499",
      "-0." + std::string(300, '0') + "1",
      "0",
      "0." + std::string(300, '0') + "1",
      "0.0499",
      ".05",
      "0.5",
      "1",
      "1.000000000000000000001",
      "2",
      "9.99",
      "10",
      "999",
      "1000.25",
      "1000.5",
      "9007199254740993",  // beyond what a double tells apart from its neighbours
      "9007199254740994",
      "1" + std::string(300, '0'),
  };
  return numbers;
}

TEST(Numbers, AreSignDigitsAndPoint) {
  for (const char* const text : {"0", "-1", "+1", "1.5", ".5", "5.", "-.5", "007"}) {
    EXPECT_TRUE(isNumber(text)) << text;
  }
  for (const char* const text : {"", "-", "+", ".", "-.", "1e3", "1,000", " 1", "1 ", "--1",
                                 "1.2.3", "0x1", "nan", "1\xFD"}) {
    EXPECT_FALSE(isNumber(text)) << text;
  }
}

TEST(Numbers, CompareByValueWhateverTheirLength) {
  const std::vector<std::string>& numbers = ascending();
  for (std::size_t a = 0; a < numbers.size(); ++a) {
    for (std::size_t b = 0; b < numbers.size(); ++b) {
      EXPECT_EQ(compareNumbers(numbers[a], numbers[b]), a < b ? -1 : (a > b ? 1 : 0))
          << numbers[a] << " and " << numbers[b];
    }
  }
}

TEST(Numbers, AreEqualHoweverTheyAreWritten) {
  for (const char* const text : {"1.5", "+1.5", "01.50", "1.500"}) {
    EXPECT_EQ(compareNumbers(text, "1.5"), 0) << text;
    EXPECT_EQ(sortableNumber(text), sortableNumber("1.5")) << text;
  }
  for (const char* const text : {"0", "-0", "+0.00", "000", ".0", "0."}) {
    EXPECT_EQ(compareNumbers(text, "0"), 0) << text;
    EXPECT_EQ(sortableNumber(text), sortableNumber("0")) << text;
  }
  EXPECT_EQ(sortableNumber("100"), sortableNumber("0100.0"));
}

TEST(Numbers, SortableTextsSortAsTheNumbersDo) {
  const std::vector<std::string>& numbers = ascending();
  for (std::size_t i = 1; i < numbers.size(); ++i) {
    EXPECT_LT(sortableNumber(numbers[i - 1]), sortableNumber(numbers[i]))
        << numbers[i - 1] << " and " << numbers[i];
  }
}

TEST(Numbers, NoSortableTextBeginsAnother) {
  const std::vector<std::string>& numbers = ascending();
  for (const std::string& a : numbers) {
    for (const std::string& b : numbers) {
      if (&a == &b) continue;
      const std::string text = sortableNumber(a);
      EXPECT_NE(sortableNumber(b).substr(0, text.size()), text) << a << " and " << b;
    }
  }
}

TEST(Numbers, AreTakenApartAndShifted) {
  std::optional<Decimal> number = parseDecimal("-012.340");
  ASSERT_TRUE(number);
  EXPECT_TRUE(number->negative);
  EXPECT_EQ(wholeDigits(*number), "12");
  EXPECT_EQ(fractionDigits(*number), "34");
  multiply(*number, 3);
  EXPECT_EQ(wholeDigits(*number), "12340");
  EXPECT_EQ(fractionDigits(*number), "");
  divide(*number, 6);
  EXPECT_EQ(wholeDigits(*number), "0");
  EXPECT_EQ(fractionDigits(*number), "012340");
  EXPECT_FALSE(parseDecimal("12a"));
}

TEST(Numbers, ZeroStaysZeroWhereverItIsShifted) {
  std::optional<Decimal> zero = parseDecimal("0.00");
  ASSERT_TRUE(zero);
  multiply(*zero, 5);
  EXPECT_TRUE(zero->isZero());
  EXPECT_EQ(wholeDigits(*zero), "0");
  divide(*zero, 2);
  EXPECT_EQ(fractionDigits(*zero), "00");
}

}  // namespace
}  // namespace nox::agent::test
