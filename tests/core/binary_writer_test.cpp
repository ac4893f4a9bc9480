#include "nox/core/binary_writer.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "nox/core/gzip_compressor.h"
#include "tests/core/samples.h"
#include "tests/support/allocation_counter.h"
#include "tests/support/bytes.h"
#include "tests/support/code_page.h"
#include "tests/support/frames.h"

namespace nox {
namespace {

using test::Bare;
using test::bytes;
using test::Bytes;
using test::frameOf;
using test::Pair;
using test::Text;

// Notes every call a writer makes to its target.
class Target : public OutStream {
public:
  using OutStream::send;
  void send(const char* data, std::size_t n) override {
    if (failing_) throw std::runtime_error("the target failed");
    calls_.push_back("send " + std::to_string(n));
    sent_.append(data, n);
  }
  void flush() override { calls_.emplace_back("flush"); }

  bool failing_ = false;
  std::vector<std::string> calls_;
  std::string sent_;
};

// Writes a number and then throws.
class Failing : public Bare<30> {
public:
  Archive& serialize(Archive& ar, unsigned int /*version*/) override {
    int number = 1;
    ar& number;
    if (fails_) throw std::runtime_error("the object failed");
    return ar;
  }
  bool fails_ = true;
};

class Properties {
public:
  Properties(bool compress, int threshold) {
    properties_.compress = compress;
    properties_.compressThreshold = threshold;
  }
  Serializable::properties_t* get() { return &properties_; }

private:
  Serializable::properties_t properties_;
};

// The frame of a Text or Bytes holds these around the field.
std::string frameOfField(const std::string& type, const std::string& field) {
  return test::framed(bytes("4C 49 00 00 00" + type + "49 00 00 00 00") + field + ";");
}

bool isCompressed(const std::string& frame) { return frame.substr(5, 4) == "GZIP"; }

TEST(BinaryWriter, WritesTheWorkedExample) {
  EXPECT_BYTES(frameOf(Pair(5, "ab")), bytes("00 00 00 19  5B"
                                             "4C  49 00 00 00 03  49 00 00 00 00"
                                             "49 00 00 00 05"
                                             "73 00 02 61 62 3B"
                                             "3B  5D"));
}

TEST(BinaryWriter, WritesANullRootAsTheNullObject) {
  MemoryBufferOutStream out;
  BinaryWriter writer(&out);
  writer.writeRoot(static_cast<Serializable*>(nullptr));
  EXPECT_BYTES(out.str(), bytes("00 00 00 09  5B  4C 49 00 00 00 01 3B  5D"));
}

TEST(BinaryWriter, WritesNullFieldsAsNullObjects) {
  test::Nulls message;
  message.last_ = -2;
  EXPECT_BYTES(frameOf(message), test::framed(bytes("4C  49 00 00 00 06  49 00 00 00 00"
                                                    "4C 49 00 00 00 01 3B"
                                                    "4C 49 00 00 00 01 3B"
                                                    "4C 49 00 00 00 01 3B"
                                                    "49 FF FF FF FE"
                                                    "3B")));
}

TEST(BinaryWriter, WritesIntegersInTwosComplementWithoutAnEnd) {
  class Numbers : public Bare<31> {
  public:
    Archive& serialize(Archive& ar, unsigned int /*version*/) override {
      int smallest = -2147483647 - 1;
      int largest = 2147483647;
      return ar & smallest & largest;
    }
  };
  EXPECT_BYTES(frameOf(Numbers()), test::framed(bytes("4C  49 00 00 00 1F  49 00 00 00 00"
                                                      "49 80 00 00 00"
                                                      "49 7F FF FF FF"
                                                      "3B")));
}

TEST(BinaryWriter, WritesNestedObjectsWithHeadAndEnd) {
  test::Holder message;
  message.inner_.number_ = 9;
  message.inner_.setClassVersion(2);
  EXPECT_BYTES(frameOf(message), test::framed(bytes("4C  49 00 00 00 07  49 00 00 00 00"
                                                    "4C  49 00 00 00 08  49 00 00 00 02"
                                                    "49 00 00 00 09"
                                                    "3B"
                                                    "3B")));
}

TEST(BinaryWriter, SendsTheClassVersionNotTheNewestOne) {
  // Deliberate: nobody sets the class version but the sender.
  class Newer : public Pair {
  public:
    unsigned int getVersion() override { return 7; }
  };
  Newer message;
  EXPECT_BYTES(frameOf(message).substr(11, 5), bytes("49 00 00 00 00"));
  message.setClassVersion(-1);
  EXPECT_BYTES(frameOf(message).substr(11, 5), bytes("49 FF FF FF FF"));
  EXPECT_EQ(message.version_, 4294967295u);
}

TEST(BinaryWriter, WritesEmptyTextOfEveryKindTheSame) {
  const std::string empty = frameOfField("04", bytes("73 00 00 3B"));
  NOXPString extracted("old");
  NOXPString source("x", true);
  ASSERT_FALSE(extracted.ExtractFrom(&source, 9, 0, 0));
  EXPECT_BYTES(frameOf(Text()), empty);
  EXPECT_BYTES(frameOf(Text(NOXPString(""))), empty);
  EXPECT_BYTES(frameOf(Text(NOXPString("", true))), empty);
  EXPECT_BYTES(frameOf(Text(extracted)), empty);
  EXPECT_BYTES(frameOf(Pair()).substr(21, 4), bytes("73 00 00 3B"));
}

TEST(BinaryWriter, WritesTextAsUtf8AndLeavesItSo) {
  // Deliberate: one conversion, in place, for good.
  Text wide(NOXPString(std::wstring(L"\u20AC")));
  EXPECT_BYTES(frameOf(wide), frameOfField("04", bytes("73 00 03 E2 82 AC 3B")));
  EXPECT_EQ(wide.text_.getType(), NOXPString::Utf8);

  Text narrow(NOXPString("ab"));
  frameOf(narrow);
  EXPECT_EQ(narrow.text_.getType(), NOXPString::Utf8);
}

TEST(BinaryWriter, ReadsNarrowTextInTheNativeCodePage) {
  {
    const test::CodePage latin("ISO-8859-1");
    EXPECT_BYTES(frameOf(Text(NOXPString("\xE9"))), frameOfField("04", bytes("73 00 02 C3 A9 3B")));
    EXPECT_BYTES(frameOf(Pair(0, "\xE9")).substr(21, 6), bytes("73 00 02 C3 A9 3B"));
  }
  EXPECT_BYTES(frameOf(Text(NOXPString("\xC3\xA9"))),
               frameOfField("04", bytes("73 00 02 C3 A9 3B")));
  EXPECT_BYTES(frameOf(Pair(0, "\xC3\xA9")).substr(21, 6), bytes("73 00 02 C3 A9 3B"));
}

TEST(BinaryWriter, CutsNarrowTextAtItsFirstNul) {
  EXPECT_BYTES(frameOf(Text(NOXPString("a\0b", 3, false))),
               frameOfField("04", bytes("73 00 01 61 3B")));
  EXPECT_BYTES(frameOf(Pair(0, std::string("a\0b", 3))).substr(21), bytes("73 00 01 61 3B 3B 5D"));
}

TEST(BinaryWriter, CopiesTextOfEveryShortLength) {
  std::string text;
  for (std::size_t n = 0; n < 70; ++n) {
    const std::string count{'\0', static_cast<char>(n)};
    EXPECT_BYTES(frameOf(Text(NOXPString(text.c_str(), true))),
                 frameOfField("04", "s" + count + text + ";"));
    text += static_cast<char>('0' + n % 43);
  }
}

TEST(BinaryWriter, WrapsTheCountOfLongTextAt16Bits) {
  // Deliberate: every byte is sent.
  const struct {
    std::size_t length;
    const char* count;
  } cases[] = {{65535, "FF FF"}, {65536, "00 00"}, {65537, "00 01"}, {200000, "0D 40"}};
  for (const auto& each : cases) {
    const std::string text(each.length, 'x');
    const std::string field = bytes("73" + std::string(each.count)) + text + ";";
    EXPECT_TRUE(frameOf(Text(NOXPString(text))) == frameOfField("04", field)) << each.length;
    EXPECT_BYTES(frameOf(Pair(0, text)).substr(21, 3), field.substr(0, 3));
    EXPECT_EQ(frameOf(Pair(0, text)).size(), 4 + 1 + 11 + 5 + 3 + each.length + 3);
  }
}

TEST(BinaryWriter, WritesBlobsWithTwoEnds) {
  EXPECT_BYTES(frameOf(Bytes("AB")), frameOfField("05", bytes("6A 62 00 00 00 02 41 42 3B 3B")));
  EXPECT_BYTES(frameOf(Bytes(std::string("\0;]", 3))),
               frameOfField("05", bytes("6A 62 00 00 00 03 00 3B 5D 3B 3B")));
}

TEST(BinaryWriter, WritesAnEmptyBlobWithItsCount) {
  const std::string empty = frameOfField("05", bytes("6A 62 00 00 00 00 3B 3B"));
  EXPECT_BYTES(frameOf(Bytes()), empty);
  EXPECT_BYTES(frameOf(Bytes("")), empty);
}

TEST(BinaryWriter, WritesLongBlobsWhole) {
  const std::string data(70000, '\x9C');
  EXPECT_TRUE(frameOf(Bytes(data)) ==
              frameOfField("05", bytes("6A 62 00 01 11 70") + data + bytes("3B 3B")));
}

TEST(BinaryWriter, IgnoresNames) {
  test::Everything message(1, "p", "t", "b");
  EXPECT_BYTES(frameOf(message), test::framed(bytes("4C  49 00 00 00 10  49 00 00 00 00"
                                                    "49 00 00 00 01"
                                                    "73 00 01 70 3B"
                                                    "73 00 01 74 3B"
                                                    "6A 62 00 00 00 01 62 3B 3B"
                                                    "4C  49 00 00 00 08  49 00 00 00 00"
                                                    "49 00 00 00 00  3B"
                                                    "4C 49 00 00 00 01 3B"
                                                    "3B")));
}

TEST(BinaryWriter, WritesTheSameBytesEachTime) {
  test::Everything message(1, "plain", "narrow", "blob");
  const std::string first = frameOf(message);
  EXPECT_BYTES(frameOf(message), first);
}

TEST(BinaryWriter, RecordsTheWholeFrameAsPacketSize) {
  Pair message(5, "ab");
  frameOf(message);
  EXPECT_EQ(message.getPacketSize(), 29u);
}

TEST(BinaryWriter, SendsAndFlushesOncePerMessage) {
  Target target;
  BinaryWriter writer(&target);
  Pair message(5, "ab");
  writer.writeRoot(message);
  Bytes large(std::string(100000, 'x'));
  writer.writeRoot(large);
  writer.writeRoot(message);
  EXPECT_EQ(target.calls_, (std::vector<std::string>{"send 29", "flush", "send 100026", "flush",
                                                     "send 29", "flush"}));
}

TEST(BinaryWriter, SendsNothingBeforeTheFrameIsComplete) {
  Target target;
  BinaryWriter writer(&target);
  Failing message;
  EXPECT_THROW(writer.writeRoot(message), std::runtime_error);
  EXPECT_TRUE(target.calls_.empty());
  EXPECT_EQ(message.getPacketSize(), 0u);
}

TEST(BinaryWriter, KeepsPartialBytesForTheNextFrame) {
  // Deliberate: whoever goes on after an exception replaces the writer or its stream.
  Target target;
  BinaryWriter writer(&target);
  Failing message;
  EXPECT_THROW(writer.writeRoot(message), std::runtime_error);
  writer.writeRoot(static_cast<Serializable*>(nullptr));
  EXPECT_BYTES(target.sent_, bytes("00 00 00 1A"
                                   "5B  4C 49 00 00 00 1E 49 00 00 00 00  49 00 00 00 01"
                                   "5B  4C 49 00 00 00 01 3B  5D"));
}

TEST(BinaryWriter, DropsWhatWasGatheredWhenItIsAimedElsewhere) {
  Target first;
  Target second;
  BinaryWriter writer(&first);
  Failing message;
  EXPECT_THROW(writer.writeRoot(message), std::runtime_error);
  writer.setOutStream(&second);
  EXPECT_EQ(writer.getOutStream(), &second);
  Pair pair(5, "ab");
  writer.writeRoot(pair);
  EXPECT_TRUE(first.calls_.empty());
  EXPECT_BYTES(second.sent_, frameOf(pair));
}

TEST(BinaryWriter, LeavesOnlyTheStartWhenACompressibleObjectThrows) {
  Target target;
  BinaryWriter writer(&target);
  Properties properties(true, 0);
  Failing message;
  message.setProperties(properties.get());
  EXPECT_THROW(writer.writeRoot(message), std::runtime_error);
  writer.writeRoot(static_cast<Serializable*>(nullptr));
  EXPECT_BYTES(target.sent_, bytes("00 00 00 0A  5B  5B 4C 49 00 00 00 01 3B 5D"));

  // And what the failed object wrote is gone.
  message.fails_ = false;
  target.sent_.clear();
  writer.writeRoot(message);
  const std::string member = target.sent_.substr(9, target.sent_.size() - 10);
  EXPECT_BYTES(GZipCompressor().uncompress(member),
               bytes("4C 49 00 00 00 1E 49 00 00 00 00 49 00 00 00 01 3B"));
}

TEST(BinaryWriter, SendsTheFrameAgainAfterItsTargetThrew) {
  // Deliberate: the content stays gathered, as after any failure.
  Target target;
  BinaryWriter writer(&target);
  target.failing_ = true;
  EXPECT_THROW(writer.writeRoot(static_cast<Serializable*>(nullptr)), std::runtime_error);
  target.failing_ = false;
  writer.writeRoot(static_cast<Serializable*>(nullptr));
  EXPECT_BYTES(target.sent_, bytes("00 00 00 12"
                                   "5B 4C 49 00 00 00 01 3B 5D"
                                   "5B 4C 49 00 00 00 01 3B 5D"));
}

TEST(BinaryWriter, MeasuresWithoutATarget) {
  BinaryWriter writer(nullptr);
  Pair message(5, "ab");
  writer.writeRoot(message);
  EXPECT_EQ(message.getPacketSize(), 29u);
  EXPECT_EQ(writer.getOutStream(), nullptr);
}

TEST(BinaryWriter, CompressesFromTheThresholdOn) {
  // A Bytes of n bytes has a body of n + 20.
  Properties properties(true, 100);
  Bytes below(std::string(79, 'x'));
  below.setProperties(properties.get());
  EXPECT_TRUE(frameOf(below) == frameOf(Bytes(std::string(79, 'x'))));
  EXPECT_EQ(below.getPacketSize(), 99u + 6u);

  Bytes at(std::string(80, 'x'));
  at.setProperties(properties.get());
  const std::string frame = frameOf(at);
  ASSERT_TRUE(isCompressed(frame)) << test::hex(frame);
  const std::string plain = frameOf(Bytes(std::string(80, 'x')));
  const std::string member = frame.substr(9, frame.size() - 10);
  EXPECT_BYTES(frame, test::framed("GZIP" + member));
  EXPECT_BYTES(member.substr(0, 10), bytes("1F 8B 08 00 00 00 00 00 00 03"));
  EXPECT_BYTES(member.substr(member.size() - 4), bytes("64 00 00 00"));
  EXPECT_BYTES(GZipCompressor().uncompress(member), plain.substr(5, plain.size() - 6));
  EXPECT_EQ(at.getPacketSize(), frame.size());
}

TEST(BinaryWriter, CompressesNothingWithoutTheFlag) {
  Properties properties(false, 0);
  Bytes message(std::string(500, 'x'));
  message.setProperties(properties.get());
  EXPECT_FALSE(isCompressed(frameOf(message)));
}

TEST(BinaryWriter, ComparesTheThresholdAsAnUnsigned64BitNumber) {
  Bytes message(std::string(500, 'x'));
  Properties always(true, 0);
  message.setProperties(always.get());
  EXPECT_TRUE(isCompressed(frameOf(message)));
  for (const int threshold : {-1, -2147483647 - 1, 2147483647}) {
    Properties never(true, threshold);
    message.setProperties(never.get());
    EXPECT_FALSE(isCompressed(frameOf(message))) << threshold;
  }
}

TEST(BinaryWriter, CompressesRootsOnly) {
  Properties properties(true, 0);
  test::Holder message;
  message.inner_.setProperties(properties.get());
  EXPECT_FALSE(isCompressed(frameOf(message)));
}

TEST(BinaryWriter, AllocatesNothingPerMessage) {
  NullOutStream target;
  BinaryWriter writer(&target);
  test::Everything message(1, "nine byte", "twelve bytes", "a blob");
  const test::AllocationScope scope;
  for (int i = 0; i < 10; ++i) writer.writeRoot(message);
  EXPECT_EQ(scope.count(), 0u);
}

TEST(BinaryWriter, AllocatesNothingMoreForLargeMessages) {
  NullOutStream target;
  BinaryWriter writer(&target);
  Bytes message(std::string(65536, 'x'));
  writer.writeRoot(message);
  const test::AllocationScope scope;
  for (int i = 0; i < 10; ++i) writer.writeRoot(message);
  EXPECT_EQ(scope.count(), 0u);
}

TEST(BinaryWriter, AllocatesNothingMoreForCompressedMessages) {
  NullOutStream target;
  BinaryWriter writer(&target);
  Properties properties(true, 0);
  Bytes message(std::string(65536, 'x'));
  message.setProperties(properties.get());
  writer.writeRoot(message);
  const test::AllocationScope scope;
  for (int i = 0; i < 10; ++i) writer.writeRoot(message);
  EXPECT_EQ(scope.count(), 0u);
}

TEST(BinaryWriter, SendsNumbersWithoutAMarkerForSubclasses) {
  class Raw : public BinaryWriter {
  public:
    using BinaryWriter::BinaryWriter;
    using BinaryWriter::sendInt;
  };
  MemoryBufferOutStream out;
  Raw writer(&out);
  writer.sendInt(0x01020304);
  writer.sendInt(-2);
  writer.writeRoot(static_cast<Serializable*>(nullptr));
  EXPECT_BYTES(out.str().substr(4, 9), bytes("01 02 03 04  FF FF FF FE  5B"));
}

TEST(BinaryWriter, SaysThatItWrites) {
  BinaryWriter writer(nullptr);
  EXPECT_TRUE(writer.isWriting());
  EXPECT_EQ(writer.getWriter(), &writer);
  EXPECT_EQ(writer.getReader(), nullptr);
}

TEST(BinaryWriter, IsNotCopied) {
  static_assert(!std::is_copy_constructible_v<BinaryWriter>);
  static_assert(!std::is_copy_assignable_v<BinaryWriter>);
}

}  // namespace
}  // namespace nox
