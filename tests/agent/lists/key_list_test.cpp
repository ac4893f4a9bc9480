#include "agent/lists/key_list.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace nox::agent::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

KeyList numbered(std::size_t count) {
  KeyList keys;
  for (std::size_t i = 0; i < count; ++i) keys.add("key" + std::to_string(i));
  return keys;
}

TEST(KeyList, IsEmptyAtFirst) {
  const KeyList keys;
  EXPECT_EQ(keys.size(), 0u);
  EXPECT_THAT(keys.read(0, 10), IsEmpty());
}

TEST(KeyList, GivesKeysFromAPositionOn) {
  const KeyList keys = numbered(5);
  EXPECT_EQ(keys.size(), 5u);
  EXPECT_THAT(keys.read(0, 2), ElementsAre("key0", "key1"));
  EXPECT_THAT(keys.read(3, 1), ElementsAre("key3"));
}

TEST(KeyList, GivesNoMoreThanThereAre) {
  const KeyList keys = numbered(3);
  EXPECT_THAT(keys.read(2, 100), ElementsAre("key2"));
  EXPECT_THAT(keys.read(3, 100), IsEmpty());
  EXPECT_THAT(keys.read(1000, 1), IsEmpty());
}

TEST(KeyList, KeepsKeysInTheOrderInWhichTheyCame) {
  KeyList keys;
  for (const char* key : {"B", "A", "B", "\xC3\xA4"}) keys.add(key);
  EXPECT_THAT(keys.read(0, 10), ElementsAre("B", "A", "B", "\xC3\xA4"));
}

TEST(KeyList, ALongListReadsLikeAShortOne) {
  const KeyList keys = numbered(KeyList::kMostInMemory + 3);
  EXPECT_EQ(keys.size(), KeyList::kMostInMemory + 3);
  EXPECT_THAT(keys.read(0, 2), ElementsAre("key0", "key1"));
  EXPECT_THAT(keys.read(KeyList::kMostInMemory - 1, 3),
              ElementsAre("key99999", "key100000", "key100001"));
  EXPECT_THAT(keys.read(KeyList::kMostInMemory + 2, 10), ElementsAre("key100002"));
  EXPECT_THAT(keys.read(KeyList::kMostInMemory + 3, 10), IsEmpty());
}

TEST(KeyList, ALongListIsReadFromAnywhereToAnywhere) {
  const std::size_t size = KeyList::kMostInMemory + 700;
  const KeyList keys = numbered(size);
  for (const std::size_t first : {0u, 1u, 255u, 256u, 257u, 511u, 99'999u, 100'352u, 100'699u}) {
    for (const std::size_t count : {1u, 2u, 255u, 256u, 257u, 1000u}) {
      std::vector<std::string> expected;
      for (std::size_t i = first; i < std::min(first + count, size); ++i) {
        expected.push_back("key" + std::to_string(i));
      }
      EXPECT_EQ(keys.read(first, count), expected) << count << " from " << first;
    }
  }
}

TEST(KeyList, ALongListKeepsKeysOfAnyLength) {
  KeyList keys = numbered(KeyList::kMostInMemory);
  const std::string longKey(255, 'x');
  for (const std::string& key : {std::string(), longKey, std::string("a\0b", 3)}) keys.add(key);
  EXPECT_THAT(keys.read(KeyList::kMostInMemory, 10),
              ElementsAre("", longKey, std::string("a\0b", 3)));
}

TEST(KeyList, AListAtTheLimitStaysInMemory) {
  const KeyList keys = numbered(KeyList::kMostInMemory);
  EXPECT_THAT(keys.read(KeyList::kMostInMemory - 1, 10), ElementsAre("key99999"));
}

TEST(KeyList, ACopyHasTheSameKeys) {
  const KeyList keys = numbered(3);
  const KeyList copy(keys);  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_THAT(copy.read(0, 10), ElementsAre("key0", "key1", "key2"));
}

TEST(KeyList, AddingToACopyLeavesTheOtherAlone) {
  KeyList keys = numbered(2);
  KeyList copy = keys;
  copy.add("more");
  EXPECT_THAT(keys.read(0, 10), ElementsAre("key0", "key1"));
  keys.add("else");
  EXPECT_THAT(copy.read(0, 10), ElementsAre("key0", "key1", "more"));
  EXPECT_THAT(keys.read(0, 10), ElementsAre("key0", "key1", "else"));
}

TEST(KeyList, AddingToACopyOfALongListLeavesTheOtherAlone) {
  const KeyList keys = numbered(KeyList::kMostInMemory + 1);
  KeyList copy = keys;
  copy.add("more");
  EXPECT_EQ(keys.size(), KeyList::kMostInMemory + 1);
  EXPECT_THAT(copy.read(KeyList::kMostInMemory, 10), ElementsAre("key100000", "more"));
}

TEST(KeyList, MovingLeavesAnEmptyList) {
  KeyList keys = numbered(2);
  const KeyList moved = std::move(keys);
  EXPECT_EQ(moved.size(), 2u);
  EXPECT_EQ(keys.size(), 0u);  // NOLINT(bugprone-use-after-move): its state is promised
  keys.add("again");
  EXPECT_THAT(keys.read(0, 10), ElementsAre("again"));
}

}  // namespace
}  // namespace nox::agent::test
