// Sorting in memory, and through a file when there is more.
#include "agent/commands/sorter.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

namespace nox::agent::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::size_t kPlentyOfMemory = 1'000'000;

std::vector<std::string> drain(Sorter& sorter) {
  std::vector<std::string> contents;
  while (sorter.next()) contents.emplace_back(sorter.content());
  return contents;
}

TEST(Sorter, GivesEntriesByTheirKeys) {
  Sorter sorter(kPlentyOfMemory);
  sorter.add("b", "second");
  sorter.add("c", "third");
  sorter.add("a", "first");
  EXPECT_THAT(drain(sorter), ElementsAre("first", "second", "third"));
  EXPECT_EQ(sorter.runs(), 0u);
}

TEST(Sorter, KeepsTheOrderOfEqualKeys) {
  Sorter sorter(kPlentyOfMemory);
  sorter.add("a", "1");
  sorter.add("a", "2");
  sorter.add("a", "3");
  EXPECT_THAT(drain(sorter), ElementsAre("1", "2", "3"));
}

TEST(Sorter, OfNothingGivesNothing) {
  Sorter sorter(kPlentyOfMemory);
  EXPECT_THAT(drain(sorter), IsEmpty());
  EXPECT_FALSE(sorter.next());
}

TEST(Sorter, SortsMoreThanItsMemoryHoldsAndStaysStable) {
  // Enough for some hundred entries at a time, of which many have the same key.
  constexpr std::size_t kMemory = 64 * 1024;
  constexpr int kEntries = 20'000;
  Sorter sorter(kMemory);
  std::vector<std::pair<std::string, std::string>> expected;
  unsigned int random = 1;
  for (int i = 0; i < kEntries; ++i) {
    random = random * 1103515245 + 12345;
    const std::string key = std::to_string(random / 65536 % 500);
    const std::string content = std::to_string(i) + std::string(random / 65536 % 40, 'x');
    sorter.add(key, content);
    expected.emplace_back(key, content);
  }
  std::stable_sort(expected.begin(), expected.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  for (const auto& [key, content] : expected) {
    ASSERT_TRUE(sorter.next());
    ASSERT_EQ(sorter.content(), content) << key;
  }
  EXPECT_FALSE(sorter.next());
  EXPECT_GT(sorter.runs(), 10u);
}

TEST(Sorter, TakesEntriesThatAreLargerThanItsMemory) {
  Sorter sorter(1024);
  const std::string large(300'000, 'x');
  sorter.add("b", large);
  sorter.add("c", "");
  sorter.add("a", "small");
  sorter.add(std::string(100'000, 'b'), "long key");
  EXPECT_THAT(drain(sorter), ElementsAre("small", large, "long key", ""));
}

TEST(Sorter, KeysAndContentsAreAnyBytes) {
  Sorter sorter(1);
  sorter.add(std::string("\xFF\0", 2), std::string("\0\xFE", 2));
  sorter.add(std::string("\0", 1), "");
  EXPECT_THAT(drain(sorter), ElementsAre("", std::string("\0\xFE", 2)));
}

}  // namespace
}  // namespace nox::agent::test
