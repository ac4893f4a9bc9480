// Many strings at once: the same bytes and the same strings as one by one.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "nox/core/binary_reader.h"
#include "nox/core/binary_writer.h"
#include "nox/core/exceptions.h"
#include "nox/core/object_factory.h"
#include "nox/protocol/message.h"
#include "tests/support/bytes.h"
#include "tests/support/caught.h"
#include "tests/support/frames.h"

namespace nox::test {

namespace {

using Strings = std::vector<std::string>;

/// A number and that many strings, in bulk where the archive is a binary one.
class Bulk : public Payload<Bulk, 40> {
public:
  Archive& serialize(Archive& ar, unsigned int /*version*/) override {
    int count = static_cast<int>(strings.size());
    ar.process(count, "count");
    if (ar.isWriting()) {
      static_cast<BinaryWriter*>(ar.getWriter())->writeStrings(strings);
    } else {
      static_cast<BinaryReader*>(ar.getReader())->readStrings(strings, count);
    }
    return ar;
  }

  Strings strings;
};

/// The same object with its strings one by one.
class OneByOne : public Payload<OneByOne, 40> {
public:
  explicit OneByOne(Strings values = {}) : strings(std::move(values)) {}
  Archive& serialize(Archive& ar, unsigned int /*version*/) override {
    int count = static_cast<int>(strings.size());
    ar.process(count, "count");
    for (std::string& value : strings) ar.process(value, "value");
    return ar;
  }

  Strings strings;
};

class Factory : public ObjectFactory {
public:
  Factory() { add<Bulk>("Bulk"); }
  Serializable* create() override { return new Factory; }
};

Strings readBack(const std::string& frame) {
  Factory factory;
  const std::unique_ptr<Serializable> object = readFrame(frame, factory);
  return static_cast<Bulk&>(*object).strings;
}

/// Short, long and in between; beyond ASCII; cut by a NUL; around the lengths where a copy changes.
Strings allKinds() {
  Strings strings{"", "A", "12345678", "f\xC3\xBCr", std::string("ab\0cd", 5)};
  for (std::size_t n = 13; n <= 18; ++n) strings.emplace_back(n, 'x');
  strings.emplace_back(300, 'y');
  strings.emplace_back("end");
  return strings;
}

TEST(StringsInBulk, TravelOneBehindTheOther) {
  Bulk message;
  message.strings = {"AB", ""};
  EXPECT_BYTES(frameOf(message), bytes("00 00 00 1D  5B"
                                       "4C  49 00 00 00 28  49 00 00 00 00"
                                       "49 00 00 00 02"
                                       "73 00 02 41 42 3B"
                                       "73 00 00 3B"
                                       "3B  5D"));
}

TEST(StringsInBulk, HaveTheBytesOfStringsOneByOne) {
  Bulk message;
  message.strings = allKinds();
  OneByOne other(allKinds());
  EXPECT_BYTES(frameOf(message), frameOf(other));
}

TEST(StringsInBulk, AreReadLikeStringsOneByOne) {
  OneByOne message(allKinds());
  Strings expected = allKinds();
  expected[4] = "ab";  // a text ends at its first NUL
  EXPECT_EQ(readBack(frameOf(message)), expected);
}

TEST(StringsInBulk, GrowTheFrameAsTheyNeed) {
  Bulk message;
  for (int i = 0; i < 5000; ++i) message.strings.push_back(std::to_string(i));
  EXPECT_EQ(readBack(frameOf(message)), message.strings);
}

TEST(StringsInBulk, EndWhereTheBytesEndWhateverTheirCountSays) {
  Factory factory;
  const std::string frame =
      framed(bytes("4C  49 00 00 00 28  49 00 00 00 00"
                   "49 7F FF FF FF"
                   "73 00 01 41 3B"
                   "3B"));
  const auto error = caught<UnexpectedChar>([&] { readFrame(frame, factory); });
  EXPECT_EQ(error->getChar(), ';');
}

TEST(StringsInBulk, SurviveDamage) {
  Factory factory;
  Bulk message;
  message.strings = {"AB", "", "1234567890123456"};
  expectSurvivesDamage(frameOf(message), factory);
}

}  // namespace

}  // namespace nox::test
