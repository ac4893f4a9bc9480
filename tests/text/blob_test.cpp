#include "nox/text/blob.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string>

#include "tests/support/bytes.h"

namespace nox::test {
namespace {

constexpr std::size_t kTooLarge = std::numeric_limits<std::size_t>::max();

bool setSizeUnfilled(NOXPBlob& blob, std::size_t n);
template <bool (NOXPBlob::*Member)(std::size_t)>
struct SetSizeAccess {
  friend bool setSizeUnfilled(NOXPBlob& blob, std::size_t n) { return (blob.*Member)(n); }
};
template struct SetSizeAccess<&NOXPBlob::setSizeUnfilled>;

std::string contentOf(const NOXPBlob& blob) {
  return blob.length() == 0
             ? std::string()
             : std::string(reinterpret_cast<const char*>(blob.getBuf()), blob.length());
}

bool isInside(const NOXPBlob& blob) {
  const auto* begin = reinterpret_cast<const unsigned char*>(&blob);
  return blob.getBuf() >= begin && blob.getBuf() < begin + sizeof blob;
}

std::string pattern(std::size_t n) {
  std::string text;
  for (std::size_t i = 0; i < n; ++i) text += static_cast<char>('A' + i % 23);
  return text;
}

TEST(Blob, IsEmptyWithoutABufferAtFirst) {
  const NOXPBlob blob;
  EXPECT_EQ(blob.length(), 0u);
  EXPECT_EQ(blob.getBuf(), nullptr);
}

TEST(Blob, HasABufferAfterAnyGrowth) {
  NOXPBlob resized;
  resized.setSize(0);
  EXPECT_NE(resized.getBuf(), nullptr);
  const NOXPBlob copy{NOXPBlob()};
  EXPECT_NE(NOXPBlob(copy).getBuf(), nullptr);
  EXPECT_NE(NOXPBlob("").getBuf(), nullptr);
}

TEST(Blob, TakesTheBytesOfACStringWithoutItsTerminator) {
  EXPECT_EQ(contentOf(NOXPBlob("abc")), "abc");
}

TEST(Blob, TakesBytesWithNuls) {
  EXPECT_BYTES(contentOf(NOXPBlob("a\0\xFE", 3)), bytes("61 00 FE"));
}

TEST(Blob, IsEmptyForNullArguments) {
  EXPECT_EQ(NOXPBlob(static_cast<const char*>(nullptr)).length(), 0u);
  EXPECT_EQ(NOXPBlob(nullptr, 5).length(), 0u);
  NOXPBlob blob("abc");
  blob.append(nullptr);
  blob.append(nullptr, 4);
  EXPECT_EQ(contentOf(blob), "abc");
  blob.assign(nullptr, 4);
  EXPECT_EQ(blob.length(), 0u);
}

TEST(Blob, DoesNotTouchItsStoreWhenItIsMade) {
  alignas(NOXPBlob) unsigned char place[sizeof(NOXPBlob)];
  std::memset(place, 0x5A, sizeof place);
  auto* blob = new (place) NOXPBlob();
  ASSERT_TRUE(setSizeUnfilled(*blob, 499));
  EXPECT_EQ(contentOf(*blob), std::string(499, '\x5A'));
  blob->~NOXPBlob();
}

TEST(Blob, Keeps499BytesInsideAndMoves500ToTheHeap) {
  NOXPBlob blob;
  blob.assign(pattern(499).data(), 499);
  EXPECT_TRUE(isInside(blob));
  EXPECT_EQ(contentOf(blob), pattern(499));
  blob.append("!");
  EXPECT_FALSE(isInside(blob));
  EXPECT_EQ(contentOf(blob), pattern(499) + "!");
}

TEST(Blob, StaysOnTheHeapOnceItIsThere) {
  NOXPBlob blob;
  blob.setSize(500);
  const unsigned char* const heap = blob.getBuf();
  blob.clear();
  blob.assign("ab", 2);
  EXPECT_EQ(blob.getBuf(), heap);
  blob.setSize(1500);  // 500 and 1,000 of slack
  EXPECT_EQ(blob.getBuf(), heap);
  EXPECT_EQ(blob.length(), 1500u);
}

TEST(Blob, ClearKeepsTheStorage) {
  NOXPBlob blob("abc");
  blob.clear();
  EXPECT_EQ(blob.length(), 0u);
  EXPECT_TRUE(isInside(blob));
}

TEST(Blob, AppendsBehindTheContent) {
  NOXPBlob blob;
  blob.append("ab");
  blob.append("c\0d", 3);
  EXPECT_BYTES(contentOf(blob), bytes("61 62 63 00 64"));
}

TEST(Blob, AppendsBytesOfItsOwn) {
  for (const std::size_t n : {10u, 300u, 499u, 500u, 5000u}) {
    NOXPBlob blob(pattern(n).data(), n);
    blob.append(reinterpret_cast<const char*>(blob.getBuf()), n);
    EXPECT_EQ(contentOf(blob), pattern(n) + pattern(n)) << n;
  }
}

TEST(Blob, AssignsBytesOfItsOwn) {
  for (const std::size_t n : {10u, 499u, 500u, 5000u}) {
    NOXPBlob blob(pattern(n).data(), n);
    blob.assign(reinterpret_cast<const char*>(blob.getBuf()) + 3, n - 3);
    EXPECT_EQ(contentOf(blob), pattern(n).substr(3)) << n;
  }
}

TEST(Blob, SurvivesAssigningItself) {
  NOXPBlob blob("abc");
  const NOXPBlob& same = blob;
  blob = same;
  EXPECT_EQ(contentOf(blob), "abc");
}

TEST(Blob, CopiesIntoAStoreOfItsOwn) {
  for (const std::size_t n : {3u, 499u, 500u, 3000u}) {
    auto original = std::make_unique<NOXPBlob>(pattern(n).data(), n);
    const NOXPBlob copy(*original);
    NOXPBlob assigned("old");
    assigned = *original;
    original.reset();
    EXPECT_EQ(contentOf(copy), pattern(n));
    EXPECT_EQ(contentOf(assigned), pattern(n));
    EXPECT_EQ(isInside(copy), n < 500);
    EXPECT_EQ(isInside(assigned), n < 500);
  }
}

TEST(Blob, CopiesOnlyTheBytesInUse) {
  NOXPBlob original(pattern(400).data(), 400);
  original.setSize(2);
  NOXPBlob copy(original);
  copy.setSize(4);
  EXPECT_BYTES(contentOf(copy), bytes("41 42 00 00"));
}

TEST(Blob, ShowsNoBytesThatWereNeverInUse) {
  for (const std::size_t n : {400u, 70000u}) {
    NOXPBlob blob;
    blob.setSize(n);
    EXPECT_EQ(contentOf(blob), std::string(n, '\0')) << n;
  }
  NOXPBlob grown("abc");
  grown.setSize(600);
  EXPECT_EQ(contentOf(grown), "abc" + std::string(597, '\0'));
}

TEST(Blob, GivesTheOldBytesBackWhenItShrinksAndGrows) {
  NOXPBlob blob(pattern(400).data(), 400);
  blob.setSize(100);
  blob.setSize(600);  // by way of the heap
  EXPECT_EQ(contentOf(blob), pattern(400) + std::string(200, '\0'));
  blob.setSize(1);
  blob.setSize(400);
  EXPECT_EQ(contentOf(blob), pattern(400));
}

TEST(Blob, GivesBytesBackThatWereSetWithoutFilling) {
  NOXPBlob blob;
  ASSERT_TRUE(setSizeUnfilled(blob, 3));
  std::memcpy(blob.getBuf(), "xyz", 3);
  blob.setSize(1);
  blob.setSize(4);
  EXPECT_BYTES(contentOf(blob), bytes("78 79 7A 00"));
}

TEST(Blob, IsLeftEmptyWhenThereIsNoMemory) {
  for (const std::size_t n : {3u, 600u}) {
    NOXPBlob blob(pattern(n).data(), n);
    blob.setSize(kTooLarge);
    EXPECT_EQ(blob.length(), 0u);
    EXPECT_EQ(blob.getBuf(), nullptr);
    blob.append("again");
    EXPECT_EQ(contentOf(blob), "again");
    EXPECT_TRUE(isInside(blob));
  }
}

TEST(Blob, IsLeftEmptyWhenALengthOverflows) {
  NOXPBlob blob("abc");
  blob.append("x", kTooLarge - 1);
  EXPECT_EQ(blob.length(), 0u);
  EXPECT_EQ(blob.getBuf(), nullptr);
  EXPECT_FALSE(setSizeUnfilled(blob, kTooLarge));
  EXPECT_EQ(blob.length(), 0u);
}

TEST(Blob, ShowsOldBytesNoMoreAfterItWasEmptiedByAFailure) {
  NOXPBlob blob("secret");
  blob.setSize(kTooLarge);
  blob.setSize(6);
  EXPECT_EQ(contentOf(blob), std::string(6, '\0'));
}

}  // namespace
}  // namespace nox::test
