#include "nox/auth/properties.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "nox/core/exceptions.h"
#include "nox/protocol/message.h"
#include "tests/support/bytes.h"
#include "tests/support/caught.h"
#include "tests/support/contents.h"
#include "tests/support/frames.h"
#include "tests/support/recording_archive.h"

namespace nox {
namespace {

using test::bytes;
using test::caught;
using test::contentOf;
using test::fieldsOf;
using test::framed;
using test::frameOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

// A message that is a property set and nothing else.
class Holder : public Payload<Holder, 900> {
public:
  Properties set;
  Archive& serialize(Archive& ar, unsigned int) override { return set.selfSerialize(ar); }
};

constexpr char kHead[] = "4C 49 00 00 03 84 49 00 00 00 00";

/// What reading the fields `hex` puts into `holder`.
void readInto(Holder& holder, const std::string& hex) {
  const std::string object = bytes(std::string(kHead) + hex + "3B");
  MemoryBufferInputStream in(object.data(), object.size());
  test::Classes<Holder> factory;
  BinaryReader reader(&factory, &in);
  reader.readObject(&holder);
}

TEST(Properties, StartsEmptyAndTravelsAsTheCountZero) {
  Holder holder;
  EXPECT_THAT(contentOf(holder.set), IsEmpty());
  EXPECT_BYTES(frameOf(holder), framed(bytes(std::string(kHead) + "49 00 00 00 00 3B")));
  readInto(holder, "49 00 00 00 00");
  EXPECT_THAT(contentOf(holder.set), IsEmpty());
}

TEST(Properties, TravelsInTheOrderOfItsKeys) {
  Holder holder;
  holder.set.setProperty("b", "2");
  holder.set.setProperty("a", "1");
  EXPECT_THAT(fieldsOf(holder), ElementsAre("int length=2", "text key=a", "text value=1",
                                            "text key=b", "text value=2"));
  const std::string frame = framed(bytes(std::string(kHead) + "49 00 00 00 02"
                                                              "73 00 01 61 3B  73 00 01 31 3B"
                                                              "73 00 01 62 3B  73 00 01 32 3B"
                                                              "3B"));
  EXPECT_BYTES(frameOf(holder), frame);
  test::Classes<Holder> factory;
  test::expectSurvivesDamage(frame, factory);
}

TEST(Properties, OrdersKeysByTheirBytes) {
  Properties set;
  for (const char* key : {"\xC3\xA9", "a", "B", "", "aa"}) set.setProperty(key, "");
  std::vector<std::string> keys;
  for (const auto& pair : set) keys.push_back(pair.first);
  EXPECT_THAT(keys, ElementsAre("", "B", "a", "aa", "\xC3\xA9"));
}

TEST(Properties, OverwritesTheValueOfAKeyItHas) {
  Properties set;
  set.setProperty("k", "1");
  set.setProperty(std::string("k"), std::string("2"));
  EXPECT_THAT(contentOf(set), ElementsAre(Pair("k", "2")));
}

TEST(Properties, TakesNullTextsAsEmpty) {
  Properties set;
  set.setProperty("k", nullptr);
  set.setProperty(static_cast<const char*>(nullptr), "v");
  EXPECT_THAT(contentOf(set), ElementsAre(Pair("", "v"), Pair("k", "")));
}

TEST(Properties, ReadKeepsTheLastOfTwoPairsWithOneKey) {
  Holder holder;
  readInto(holder, "49 00 00 00 02  73 00 01 6B 3B 73 00 01 31 3B  73 00 01 6B 3B 73 00 01 32 3B");
  EXPECT_THAT(contentOf(holder.set), ElementsAre(Pair("k", "2")));
}

TEST(Properties, ReadAddsToThePairsThatAreThere) {
  Holder holder;
  holder.set.setProperty("a", "old");
  holder.set.setProperty("k", "old");
  readInto(holder, "49 00 00 00 01  73 00 01 6B 3B 73 00 01 31 3B");
  EXPECT_THAT(contentOf(holder.set), ElementsAre(Pair("a", "old"), Pair("k", "1")));
}

TEST(Properties, ReadOfANegativeCountTakesNoPairs) {
  Holder holder;
  readInto(holder, "49 FF FF FF FF");
  readInto(holder, "49 80 00 00 00");
  EXPECT_THAT(contentOf(holder.set), IsEmpty());
}

TEST(Properties, ReadOfAFalseCountEndsAtTheFirstKeyThatIsMissing) {
  Holder holder;
  const auto error = caught<UnexpectedChar>(
      [&] { readInto(holder, "49 7F FF FF FF  73 00 01 6B 3B 73 00 01 31 3B"); });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->getChar(), ';');
  EXPECT_EQ(error->getExpectedChar(), 's');
  EXPECT_THAT(contentOf(holder.set), ElementsAre(Pair("k", "1")));
}

TEST(Properties, CopyHasPairsOfItsOwn) {
  Properties set;
  set.setProperty("a", "1");
  Properties copy(set);
  set.setProperty("a", "2");
  EXPECT_THAT(contentOf(copy), ElementsAre(Pair("a", "1")));
}

TEST(Properties, AssignmentSharesThePairs) {
  Properties set;
  set.setProperty("a", "1");
  Properties other;
  other.setProperty("gone", "1");
  other = set;
  set.setProperty("b", "2");
  other.setProperty("c", "3");
  EXPECT_THAT(contentOf(other), ElementsAre(Pair("a", "1"), Pair("b", "2"), Pair("c", "3")));
  EXPECT_THAT(contentOf(set), ElementsAre(Pair("a", "1"), Pair("b", "2"), Pair("c", "3")));
}

TEST(Properties, SharedPairsEndWithTheirLastSet) {
  Properties other;
  {
    Properties set;
    set.setProperty("a", "1");
    other = set;
    other = *&other;
  }
  EXPECT_THAT(contentOf(other), ElementsAre(Pair("a", "1")));
}

TEST(Properties, WritesCopiesOfItsKeys) {
  // A writer that changes what it is given must not reach the keys of the map.
  class Spoiler : public Writer {
  public:
    using Writer::process;
    Archive& process(std::string& value, const char*) override {
      value = "spoilt";
      return *this;
    }
    Archive& process(int&, const char*) override { return *this; }
    Archive& process(Serializable*, const char*) override { return *this; }
  };
  Properties set;
  set.setProperty("a", "1");
  Spoiler archive;
  EXPECT_EQ(&set.selfSerialize(archive), &archive);
  EXPECT_THAT(contentOf(set), ElementsAre(Pair("a", "1")));
}

}  // namespace
}  // namespace nox
