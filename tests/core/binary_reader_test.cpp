#include "nox/core/binary_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "nox/core/exceptions.h"
#include "nox/core/gzip_compressor.h"
#include "nox/protocol/http_request.h"
#include "tests/core/expect_logged.h"
#include "tests/core/samples.h"
#include "tests/support/allocation_counter.h"
#include "tests/support/bytes.h"
#include "tests/support/caught.h"
#include "tests/support/code_page.h"
#include "tests/support/frames.h"

namespace nox {
namespace {

using test::AllocationScope;
using test::Anything;
using test::Bare;
using test::bytes;
using test::Bytes;
using test::caught;
using test::Classes;
using test::Everything;
using test::framed;
using test::Holder;
using test::LogCapture;
using test::Nulls;
using test::Pair;
using test::readFrame;
using test::Text;

const std::string kNullFrame = bytes("00 00 00 09  5B  4C 49 00 00 00 01 3B  5D");
const std::string kPairFrame = bytes(
    "00 00 00 19  5B"
    "4C  49 00 00 00 03  49 00 00 00 00"
    "49 00 00 00 05"
    "73 00 02 61 62 3B"
    "3B  5D");

// What reading may allocate that refuses to believe a claim. Log lines take memory of their own.
constexpr std::size_t kLittle = (kLoggerOutput ? 1024 : 64) << 10;

// The body of an object of a one-digit type and version 0 with these fields.
std::string objectOf(const std::string& type, const std::string& fields) {
  return bytes("4C 49 00 00 00" + type + "49 00 00 00 00") + fields + ";";
}

// A connection: a stream that is no memory stream, delivers exactly and then ends, or reports a
// time-out where `quiet` says so.
class Connection : public InputStream {
public:
  explicit Connection(std::string data, bool quiet = false)
      : data_(std::move(data)), quiet_(quiet) {}
  std::int64_t readMax(char* buf, int max) override {
    asked_.push_back(max);
    const std::size_t n = std::min(data_.size() - position_, static_cast<std::size_t>(max));
    if (n == 0 && quiet_) {
      errno = kErrnoTimeout;
      return -1;
    }
    std::memcpy(buf, data_.data() + position_, n);
    position_ += n;
    return static_cast<std::int64_t>(n);
  }
  std::int64_t readMax(char* buf, int max, int /*timeout*/) override { return readMax(buf, max); }

  std::vector<int> asked_;

private:
  std::string data_;
  std::size_t position_ = 0;
  bool quiet_;
};

// Reads from memory, where fields are taken straight from the frame, and from a connection.
enum class Source { Memory, Connection };

void PrintTo(Source source, std::ostream* out) {
  *out << (source == Source::Memory ? "memory" : "connection");
}

class BinaryReaderFrom : public testing::TestWithParam<Source> {
protected:
  // Feeds `data` to a new reader, which the test may use until the next call.
  BinaryReader& reading(std::string data, ObjectFactory& factory) {
    reader_.reset();
    data_ = std::move(data);
    if (GetParam() == Source::Memory) {
      stream_ = std::make_unique<MemoryBufferInputStream>(data_.data(), data_.size());
    } else {
      stream_ = std::make_unique<Connection>(data_);
    }
    reader_ = std::make_unique<BinaryReader>(&factory, stream_.get());
    return *reader_;
  }
  template <class Message>
  std::unique_ptr<Message> readAs(const std::string& data) {
    Classes<Message> factory;
    std::unique_ptr<Serializable> root(reading(data, factory).readRootObject());
    return std::unique_ptr<Message>(dynamic_cast<Message*>(root.release()));
  }
  // The value of one field, read outside a frame.
  template <class Field>
  void process(const std::string& data, Field&& field) {
    Classes<> factory;
    reading(data, factory).process(field, "field");
  }

  std::string data_;
  std::unique_ptr<InputStream> stream_;
  std::unique_ptr<BinaryReader> reader_;
};

INSTANTIATE_TEST_SUITE_P(BinaryReader, BinaryReaderFrom,
                         testing::Values(Source::Memory, Source::Connection),
                         [](const testing::TestParamInfo<Source>& each) {
                           return each.param == Source::Memory ? "Memory" : "Connection";
                         });

// Roots

TEST_P(BinaryReaderFrom, ReadsTheWorkedExample) {
  const auto pair = readAs<Pair>(kPairFrame);
  ASSERT_TRUE(pair);
  EXPECT_EQ(pair->number_, 5);
  EXPECT_EQ(pair->text_, "ab");
  EXPECT_EQ(pair->getClassVersion(), 0);
  EXPECT_EQ(pair->getPacketSize(), 25u);
}

TEST_P(BinaryReaderFrom, ReadsTheNullRoot) {
  Classes<> factory;
  const LogCapture log;
  EXPECT_EQ(reading(kNullFrame, factory).readRootObject(), nullptr);
  EXPECT_LOGGED(log, debug, "BinaryReader::readObject(): returning NULL");
}

TEST_P(BinaryReaderFrom, LooksOnlyAtTheLastByteOfAFrame) {
  Classes<Pair> factory;
  EXPECT_EQ(reading(framed(bytes("4C 49 00 00 00 01 3B 58")), factory).readRootObject(), nullptr);
  EXPECT_EQ(reading(framed(bytes("4C 49 00 00 00 01 3B") + "any ] junk"), factory).readRootObject(),
            nullptr);
}

TEST_P(BinaryReaderFrom, ReadsOneFrameAfterTheOther) {
  Classes<Pair> factory;
  BinaryReader& reader = reading(kPairFrame + kNullFrame + kPairFrame, factory);
  EXPECT_TRUE(std::unique_ptr<Serializable>(reader.readRootObject()));
  EXPECT_FALSE(std::unique_ptr<Serializable>(reader.readRootObject()));
  EXPECT_TRUE(std::unique_ptr<Serializable>(reader.readRootObject()));
  EXPECT_TRUE(caught<LAST>([&] { reader.readRootObject(); }));
  EXPECT_EQ(reader.getInputStream(), stream_.get());
}

TEST_P(BinaryReaderFrom, HandsTheVersionToSerialize) {
  std::string frame = kPairFrame;
  frame.replace(12, 4, bytes("00 00 00 02"));
  const auto pair = readAs<Pair>(frame);
  EXPECT_EQ(pair->version_, 2u);
  EXPECT_EQ(pair->getClassVersion(), 2);
}

TEST_P(BinaryReaderFrom, TakesAVersionWithItsHighestBitAsALargeOne) {
  std::string frame = kPairFrame;
  frame.replace(12, 4, bytes("FF FF FF FF"));
  const auto pair = readAs<Pair>(frame);
  EXPECT_EQ(pair->version_, 4294967295u);
  EXPECT_EQ(pair->getClassVersion(), -1);
}

TEST_P(BinaryReaderFrom, RefusesAnotherStart) {
  Classes<> factory;
  const LogCapture log;
  const auto error =
      caught<UnexpectedChar>([&] { reading(bytes("00 00 00 05 78"), factory).readRootObject(); });
  EXPECT_EQ(error->getChar(), 120);
  EXPECT_EQ(error->getExpectedChar(), 91);
  EXPECT_LOGGED(log, error,
                "BinaryReader::readRootObject(): expected START_OF_ROOT_OBJECT ('['), got 120 "
                "throwing UnexpectedChar(c)");
}

TEST_P(BinaryReaderFrom, RefusesAnotherEnd) {
  Classes<Pair> factory;
  std::string frame = kPairFrame;
  frame.back() = 'x';
  const LogCapture log;
  const auto error = caught<UnexpectedChar>([&] { reading(frame, factory).readRootObject(); });
  EXPECT_EQ(error->getChar(), 'x');
  EXPECT_EQ(error->getExpectedChar(), ']');
  EXPECT_LOGGED(log, error,
                "BinaryReader::readRootObject(): expected END_OF_ROOT_OBJECT (']'), got 120 "
                "throwing UnexpectedChar(c)");
}

TEST_P(BinaryReaderFrom, MissesTheLastByteOfAFrameThatCameShort) {
  // The object is complete; the frame claims 5 bytes more than came. Its last byte here is the
  // object's ';', but the frame's last byte is none of these.
  Classes<Pair> factory;
  std::string frame = kPairFrame.substr(0, kPairFrame.size() - 1) + "]";
  frame[3] = 0x1E;
  const LogCapture log;
  const auto error = caught<UnexpectedChar>([&] { reading(frame, factory).readRootObject(); });
  EXPECT_EQ(error->getChar(), 0);
  EXPECT_EQ(error->getExpectedChar(), ']');
  EXPECT_LOGGED(log, warning, "Corrupted data. ");
}

TEST_P(BinaryReaderFrom, EndsWithTheConnection) {
  Classes<> factory;
  EXPECT_TRUE(caught<LAST>([&] { reading("", factory).readRootObject(); }));
  EXPECT_TRUE(caught<LAST>([&] { reading(bytes("00 00"), factory).readRootObject(); }));
  EXPECT_TRUE(caught<LAST>([&] { reading(bytes("00 00 00 09"), factory).readRootObject(); }));
}

TEST(BinaryReader, SaysThatNothingHasArrived) {
  Classes<> factory;
  Connection connection("", true);
  BinaryReader reader(&factory, &connection);
  const LogCapture log;
  EXPECT_TRUE(caught<NONE>([&] { reader.readRootObject(); }));
  EXPECT_LOGGED(log, debug, "BinaryReader::readRootObject(): TIMEOUT, throwing Serializable::NONE");
  EXPECT_TRUE(caught<NONE>([&] { reader.readRootObject(); }));  // and again at the next poll
}

TEST(BinaryReader, LosesALengthThatStraddlesATimeout) {
  // Deliberate: time-outs have to be long enough for a frame.
  Classes<> factory;
  Connection connection(bytes("00 00 00 09"), true);
  BinaryReader reader(&factory, &connection);
  EXPECT_TRUE(caught<NONE>([&] { reader.readRootObject(); }));
}

TEST(BinaryReader, TakesNoTimeoutInsideAField) {
  // Deliberate: what has not arrived is a wrong marker there.
  Classes<> factory;
  Connection connection("", true);
  BinaryReader reader(&factory, &connection);
  int number = 0;
  const auto error = caught<UnexpectedChar>([&] { reader.process(number, "n"); });
  EXPECT_EQ(error->getChar(), -1);
  EXPECT_EQ(error->getExpectedChar(), 'I');
}

TEST(BinaryReader, TakesAFrameOffTheConnectionInThreeReads) {
  Classes<Pair> factory;
  Connection connection(kPairFrame + kPairFrame);
  BinaryReader reader(&factory, &connection);
  for (int i = 0; i < 2; ++i) std::unique_ptr<Serializable>(reader.readRootObject());
  EXPECT_EQ(connection.asked_, (std::vector<int>{4, 1, 24, 4, 1, 24}));
}

TEST(BinaryReader, ReadsLargeFramesAsTheyArrive) {
  Classes<Bytes> factory;
  const std::string data(5 << 20, 'x');
  Bytes message(data);
  Connection connection(test::frameOf(message));
  BinaryReader reader(&factory, &connection);
  const std::unique_ptr<Serializable> root(reader.readRootObject());
  EXPECT_TRUE(dynamic_cast<Bytes&>(*root).content() == data);
  EXPECT_EQ(connection.asked_, (std::vector<int>{4, 1, 1 << 20, 2 << 20, (2 << 20) + 21}));
}

TEST(BinaryReader, CreatesObjectsThroughItsFactory) {
  Classes<> factory;
  const auto error = caught<UnknownType>([&] { readFrame(kPairFrame, factory); });
  EXPECT_EQ(error->getTypeCode(), 3);
}

TEST(BinaryReader, NeverCreatesTheNullType) {
  // Deliberate: a class registered for code 1 is not reached.
  Classes<Bare<1>> factory;
  EXPECT_EQ(readFrame(kNullFrame, factory), nullptr);
}

// Integers

TEST_P(BinaryReaderFrom, ReadsIntegersBigEndian) {
  int number = 0;
  process(bytes("49 01 02 03 04"), number);
  EXPECT_EQ(number, 0x01020304);
  process(bytes("49 FF FF FF FE"), number);
  EXPECT_EQ(number, -2);
  process(bytes("49 80 00 00 00"), number);
  EXPECT_EQ(number, -2147483647 - 1);
}

TEST_P(BinaryReaderFrom, RefusesAnotherMarkerForAnInteger) {
  int number = 7;
  const LogCapture log;
  const auto error = caught<UnexpectedChar>([&] { process(bytes("69 00 00 00 01"), number); });
  EXPECT_EQ(error->getChar(), 'i');
  EXPECT_EQ(error->getExpectedChar(), 'I');
  EXPECT_EQ(number, 7);
  EXPECT_LOGGED(log, error,
                "BinaryReader::readInt(): expected INTEGER_PREFIX, got '105'; throwing "
                "UnexpectedChar(c)");
}

TEST_P(BinaryReaderFrom, FillsMissingBytesOfAnIntegerWithZeros) {
  int number = 0;
  process(bytes("49 01 02"), number);
  EXPECT_EQ(number, 0x01020000);
  process(bytes("49"), number);
  EXPECT_EQ(number, 0);
}

TEST_P(BinaryReaderFrom, SaysWhatItReadsOfAnInteger) {
  int number = 0;
  const LogCapture log;
  process(bytes("49 00 00 00 01"), number);
  EXPECT_LOGGED(log, debug, "BinaryReader::readInt(): prefix 'I' OK, read 4 bytes now.");
}

// Standard strings

TEST_P(BinaryReaderFrom, ReadsStandardStrings) {
  std::string text = "old";
  const LogCapture log;
  process(bytes("73 00 02 61 62 3B"), text);
  EXPECT_EQ(text, "ab");
  EXPECT_LOGGED(log, debug, "BinaryReader::readString(): prefix 's' OK, read 2 bytes now.");
  EXPECT_LOGGED(log, debug, "BinaryReader::readString(): read 2 bytes of String length");
  EXPECT_LOGGED(log, debug, "BinaryReader::readString(): stringLength = 2");
  EXPECT_LOGGED(log, debug, "BinaryReader::readString(): all string read OK.");
  process(bytes("73 00 00 3B"), text);
  EXPECT_EQ(text, "");
}

TEST_P(BinaryReaderFrom, ReadsStandardStringsIntoTheNativeCodePage) {
  std::string text;
  process(bytes("73 00 02 C3 A9 3B"), text);
  EXPECT_EQ(text, "\xC3\xA9");
  const test::CodePage latin("ISO-8859-1");
  process(bytes("73 00 02 C3 A9 3B"), text);
  EXPECT_EQ(text, "\xE9");
}

TEST_P(BinaryReaderFrom, CutsStandardStringsAtTheirFirstNul) {
  std::string text;
  process(bytes("73 00 03 61 00 62 3B"), text);
  EXPECT_EQ(text, "a");
  process(bytes("73 00 01 00 3B"), text);
  EXPECT_EQ(text, "");
}

TEST_P(BinaryReaderFrom, RefusesTheNullObjectForAStandardString) {
  std::string text = "old";
  const LogCapture log;
  const auto error = caught<UnexpectedChar>([&] { process(bytes("4C 49 00 00 00 01 3B"), text); });
  EXPECT_EQ(error->getChar(), 76);
  EXPECT_EQ(error->getExpectedChar(), 115);
  EXPECT_LOGGED(log, error,
                "BinaryReader::readString(): expected STRING_PREFIX, got '76'; throwing "
                "UnexpectedChar(c)");
}

TEST_P(BinaryReaderFrom, RefusesAStandardStringWithoutItsEnd) {
  std::string text;
  const LogCapture log;
  const auto error = caught<UnexpectedChar>([&] { process(bytes("73 00 02 61 62 63"), text); });
  EXPECT_EQ(error->getChar(), 'c');
  EXPECT_EQ(error->getExpectedChar(), ';');
  EXPECT_LOGGED(log, error,
                "BinaryReader: expected END_OF_ENTITY (';'), got 'c' (ASCII: 99);  throwing "
                "UnexpectedChar(c)");
}

TEST_P(BinaryReaderFrom, StopsAtAStringThatCameShort) {
  std::string plain;
  NOXPString text;
  for (const char* data : {"73", "73 00"}) {
    const LogCapture log;
    EXPECT_STREQ(caught<AssertionFailure>([&] { process(bytes(data), plain); })->what(),
                 "bytesRead == 2");
    EXPECT_STREQ(caught<AssertionFailure>([&] { process(bytes(data), &text); })->what(),
                 "bytesRead == 2");
    EXPECT_LOGGED(log, critical, "bytesRead == 2");
  }
  for (const char* data : {"73 FF FF 41", "73 00 01", "73 00 03 61 62"}) {
    const LogCapture log;
    EXPECT_STREQ(caught<AssertionFailure>([&] { process(bytes(data), plain); })->what(),
                 "bytesRead == stringLength");
    EXPECT_STREQ(caught<AssertionFailure>([&] { process(bytes(data), &text); })->what(),
                 "bytesRead == stringLength");
    EXPECT_LOGGED(log, critical, "bytesRead == stringLength");
  }
  EXPECT_TRUE(caught<LAST>([&] { process(bytes("73 00 02 61 62"), plain); }));
  EXPECT_TRUE(caught<LAST>([&] { process(bytes("73 00 02 61 62"), &text); }));
}

// Protocol strings

TEST_P(BinaryReaderFrom, ReadsProtocolStringsAsNarrowText) {
  // Deliberate: the bytes are not converted, whatever the native code page.
  NOXPString text("old", true);
  const LogCapture log;
  process(bytes("73 00 02 C3 A9 3B"), &text);
  EXPECT_EQ(text.getType(), NOXPString::Narrow);
  EXPECT_STREQ(text.c_str(), "\xC3\xA9");
  EXPECT_LOGGED(log, debug, "BinaryReader::readNOXPString(): read 2 bytes of String length");
  EXPECT_LOGGED(log, debug, "BinaryReader::readNOXPString(): stringLength = 2");
  EXPECT_LOGGED(log, debug, "BinaryReader::readNOXPString(): all string read OK.");
  const test::CodePage latin("ISO-8859-1");
  process(bytes("73 00 02 C3 A9 3B"), &text);
  EXPECT_STREQ(text.c_str(), "\xC3\xA9");
}

TEST_P(BinaryReaderFrom, KeepsNulsInProtocolStrings) {
  NOXPString text;
  process(bytes("73 00 03 61 00 62 3B"), &text);
  EXPECT_EQ(text.length(), 3u);
  EXPECT_EQ(std::string(text.c_str(), 3), std::string("a\0b", 3));
}

TEST_P(BinaryReaderFrom, ReadsEmptyAndNullProtocolStringsAsEmptyText) {
  for (const char* data : {"73 00 00 3B", "4C 49 00 00 00 01 3B"}) {
    NOXPString text("old", true);
    process(bytes(data), &text);
    EXPECT_EQ(text.length(), 0u);
    // Narrow, not Empty: text can be appended to it.
    EXPECT_EQ(text.getType(), NOXPString::Narrow);
    text.append("x");
    EXPECT_STREQ(text.c_str(), "x");
  }
}

TEST_P(BinaryReaderFrom, RefusesAnotherObjectForAProtocolString) {
  NOXPString text("old");
  const LogCapture log;
  const auto error = caught<UnexpectedChar>([&] { process(bytes("4C 49 00 00 00 02 3B"), &text); });
  EXPECT_EQ(error->getChar(), 76);
  EXPECT_EQ(error->getExpectedChar(), 1);
  EXPECT_STREQ(text.c_str(), "old");
  EXPECT_LOGGED(log, error,
                "BinaryReader::readNOXPString(): expected NULL type after "
                "BY_VALUE_OBJECT_PREFIX.");
}

TEST_P(BinaryReaderFrom, RefusesAMissingProtocolString) {
  NOXPString text("old");
  const LogCapture log;
  const auto error = caught<UnexpectedChar>([&] { process(";", &text); });
  EXPECT_EQ(error->getChar(), 59);
  EXPECT_EQ(error->getExpectedChar(), 115);
  EXPECT_LOGGED(log, error,
                "BinaryReader::readNOXPString():Unexpected END_OF_ENTITY. Expected NOXPString "
                "attribute.");
}

TEST_P(BinaryReaderFrom, RefusesAnotherMarkerForAProtocolString) {
  NOXPString text("old");
  const LogCapture log;
  const auto error = caught<UnexpectedChar>([&] { process("j", &text); });
  EXPECT_EQ(error->getChar(), 'j');
  EXPECT_EQ(error->getExpectedChar(), 's');
  EXPECT_LOGGED(log, error,
                "BinaryReader::readNOXPString(): expected 'L' or 's' ', got 106 'j'; throw "
                "UnexpectedChar(typeCode)");
}

// Blobs

TEST_P(BinaryReaderFrom, ReadsBlobs) {
  NOXPBlob blob("old");
  process(bytes("6A 62 00 00 00 02 41 42 3B 3B"), &blob);
  EXPECT_BYTES(std::string(reinterpret_cast<const char*>(blob.getBuf()), blob.length()), "AB");
  process(bytes("6A 62 00 00 00 00 3B 3B"), &blob);
  EXPECT_EQ(blob.length(), 0u);
}

TEST_P(BinaryReaderFrom, ReadsANullBlobAsEmpty) {
  NOXPBlob blob("old");
  process(bytes("4C 49 00 00 00 01 3B"), &blob);
  EXPECT_EQ(blob.length(), 0u);
}

TEST_P(BinaryReaderFrom, RefusesABlobWithOneEnd) {
  NOXPBlob blob;
  const auto error =
      caught<UnexpectedChar>([&] { process(bytes("6A 62 00 00 00 02 41 42 3B 62"), &blob); });
  EXPECT_EQ(error->getChar(), 'b');
  EXPECT_EQ(error->getExpectedChar(), 59);
}

TEST_P(BinaryReaderFrom, RefusesAnotherObjectForABlob) {
  NOXPBlob blob;
  const LogCapture log;
  const auto error = caught<UnexpectedChar>([&] { process(bytes("4C 49 00 00 00 00 3B"), &blob); });
  EXPECT_EQ(error->getChar(), 76);
  EXPECT_EQ(error->getExpectedChar(), 1);
  EXPECT_LOGGED(log, error,
                "BinaryReader::readNOXPBlob(): expected NULL type after BY_VALUE_OBJECT_PREFIX.");
}

TEST_P(BinaryReaderFrom, RefusesOtherMarkersForABlob) {
  NOXPBlob blob;
  const LogCapture log;
  auto error = caught<UnexpectedChar>([&] { process(";", &blob); });
  EXPECT_EQ(error->getChar(), ';');
  EXPECT_EQ(error->getExpectedChar(), 'j');
  EXPECT_LOGGED(log, error,
                "BinaryReader::readNOXPBlob():Unexpected END_OF_ENTITY. Expected NOXPBlob "
                "attribute.");
  error = caught<UnexpectedChar>([&] { process("s", &blob); });
  EXPECT_EQ(error->getChar(), 's');
  EXPECT_EQ(error->getExpectedChar(), 'j');
  EXPECT_LOGGED(log, error,
                "BinaryReader::readNOXPBlob(): expected 'L', 's' or 'j', got 115 's'; throw "
                "UnexpectedChar(typeCode)");
  error = caught<UnexpectedChar>([&] { process(bytes("6A 63 00 00 00 00 3B 3B"), &blob); });
  EXPECT_EQ(error->getChar(), 'c');
  EXPECT_EQ(error->getExpectedChar(), 'b');
  EXPECT_LOGGED(log, error,
                "BinaryReader::readNOXPBlob(): expected BYTE_ARRAY_PREFIX, got 99 'c'; throw "
                "UnexpectedChar(c)");
}

TEST_P(BinaryReaderFrom, ShowsANulAsNothing) {
  NOXPBlob blob;
  const LogCapture log;
  caught<UnexpectedChar>([&] { process(std::string(1, '\0'), &blob); });
  EXPECT_LOGGED(log, error,
                "BinaryReader::readNOXPBlob(): expected 'L', 's' or 'j', got 0 ''; throw "
                "UnexpectedChar(typeCode)");
}

TEST_P(BinaryReaderFrom, TakesNoMemoryForAFalseBlobLength) {
  for (const char* count : {"FF FF FF FF", "7F FF FF FF", "80 00 00 00"}) {
    const std::string blob = bytes("6A 62" + std::string(count)) + "some bytes";
    NOXPBlob direct;
    const AllocationScope scope;
    EXPECT_TRUE(caught<LAST>([&] { process(blob, &direct); }));
    Classes<Bytes> factory;
    EXPECT_TRUE(
        caught<LAST>([&] { reading(framed(objectOf("05", blob)), factory).readRootObject(); }));
    // A stream that cannot say how much is there is asked for a first MiB.
    EXPECT_LT(scope.bytes(), GetParam() == Source::Memory ? kLittle : (1u << 20) + kLittle);
  }
}

TEST(BinaryReader, ReadsALargeBlobFromAConnectionAsItArrives) {
  const std::string data(5 << 20, 'x');
  Connection connection(bytes("6A 62 00 50 00 00") + data + ";;");
  Classes<> factory;
  BinaryReader reader(&factory, &connection);
  NOXPBlob blob;
  reader.process(&blob, "blob");
  EXPECT_TRUE(std::string(reinterpret_cast<const char*>(blob.getBuf()), blob.length()) == data);
}

// Objects

TEST_P(BinaryReaderFrom, FillsANestedObjectInPlace) {
  const auto holder =
      readAs<Holder>(framed(objectOf("07", objectOf("08", bytes("49 00 00 00 09")))));
  ASSERT_TRUE(holder);
  EXPECT_EQ(holder->inner_.number_, 9);
}

TEST_P(BinaryReaderFrom, LeavesANestedObjectAloneForNull) {
  const auto holder = readAs<Holder>(framed(objectOf("07", bytes("4C 49 00 00 00 01 3B"))));
  ASSERT_TRUE(holder);
  EXPECT_EQ(holder->inner_.number_, 0);
}

TEST_P(BinaryReaderFrom, RefusesANestedObjectOfAnotherType) {
  Classes<Holder> factory;
  const LogCapture log;
  const auto error = caught<UnexpectedType>(
      [&] { reading(framed(objectOf("07", objectOf("07", ""))), factory).readRootObject(); });
  EXPECT_EQ(error->getActualType(), 7);
  EXPECT_EQ(error->getExpectedType(), 8);
  EXPECT_LOGGED(log, error,
                "BinaryReader::readObject(): expected type 8, got 7 throwing UnexpectedType");
}

TEST_P(BinaryReaderFrom, ChecksTheTypeBeforeItAsksTheFactory) {
  class Watching : public Classes<Holder> {
  public:
    Serializable* createObject(int type) override {
      asked_.push_back(type);
      return Classes<Holder>::createObject(type);
    }
    std::vector<int> asked_;
  };
  Watching factory;
  caught<UnexpectedType>(
      [&] { reading(framed(objectOf("07", objectOf("09", ""))), factory).readRootObject(); });
  reading(kNullFrame, factory).readRootObject();
  EXPECT_EQ(factory.asked_, std::vector<int>{7});
}

TEST_P(BinaryReaderFrom, RefusesAnotherMarkerForAnObject) {
  Classes<> factory;
  const LogCapture log;
  const auto error =
      caught<UnexpectedChar>([&] { reading(framed("GARBAGE"), factory).readRootObject(); });
  EXPECT_EQ(error->getChar(), 'G');
  EXPECT_EQ(error->getExpectedChar(), 'L');
  EXPECT_LOGGED(log, error,
                "BinaryReader::readObject(): expected char 76, got 71 throwing UnexpectedChar(c)");
}

TEST_P(BinaryReaderFrom, RefusesAnObjectWithoutItsEnd) {
  Classes<Bare<2>> factory;
  const auto error = caught<UnexpectedChar>([&] {
    reading(framed(bytes("4C 49 00 00 00 02 49 00 00 00 00")), factory).readRootObject();
  });
  EXPECT_EQ(error->getChar(), ']');
  EXPECT_EQ(error->getExpectedChar(), ';');
}

TEST_P(BinaryReaderFrom, ReadsAndDropsWhatFieldsAreNullFor) {
  const auto nulls = readAs<Nulls>(framed(objectOf("06", bytes("73 00 01 61 3B"
                                                               "6A 62 00 00 00 01 61 3B 3B"
                                                               "4C 49 00 00 00 01 3B"
                                                               "49 00 00 00 07"))));
  ASSERT_TRUE(nulls);
  EXPECT_EQ(nulls->last_, 7);
}

TEST_P(BinaryReaderFrom, CreatesReadsAndDropsAnObjectForANullPointer) {
  Classes<Nulls, Pair> factory;
  const std::string frame =
      framed(objectOf("06", bytes("4C 49 00 00 00 01 3B 4C 49 00 00 00 01 3B") +
                                kPairFrame.substr(5, 23) + bytes("49 00 00 00 07")));
  std::unique_ptr<Serializable> root(reading(frame, factory).readRootObject());
  EXPECT_EQ(dynamic_cast<Nulls&>(*root).last_, 7);
}

TEST_P(BinaryReaderFrom, KeepsTheExceptionsOfFieldsThatAreDropped) {
  Classes<Nulls> factory;
  const auto error = caught<UnexpectedChar>(
      [&] { reading(framed(objectOf("06", "j")), factory).readRootObject(); });
  EXPECT_EQ(error->getChar(), 'j');
  EXPECT_EQ(error->getExpectedChar(), 's');
}

TEST(BinaryReader, ReadsObjectsOutsideAFrame) {
  const std::string body = kPairFrame.substr(5, 23);
  Classes<Pair> factory;
  MemoryBufferInputStream stream(body.data(), body.size());
  BinaryReader reader(&factory, &stream);
  Pair expected;
  EXPECT_EQ(reader.readObject(&expected), &expected);
  EXPECT_EQ(expected.number_, 5);

  MemoryBufferInputStream second(body.data(), body.size());
  BinaryReader creating(&factory, &second);
  const std::unique_ptr<Serializable> created(creating.readObject(nullptr));
  EXPECT_EQ(dynamic_cast<Pair&>(*created).text_, "ab");
}

TEST(BinaryReader, ReadsFromASubclassOfTheMemoryStreamThroughItsReadMax) {
  class Upper : public MemoryBufferInputStream {
  public:
    using MemoryBufferInputStream::MemoryBufferInputStream;
    using MemoryBufferInputStream::readMax;
    std::int64_t readMax(char* buf, int max) override {
      const std::int64_t n = MemoryBufferInputStream::readMax(buf, max);
      for (std::int64_t i = 0; i < n; ++i) {
        if (buf[i] == 'a') buf[i] = 'A';
      }
      return n;
    }
  };
  const std::string data = bytes("73 00 02 61 62 3B");
  Classes<> factory;
  Upper stream(data.data(), data.size());
  BinaryReader reader(&factory, &stream);
  std::string text;
  reader.process(text, "text");
  EXPECT_EQ(text, "Ab");
}

TEST(BinaryReader, KeepsAMemoryStreamsPositionTruthful) {
  const std::string data = bytes("49 00 00 00 01") + "rest";
  Classes<> factory;
  MemoryBufferInputStream stream(data.data(), data.size());
  BinaryReader reader(&factory, &stream);
  int number = 0;
  reader.process(number, "n");
  EXPECT_EQ(stream.readChar(), 'r');
}

TEST(BinaryReader, FindsNothingInAMemoryStreamWithoutABuffer) {
  Classes<> factory;
  MemoryBufferInputStream stream(nullptr, 100);
  BinaryReader reader(&factory, &stream);
  EXPECT_TRUE(caught<LAST>([&] { reader.readRootObject(); }));
}

TEST(BinaryReader, LetsExceptionsOfSerializePass) {
  class Failing : public Bare<30> {
  public:
    Serializable* create() override { return new Failing; }
    Archive& serialize(Archive&, unsigned int) override { throw std::runtime_error("its own"); }
  };
  Classes<Failing> factory;
  EXPECT_THROW(readFrame(framed(bytes("4C 49 00 00 00 1E 49 00 00 00 00 3B")), factory),
               std::runtime_error);
}

// Requests

TEST_P(BinaryReaderFrom, ReadsRequests) {
  Classes<test::Ask> factory;
  const std::unique_ptr<noxp::RequestProt> request(
      reading(framed(bytes("4C 49 00 00 00 11 49 00 00 00 00 3B")), factory).readRequest());
  ASSERT_TRUE(request);
  EXPECT_EQ(request->getType(), 17);
}

TEST_P(BinaryReaderFrom, DeletesARootThatIsNoRequest) {
  Classes<Pair> factory;
  EXPECT_EQ(reading(kPairFrame + kNullFrame, factory).readRequest(), nullptr);
  EXPECT_EQ(reader_->readRequest(), nullptr);
}

// HTTP

class Page : public noxp::HTTPRequestProt {
public:
  Serializable* create() override { return new Page; }
  Archive& serialize(Archive& ar, unsigned int /*version*/) override { return ar & text_; }
  bool isServiceEnabled(int) override { return true; }
  int getMaxRequestSize() override { return 0; }
  void setError(int status, const char*) override { status_ = status; }

  std::string text_;
  int status_ = 0;
};

TEST_P(BinaryReaderFrom, HandsHttpRequestsToTheHttpReader) {
  for (const std::string method : {"GET ", "PUT ", "POST", "DELETE ", "HEAD ", "OPTIONS "}) {
    const std::string request = method + "/index HTTP/1.1\r\nHost: here\r\n\r\n";
    const auto page = readAs<Page>(request);
    ASSERT_TRUE(page) << method;
    EXPECT_EQ(page->text_.substr(0, method.size() + 6), method + "/index");
    EXPECT_EQ(page->getPacketSize(), 0u);
  }
}

TEST_P(BinaryReaderFrom, AnswersHttpWithNullWhenTheFactoryKnowsNoPages) {
  Classes<Pair> factory;
  EXPECT_EQ(reading("GET / HTTP/1.1\r\n\r\n", factory).readRootObject(), nullptr);
}

TEST_P(BinaryReaderFrom, TakesOtherWordsForBrokenFrames) {
  Classes<Page> factory;
  for (const std::string word : {"PATCH /", "TRACE /", "get / ", "CONNECT"}) {
    const auto error = caught<UnexpectedChar>([&] { reading(word, factory).readRootObject(); });
    EXPECT_EQ(error->getChar(), word[4]) << word;
    EXPECT_EQ(error->getExpectedChar(), '[');
  }
}

// Compressed frames

std::string compressedFrame(const std::string& body) {
  return framed("GZIP" + GZipCompressor().compress(body));
}

TEST_P(BinaryReaderFrom, ReadsCompressedFrames) {
  const std::string frame = compressedFrame(kPairFrame.substr(5, 23));
  const auto pair = readAs<Pair>(frame);
  ASSERT_TRUE(pair);
  EXPECT_EQ(pair->text_, "ab");
  EXPECT_EQ(pair->getPacketSize(), frame.size() - 4);  // of the frame as it came
}

TEST_P(BinaryReaderFrom, InflatesAMemberTypedByHand) {
  // The null root in one stored block.
  Classes<> factory;
  const std::string member = bytes(
      "1F 8B 08 00 00 00 00 00 00 03"
      "01 07 00 F8 FF  4C 49 00 00 00 01 3B");
  const std::string whole = GZipCompressor().compress(bytes("4C 49 00 00 00 01 3B"));
  EXPECT_EQ(
      reading(framed("GZIP" + member + whole.substr(whole.size() - 8)), factory).readRootObject(),
      nullptr);
}

TEST_P(BinaryReaderFrom, NeverLooksAtTheLastByteOfACompressedFrame) {
  std::string frame = compressedFrame(kPairFrame.substr(5, 23));
  frame.back() = 'x';
  EXPECT_TRUE(readAs<Pair>(frame));
}

TEST_P(BinaryReaderFrom, ReportsWhatTheCompressorSaysAndStaysGood) {
  // Deliberate: this failure comes before the frame becomes the current stream.
  std::string frame = compressedFrame(kPairFrame.substr(5, 23));
  frame[frame.size() - 9] ^= 1;  // in the checksum
  Classes<Pair> factory;
  BinaryReader& reader = reading(frame + kPairFrame, factory);
  const LogCapture log;
  try {
    reader.readRootObject();
    ADD_FAILURE() << "nothing was thrown";
  } catch (const CompressionError& error) {
    const std::string text = error.what();
    const std::string start = "Root object compression error: CRC error, must be ";
    EXPECT_EQ(text.substr(0, start.size()), start);
    EXPECT_LOGGED(log, error, "GZIP: " + text.substr(31));
  }
  EXPECT_TRUE(std::unique_ptr<Serializable>(reader.readRootObject()));
}

TEST_P(BinaryReaderFrom, TakesShortBodiesThatBeginWithGzipForPlainOnes) {
  // 24 bytes with the ']', one less than the smallest compressed body.
  Classes<> factory;
  const auto error = caught<UnexpectedChar>(
      [&] { reading(framed("GZIP" + std::string(19, 'x')), factory).readRootObject(); });
  EXPECT_EQ(error->getChar(), 71);
  EXPECT_EQ(error->getExpectedChar(), 'L');
  EXPECT_THROW(reading(framed("GZIP" + std::string(20, 'x')), factory).readRootObject(),
               CompressionError);
}

TEST_P(BinaryReaderFrom, FindsNoObjectInAnEmptyMember) {
  Classes<> factory;
  const auto error =
      caught<UnexpectedChar>([&] { reading(compressedFrame(""), factory).readRootObject(); });
  EXPECT_EQ(error->getChar(), ']');
  EXPECT_EQ(error->getExpectedChar(), 'L');
}

TEST_P(BinaryReaderFrom, TakesNoMemoryForAFalseSizeOfTheContent) {
  std::string frame = compressedFrame(kPairFrame.substr(5, 23));
  frame.replace(frame.size() - 5, 4, bytes("FF FF FF FF"));
  Classes<Pair> factory;
  std::unique_ptr<Serializable>(reading(frame, factory).readRootObject());  // zlib's memory
  BinaryReader& reader = reading(frame, factory);
  const AllocationScope scope;
  EXPECT_TRUE(std::unique_ptr<Serializable>(reader.readRootObject()));
  EXPECT_LT(scope.bytes(), kLittle);
}

TEST_P(BinaryReaderFrom, InflatesNoMoreThanItsLimit) {
  const std::string body = kPairFrame.substr(5, 23);
  Classes<Pair> factory;
  BinaryReader& reader = reading(compressedFrame(body) + compressedFrame(body), factory);
  reader.limitInflation(body.size());
  EXPECT_TRUE(std::unique_ptr<Serializable>(reader.readRootObject()));
  reader.limitInflation(body.size() - 1);
  EXPECT_THROW(reader.readRootObject(), CompressionError);
}

TEST_P(BinaryReaderFrom, HandsItsLimitToItsCopies) {
  const std::string body = kPairFrame.substr(5, 23);
  Classes<Pair> factory;
  BinaryReader& reader = reading(compressedFrame(body) + compressedFrame(body), factory);
  reader.limitInflation(body.size() - 1);
  BinaryReader copy(reader);
  EXPECT_THROW(copy.readRootObject(), CompressionError);
  BinaryReader assigned(nullptr, nullptr);
  assigned = reader;
  EXPECT_THROW(assigned.readRootObject(), CompressionError);
}

// What a peer can do

TEST_P(BinaryReaderFrom, TakesLengthsBelowOneForAnEmptyFrame) {
  Classes<Pair> factory;
  for (const char* length : {"00 00 00 00", "FF FF FF FF", "80 00 00 00", "80 00 00 01"}) {
    BinaryReader& reader = reading(bytes(length) + kPairFrame.substr(4), factory);
    const LogCapture log;
    const AllocationScope scope;
    EXPECT_TRUE(caught<LAST>([&] { reader.readRootObject(); })) << length;
    EXPECT_LT(scope.bytes(), kLittle);
    EXPECT_LOGGED(log, warning, "Corrupted data. ");
  }
}

TEST_P(BinaryReaderFrom, EndsAtAFrameThatHoldsItsStartAlone) {
  Classes<Pair> factory;
  EXPECT_TRUE(caught<LAST>(
      [&] { reading(bytes("00 00 00 01") + kPairFrame.substr(4), factory).readRootObject(); }));
}

TEST_P(BinaryReaderFrom, TakesNoMemoryForAFalseFrameLength) {
  // The second one reads "GET [": a frame of more than a GiB, not HTTP.
  Classes<Pair> factory;
  for (const char* start : {"7F FF FF FF 5B", "47 45 54 20 5B"}) {
    for (const std::string& rest : {std::string(), kPairFrame.substr(5)}) {
      BinaryReader& reader = reading(bytes(start) + rest, factory);
      const AllocationScope scope;
      if (rest.empty()) {
        EXPECT_TRUE(caught<LAST>([&] { reader.readRootObject(); }));
      } else {
        EXPECT_EQ(caught<UnexpectedChar>([&] { reader.readRootObject(); })->getChar(), 0);
      }
      EXPECT_LT(scope.bytes(), GetParam() == Source::Memory ? kLittle : (1u << 20) + kLittle);
    }
  }
}

TEST(BinaryReader, GrowsAFalseFrameOnlyWithWhatArrives) {
  Classes<Pair> factory;
  const std::string data = bytes("7F FF FF FF 5B") + std::string(3 << 20, 'x');
  Connection connection(data);
  BinaryReader reader(&factory, &connection);
  const AllocationScope scope;
  EXPECT_TRUE(caught<UnexpectedChar>([&] { reader.readRootObject(); }));
  EXPECT_LT(scope.bytes(), 4 * data.size());
}

TEST_P(BinaryReaderFrom, SetsNoPacketSizeOnNoObject) {
  Classes<> factory;
  BinaryReader& reader = reading(kNullFrame + kNullFrame, factory);
  EXPECT_EQ(reader.readRootObject(), nullptr);
  EXPECT_EQ(reader.readRootObject(), nullptr);
}

std::string nested(int levels) {
  std::string body;
  for (int i = 0; i < levels; ++i) body += bytes("4C 49 00 00 00 0F 49 00 00 00 00");
  return body + bytes("4C 49 00 00 00 01 3B") + std::string(static_cast<std::size_t>(levels), ';');
}

TEST_P(BinaryReaderFrom, ReadsObjectsNestedTo512Levels) {
  Classes<Anything> factory;
  EXPECT_TRUE(
      std::unique_ptr<Serializable>(reading(framed(nested(511)), factory).readRootObject()));
}

TEST_P(BinaryReaderFrom, RefusesObjectsNestedDeeper) {
  Classes<Anything> factory;
  for (const int levels : {512, 43000}) {
    const LogCapture log;
    const auto error = caught<AssertionFailure>(
        [&] { reading(framed(nested(levels)), factory).readRootObject(); });
    EXPECT_STREQ(error->what(), "depth <= 512");
    EXPECT_LOGGED(log, critical, "object nesting too deep");
  }
  // The count starts anew with the next stream.
  const std::string good = framed(nested(511));
  reader_->setInputStream(new Connection(good));
  EXPECT_TRUE(std::unique_ptr<Serializable>(reader_->readRootObject()));
  std::unique_ptr<InputStream>(reader_->getInputStream());
}

TEST_P(BinaryReaderFrom, StopsAtAStringThatClaimsMoreThanItsFrame) {
  Classes<Pair, Text> factory;
  EXPECT_STREQ(caught<AssertionFailure>([&] {
                 reading(framed(objectOf("04", bytes("73 FF FF 41"))), factory).readRootObject();
               })->what(),
               "bytesRead == stringLength");
  EXPECT_STREQ(
      caught<AssertionFailure>([&] {
        reading(framed(bytes("4C 49 00 00 00 04 49 00 00 00 00 73")), factory).readRootObject();
      })->what(),
      "bytesRead == 2");
}

TEST_P(BinaryReaderFrom, TakesMissingBytesOfATypeForZeros) {
  // The type is 00 00, the frame's own ']' and a missing byte: 5D00.
  Classes<Pair> factory;
  const auto error =
      caught<UnknownType>([&] { reading(framed(bytes("4C 49 00 00")), factory).readRootObject(); });
  EXPECT_EQ(error->getTypeCode(), 0x5D00);
}

// Counts its living instances and reads one number.
class Tracked : public Bare<20> {
public:
  Tracked() { ++alive; }
  Tracked(const Tracked&) = delete;
  Tracked& operator=(const Tracked&) = delete;
  ~Tracked() override { --alive; }
  Serializable* create() override { return new Tracked; }
  Archive& serialize(Archive& ar, unsigned int /*version*/) override { return ar & number_; }
  int number_ = 0;
  static inline int alive = 0;
};

TEST_P(BinaryReaderFrom, DeletesTheObjectOfABrokenFrame) {
  Classes<Tracked> factory;  // holds one
  const std::string head = bytes("4C 49 00 00 00 14 49 00 00 00 00");
  for (const std::string& body :
       {head, head + bytes("49 00 00 00 01"), head + bytes("49 00 00 00 01 78")}) {
    EXPECT_TRUE(caught<UnexpectedChar>([&] { reading(framed(body), factory).readRootObject(); }));
    EXPECT_EQ(Tracked::alive, 1);
  }
  EXPECT_TRUE(caught<LAST>([&] { reading(framed(head + "I"), factory).readRootObject(); }));
  EXPECT_EQ(Tracked::alive, 1);
  std::string frame = framed(head + bytes("49 00 00 00 01 3B"));
  frame.back() = 'x';
  EXPECT_TRUE(caught<UnexpectedChar>([&] { reading(frame, factory).readRootObject(); }));
  EXPECT_EQ(Tracked::alive, 1);
}

TEST_P(BinaryReaderFrom, DeletesWhatItReadsForANullPointerThatBreaks) {
  Classes<Anything, Tracked> factory;
  EXPECT_TRUE(caught<NOXException>([&] {
    reading(framed(objectOf("0F", bytes("4C 49 00 00 00 14 49 00 00 00 00 78"))), factory)
        .readRootObject();
  }));
  EXPECT_EQ(Tracked::alive, 1);
}

// After a failure

TEST_P(BinaryReaderFrom, KeepsABrokenFrameCurrent) {
  Classes<Pair> factory;
  BinaryReader& reader = reading(framed("GARBAGE") + kPairFrame, factory);
  EXPECT_TRUE(caught<UnexpectedChar>([&] { reader.readRootObject(); }));
  EXPECT_NE(reader.getInputStream(), stream_.get());
  EXPECT_EQ(reader.getInputStream()->readChar(), 'A');
}

TEST_P(BinaryReaderFrom, IsGoodAgainWithAnotherStream) {
  Classes<Pair> factory;
  BinaryReader& reader = reading(framed("GARBAGE"), factory);
  EXPECT_TRUE(caught<UnexpectedChar>([&] { reader.readRootObject(); }));
  const auto next = std::make_unique<Connection>(kPairFrame + kPairFrame);
  reader.setInputStream(next.get());
  EXPECT_TRUE(std::unique_ptr<Serializable>(reader.readRootObject()));
  EXPECT_TRUE(std::unique_ptr<Serializable>(reader.readRootObject()));
  EXPECT_EQ(reader.getInputStream(), next.get());
}

TEST_P(BinaryReaderFrom, ReadsTheRestOfABrokenFrameWhenItGoesOn) {
  // Deliberate: the frame stays the stream, so what follows 'x' in it is taken for frames.
  Classes<Pair> factory;
  BinaryReader& reader = reading(framed("x" + kPairFrame) + kPairFrame, factory);
  EXPECT_TRUE(caught<UnexpectedChar>([&] { reader.readRootObject(); }));
  EXPECT_TRUE(std::unique_ptr<Serializable>(reader.readRootObject()));
  EXPECT_TRUE(caught<LAST>([&] { reader.readRootObject(); }));
  EXPECT_TRUE(caught<LAST>([&] { reader.readRootObject(); }));
}

TEST_P(BinaryReaderFrom, SurvivesABrokenFrameInTheRestOfABrokenFrame) {
  Classes<Pair> factory;
  std::string compressed = compressedFrame(kPairFrame.substr(5, 23));
  compressed[compressed.size() - 9] ^= 1;
  BinaryReader& reader =
      reading(framed("x" + compressed + framed("GARBAGE") + kPairFrame) + kPairFrame, factory);
  EXPECT_TRUE(caught<UnexpectedChar>([&] { reader.readRootObject(); }));
  EXPECT_THROW(reader.readRootObject(), CompressionError);
  EXPECT_TRUE(caught<UnexpectedChar>([&] { reader.readRootObject(); }));
  EXPECT_EQ(reader.getInputStream()->readChar(), 'A');
}

TEST(BinaryReader, OutlivesTheBytesOfABrokenFrame) {
  Classes<Pair> factory;
  auto data = std::make_unique<std::string>(framed("GARBAGE, and a little more of it"));
  auto stream = std::make_unique<MemoryBufferInputStream>(data->data(), data->size());
  BinaryReader reader(&factory, stream.get());
  EXPECT_TRUE(caught<UnexpectedChar>([&] { reader.readRootObject(); }));
  stream.reset();
  data.reset();
  EXPECT_EQ(reader.getInputStream()->readChar(), 'A');
}

TEST(BinaryReader, SharesABrokenFrameWithItsCopies) {
  Classes<Pair> factory;
  Connection connection(framed("GARBAGE"));
  auto reader = std::make_unique<BinaryReader>(&factory, &connection);
  EXPECT_TRUE(caught<UnexpectedChar>([&] { reader->readRootObject(); }));
  BinaryReader copy(*reader);
  EXPECT_EQ(copy.getInputStream(), reader->getInputStream());
  EXPECT_EQ(copy.getObjectFactory(), &factory);
  reader.reset();
  EXPECT_EQ(copy.getInputStream()->readChar(), 'A');

  Connection other("");
  BinaryReader assigned(nullptr, &other);
  assigned = copy;
  copy.setInputStream(nullptr);
  EXPECT_EQ(assigned.getInputStream()->readChar(), 'R');
}

TEST(BinaryReader, ReadsOnWithEitherCopyBetweenFrames) {
  Classes<Pair> factory;
  Connection connection(kPairFrame + kPairFrame + kPairFrame);
  BinaryReader reader(&factory, &connection);
  EXPECT_TRUE(std::unique_ptr<Serializable>(reader.readRootObject()));
  BinaryReader copy(reader);
  EXPECT_TRUE(std::unique_ptr<Serializable>(copy.readRootObject()));
  EXPECT_TRUE(std::unique_ptr<Serializable>(reader.readRootObject()));
}

TEST(BinaryReader, DeletesTheStreamThatIsReplacedBetweenFrames) {
  Classes<Pair> factory;
  BinaryReader reader(&factory, new Connection(kPairFrame));
  EXPECT_TRUE(std::unique_ptr<Serializable>(reader.readRootObject()));
  reader.setInputStream(nullptr);
  EXPECT_TRUE(caught<LAST>([&] { reader.readRootObject(); }));
}

TEST(BinaryReader, SaysThatItReads) {
  BinaryReader reader(nullptr, nullptr);
  EXPECT_FALSE(reader.isWriting());
  EXPECT_EQ(reader.getReader(), &reader);
  EXPECT_EQ(reader.getWriter(), nullptr);
}

TEST(BinaryReader, ServesTheInterfaceOfAllInputReaders) {
  Classes<Pair> factory;
  Connection connection(kPairFrame + bytes("3B  73 00 01 61 3B  73 00 01 62 3B"
                                           "6A 62 00 00 00 01 63 3B 3B  49 00 00 00 64  65"));
  BinaryReader binary(&factory, &connection);
  input_reader& reader = binary;
  EXPECT_TRUE(std::unique_ptr<Serializable>(reader.readRootObject()));
  reader.checkEndOfObjectMarker();
  NOXPString text;
  reader.readNOXPString(&text);
  EXPECT_STREQ(text.c_str(), "a");
  EXPECT_EQ(*std::unique_ptr<std::string>(reader.readString()), "b");
  NOXPBlob blob;
  reader.readNOXPBlob(&blob);
  EXPECT_EQ(blob.length(), 1u);
  EXPECT_EQ(reader.readInt(), 0x64);
  EXPECT_EQ(reader.readChar(), 0x65);
}

// Both directions

TEST(BinaryReader, ReadsWhatTheWriterWrote) {
  Everything message(-7, "plain", "narrow \xC3\xA9", "blob");
  message.inner_.number_ = 8;
  const auto read = test::roundTrip(message);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->number_, -7);
  EXPECT_EQ(read->plain_, "plain");
  EXPECT_STREQ(read->text_->c_str(), "narrow \xC3\xA9");
  EXPECT_EQ(read->blob_->length(), 4u);
  EXPECT_EQ(read->inner_.number_, 8);
  EXPECT_EQ(read->absent_->length(), 0u);
}

TEST(BinaryReader, ReadTextTravelsOnUnchangedOnlyWhereTheNativePageIsUtf8) {
  // Deliberate: the wire's UTF-8 is read as narrow text, and converted when it is written again.
  const std::string frame = framed(objectOf("04", bytes("73 00 02 C3 A9 3B")));
  Classes<Text> factory;
  EXPECT_BYTES(test::frameOf(*readFrame(frame, factory)), frame);
  const test::CodePage latin("ISO-8859-1");
  EXPECT_BYTES(test::frameOf(*readFrame(frame, factory)),
               framed(objectOf("04", bytes("73 00 04 C3 83 C2 A9 3B"))));
}

TEST(BinaryReader, CannotReadAStringWhoseCountWrapped) {
  Text message(NOXPString(std::string(65536, 'x')));
  Classes<Text> factory;
  EXPECT_EQ(caught<UnexpectedChar>([&] { readFrame(test::frameOf(message), factory); })->getChar(),
            'x');
}

TEST(BinaryReader, AllocatesTheObjectAlonePerMessage) {
  if (kLoggerOutput) GTEST_SKIP() << "log lines allocate";
  Everything message(1, "nine byte", "twelve bytes", "a blob");
  const std::string frame = test::frameOf(message);
  Classes<Everything> factory;
  const std::string two = frame + frame;
  MemoryBufferInputStream memory(two.data(), two.size());
  Connection connection(two);
  connection.asked_.reserve(16);
  for (InputStream* stream :
       {static_cast<InputStream*>(&memory), static_cast<InputStream*>(&connection)}) {
    BinaryReader reader(&factory, stream);
    const std::unique_ptr<Serializable> first(reader.readRootObject());
    const AllocationScope scope;
    const std::unique_ptr<Serializable> second(reader.readRootObject());
    EXPECT_EQ(scope.count(), 1u) << (stream == &memory ? "from memory" : "from a connection");
  }
}

TEST(BinaryReader, SurvivesDamageToEveryFrame) {
  Everything message(1, "plain", "narrow", "a blob of some bytes");
  Classes<Everything, Pair, Text, Bytes, Nulls, Holder, Anything, test::Ask> factory;
  const std::string everything = test::frameOf(message);
  test::expectSurvivesDamage(everything, factory);
  test::expectSurvivesDamage(kPairFrame, factory);
  test::expectSurvivesDamage(kNullFrame, factory);
  test::expectSurvivesDamage(framed(nested(5)), factory);
  test::expectSurvivesDamage(compressedFrame(everything.substr(5, everything.size() - 6)), factory);
}

TEST(BinaryReader, SurvivesDamageOnAConnection) {
  Everything message(1, "plain", "narrow", "a blob of some bytes");
  Classes<Everything, Pair, Text, Bytes, Nulls, Holder, Anything> factory;
  const std::string frame = test::frameOf(message);
  for (std::size_t bit = 0; bit < frame.size() * 8; ++bit) {
    std::string flipped = frame;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
    Connection connection(flipped + frame);
    BinaryReader reader(&factory, &connection);
    // Goes on after each failure, as no caller should, until the stream ends.
    int roots = 0;
    for (bool more = true; more; ++roots) {
      ASSERT_LT(roots, 200) << "bit " << bit;
      try {
        std::unique_ptr<Serializable>(reader.readRootObject());
      } catch (NOXException* thrown) {
        delete thrown;
      } catch (const NOXException&) {
      } catch (LAST* thrown) {
        delete thrown;
        more = false;
      }
    }
  }
}

}  // namespace
}  // namespace nox
