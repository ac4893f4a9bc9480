// Sort keys: texts that sort bytewise as the values do.
#include "agent/commands/sort_key.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace nox::agent::test {
namespace {

std::string keyOf(const std::string& values, bool asNumbers = false, bool descending = false) {
  std::string key;
  appendSortKey(key, values, asNumbers, descending);
  return key;
}

void expectAscending(const std::vector<std::string>& values, bool asNumbers) {
  for (std::size_t i = 1; i < values.size(); ++i) {
    EXPECT_LT(keyOf(values[i - 1], asNumbers), keyOf(values[i], asNumbers))
        << values[i - 1] << " and " << values[i];
    EXPECT_GT(keyOf(values[i - 1], asNumbers, true), keyOf(values[i], asNumbers, true))
        << values[i - 1] << " and " << values[i];
  }
}

TEST(SortKey, TextsSortBytewise) {
  expectAscending({"", std::string("\0", 1), std::string("\0a", 2), "\x01", "10", "9", "A", "A\xFD",
                   "A\xFD"
                   "B",
                   std::string("A\0", 2), "AA", "a", "é"},
                  false);
}

TEST(SortKey, NumbersSortByValueBetweenNothingAndText) {
  expectAscending({"", "-10", "-9.5", "0", "0.5", "9",
                   "9\xFD"
                   "1",
                   "10", "10x", "x"},
                  true);
}

TEST(SortKey, EqualNumbersHaveOneKey) {
  EXPECT_EQ(keyOf("1.50", true), keyOf("+01.5", true));
  EXPECT_NE(keyOf("1.50"), keyOf("1.5"));
}

TEST(SortKey, ValuesAreComparedOneAfterTheOther) {
  expectAscending({"A\xFD"
                   "9",
                   "A\xFD"
                   "9\xFD",
                   "B\xFD"
                   "1"},
                  false);
  expectAscending({"1\xFD"
                   "9",
                   "1\xFD"
                   "10"},
                  true);
}

TEST(SortKey, TheFirstItemDecidesBeforeTheSecond) {
  const auto keyOfTwo = [](const char* first, const char* second, bool secondDescends) {
    std::string key;
    appendSortKey(key, first, false, false);
    appendSortKey(key, second, false, secondDescends);
    return key;
  };
  EXPECT_LT(keyOfTwo("A", "Z", false), keyOfTwo("AA", "A", false));
  EXPECT_LT(keyOfTwo("A", "A", false), keyOfTwo("A", "B", false));
  EXPECT_GT(keyOfTwo("A", "A", true), keyOfTwo("A", "B", true));
  EXPECT_LT(keyOfTwo("A", "A", true), keyOfTwo("B", "B", true));
}

}  // namespace
}  // namespace nox::agent::test
