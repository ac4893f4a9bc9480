#include "nox/io/buffered_out_stream.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "nox/core/memory_streams.h"
#include "nox/text/blob.h"
#include "nox/text/pstring.h"
#include "tests/support/bytes.h"
#include "tests/support/log_capture.h"

namespace nox::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::size_t kInlineContent = 10236;

/// Notes every call, and every end of a stream.
class RecordingStream : public OutStream {
public:
  using OutStream::send;
  explicit RecordingStream(std::vector<std::string>& calls) : calls_(calls) {}
  ~RecordingStream() override { calls_.emplace_back("deleted"); }
  void send(const char* data, std::size_t n) override {
    if (failing) throw std::runtime_error("broken");
    calls_.push_back("send " + hex({data, n}));
  }
  void flush() override { calls_.emplace_back("flush"); }

  bool failing = false;

private:
  std::vector<std::string>& calls_;
};

std::string contentOf(BufferedOutStream& stream) {
  return {reinterpret_cast<const char*>(stream.getBuffer()), stream.getLength()};
}

bool isInline(BufferedOutStream& stream) {
  const auto object = reinterpret_cast<std::uintptr_t>(&stream);
  const auto content = reinterpret_cast<std::uintptr_t>(stream.getBuffer());
  return content >= object && content < object + sizeof stream;
}

void send(BufferedOutStream& stream, const std::string& data) {
  stream.send(data.data(), data.size());
}

TEST(BufferedOutStream, SendsLengthAndContentInOneCall) {
  std::vector<std::string> calls;
  RecordingStream target(calls);
  BufferedOutStream stream(&target, false);
  send(stream, "ab");
  send(stream, "c");
  EXPECT_THAT(calls, IsEmpty());
  EXPECT_EQ(stream.getLength(), 3U);
  EXPECT_EQ(stream.flushSz(), 7U);
  EXPECT_THAT(calls, ElementsAre("send 00 00 00 03 61 62 63", "flush"));
  EXPECT_EQ(stream.getLength(), 0U);
}

TEST(BufferedOutStream, StartsTheNextFrameAfterAFlush) {
  MemoryBufferOutStream target;
  BufferedOutStream stream(&target, false);
  send(stream, "ab");
  stream.flush();
  send(stream, "c");
  stream.flush();
  EXPECT_BYTES(target.str(), bytes("00 00 00 02 61 62  00 00 00 01 63"));
}

TEST(BufferedOutStream, SendsAnEmptyFrame) {
  MemoryBufferOutStream target;
  BufferedOutStream stream(&target, false);
  EXPECT_EQ(stream.flushSz(), 4U);
  EXPECT_BYTES(target.str(), bytes("00 00 00 00"));
}

TEST(BufferedOutStream, WritesTheLengthBigEndian) {
  MemoryBufferOutStream target;
  BufferedOutStream stream(&target, false);
  send(stream, std::string(0x12345, 'x'));
  EXPECT_EQ(stream.flushSz(), 0x12349U);
  EXPECT_BYTES(target.str().substr(0, 5), bytes("00 01 23 45 78"));
}

TEST(BufferedOutStream, TakesStringsAndBlobs) {
  MemoryBufferOutStream target;
  BufferedOutStream stream(&target, false);
  NOXPString text("text");
  NOXPBlob blob("blob", 4);
  stream.send(text);
  stream.send(&blob);
  EXPECT_EQ(contentOf(stream), "textblob");
}

TEST(BufferedOutStream, TakesNothingFromNull) {
  BufferedOutStream stream(nullptr, false);
  stream.send(nullptr, 0);
  EXPECT_EQ(stream.getLength(), 0U);
}

TEST(BufferedOutStream, WithoutATargetSucceeds) {
  BufferedOutStream stream(nullptr, false);
  send(stream, "abc");
  EXPECT_EQ(stream.flushSz(), 7U);
}

TEST(BufferedOutStream, LosesWhatIsNotFlushed) {
  std::vector<std::string> calls;
  RecordingStream target(calls);
  {
    BufferedOutStream stream(&target, false);
    send(stream, "abc");
  }
  EXPECT_THAT(calls, IsEmpty());
}

TEST(BufferedOutStream, DeletesItsTargetOnlyAsOwner) {
  std::vector<std::string> calls;
  { const BufferedOutStream stream(new RecordingStream(calls), true); }
  EXPECT_THAT(calls, ElementsAre("deleted"));
  calls.clear();
  RecordingStream target(calls);
  { const BufferedOutStream stream(&target, false); }
  EXPECT_THAT(calls, IsEmpty());
}

TEST(BufferedOutStream, KeepsTheFrameWhenTheTargetThrows) {
  std::vector<std::string> calls;
  RecordingStream target(calls);
  BufferedOutStream stream(&target, false);
  send(stream, "abc");
  target.failing = true;
  EXPECT_THROW(stream.flush(), std::runtime_error);
  EXPECT_EQ(contentOf(stream), "abc");
  target.failing = false;
  stream.flush();
  EXPECT_THAT(calls, ElementsAre("send 00 00 00 03 61 62 63", "flush"));
}

TEST(BufferedOutStream, GrowsFirstBeyond10236Bytes) {
  BufferedOutStream stream(nullptr, false);
  send(stream, std::string(kInlineContent, 'x'));
  EXPECT_TRUE(isInline(stream));
  send(stream, "y");
  EXPECT_FALSE(isInline(stream));
  EXPECT_EQ(contentOf(stream), std::string(kInlineContent, 'x') + "y");
}

TEST(BufferedOutStream, DoublesItsSlackWithEachGrowth) {
  BufferedOutStream stream(nullptr, false);
  send(stream, std::string(kInlineContent + 1, 'x'));
  // The first block is 10,237 + 4 + 10,240 = 20,481 bytes.
  const unsigned char* const first = stream.getBuffer();
  send(stream, std::string(20481 - 4 - 10237, 'x'));
  EXPECT_EQ(stream.getBuffer(), first);
  send(stream, "y");
  // The second is 20,478 + 4 + 20,480 = 40,962.
  const unsigned char* const second = stream.getBuffer();
  EXPECT_NE(second, first);
  send(stream, std::string(40962 - 4 - 20478, 'z'));
  EXPECT_EQ(stream.getBuffer(), second);
  send(stream, "!");
  EXPECT_NE(stream.getBuffer(), second);
  EXPECT_EQ(stream.getLength(), 40959U);
}

TEST(BufferedOutStream, KeepsAGrownBlockForTheNextFrames) {
  BufferedOutStream stream(nullptr, false);
  send(stream, std::string(100000, 'x'));
  const unsigned char* const block = stream.getBuffer();
  stream.flush();
  send(stream, "a");
  EXPECT_EQ(stream.getBuffer(), block);
  stream.flush();
  send(stream, std::string(100000, 'x'));
  EXPECT_EQ(stream.getBuffer(), block);
}

TEST(BufferedOutStream, AppendsItsOwnContent) {
  BufferedOutStream stream(nullptr, false);
  send(stream, "abcd");
  stream.send(reinterpret_cast<const char*>(stream.getBuffer()) + 1, 2);
  EXPECT_EQ(contentOf(stream), "abcdbc");
  send(stream, std::string(kInlineContent - 6, 'x'));
  stream.send(reinterpret_cast<const char*>(stream.getBuffer()), 3);  // grows and moves meanwhile
  EXPECT_FALSE(isInline(stream));
  EXPECT_EQ(contentOf(stream).substr(kInlineContent), "abc");
}

TEST(BufferedOutStream, RefusesContentThatAFrameCannotCount) {
  const LogCapture log;
  BufferedOutStream stream(nullptr, false);
  send(stream, "abc");
  constexpr std::size_t kMost = 0x7FFFFFFF - 4;
  EXPECT_THROW(stream.reserve(kMost - 3 + 1), std::bad_alloc);
  EXPECT_THROW(stream.send("x", std::numeric_limits<std::size_t>::max()), std::bad_alloc);
  EXPECT_EQ(contentOf(stream), "abc");
  send(stream, "d");
  EXPECT_EQ(contentOf(stream), "abcd");
  if (kLoggerOutput) {
    // The size is that of the block it would have been: 2^31 + 10,240.
    EXPECT_THAT(log.texts(nox::error),
                Contains("BufferedOutStream could not resize buffer (size=2147493888)"));
  }
}

TEST(BufferedOutStream, ReservesRoomForBytesWrittenInPlace) {
  BufferedOutStream stream(nullptr, false);
  char* const room = stream.reserve(100);
  room[0] = 'a';
  room[1] = 'b';
  stream.commit(2);
  EXPECT_EQ(contentOf(stream), "ab");
  stream.discard();
  EXPECT_EQ(stream.getLength(), 0U);
}

TEST(BufferedOutStream, LogsItsConstruction) {
  const auto texts = logged([] { const BufferedOutStream stream(nullptr, false); });
  if (kLoggerOutput) {
    EXPECT_THAT(texts, ElementsAre("BufferedOutStream (OutStream *os, bool owner)"));
  } else {
    EXPECT_THAT(texts, IsEmpty());
  }
}

/// Copies by construction and by assignment over a stream of the other kind of storage.
class BufferedOutStreamCopy : public ::testing::TestWithParam<std::size_t> {};

TEST_P(BufferedOutStreamCopy, IsIndependentOfTheOriginal) {
  const std::string start(GetParam(), 's');
  MemoryBufferOutStream target;
  BufferedOutStream original(&target, false);
  send(original, start);
  BufferedOutStream copy(original);
  BufferedOutStream assigned(nullptr, false);
  send(assigned, std::string(GetParam() == 3 ? 30000 : 3, 'o'));
  assigned = original;

  send(original, "1");
  send(copy, "22");
  send(assigned, "333");
  EXPECT_EQ(contentOf(original), start + "1");
  EXPECT_EQ(contentOf(copy), start + "22");
  EXPECT_EQ(contentOf(assigned), start + "333");

  original.flush();
  EXPECT_EQ(target.str().substr(4), start + "1");
  target.str().clear();
  copy.flush();
  EXPECT_EQ(target.str().substr(4), start + "22");
  EXPECT_EQ(contentOf(assigned), start + "333");
}

TEST_P(BufferedOutStreamCopy, OutlivesTheOriginal) {
  const std::string start(GetParam(), 's');
  auto original = std::make_unique<BufferedOutStream>(nullptr, false);
  send(*original, start);
  BufferedOutStream copy(*original);
  original.reset();
  send(copy, "end");
  EXPECT_EQ(contentOf(copy), start + "end");
}

TEST_P(BufferedOutStreamCopy, SendsWithoutTouchingTheOthersContent) {
  const std::string start(GetParam(), 's');
  MemoryBufferOutStream target;
  BufferedOutStream original(&target, false);
  send(original, start);
  BufferedOutStream copy(original);
  copy.flush();
  send(copy, "next");
  EXPECT_EQ(contentOf(original), start);
  EXPECT_EQ(contentOf(copy), "next");
  BufferedOutStream discarding(original);
  discarding.discard();
  send(discarding, "other");
  EXPECT_EQ(contentOf(original), start);
}

INSTANTIATE_TEST_SUITE_P(InlineAndGrown, BufferedOutStreamCopy, ::testing::Values(3, 20000));

TEST(BufferedOutStream, CopiedOrAssignedToItselfStays) {
  BufferedOutStream stream(nullptr, false);
  send(stream, std::string(20000, 'x'));
  BufferedOutStream& same = stream;
  stream = same;
  EXPECT_EQ(contentOf(stream), std::string(20000, 'x'));
}

TEST(BufferedOutStream, SharesAnOwnedTargetWithItsCopies) {
  std::vector<std::string> calls;
  auto original = std::make_unique<BufferedOutStream>(new RecordingStream(calls), true);
  auto copy = std::make_unique<BufferedOutStream>(*original);
  original.reset();
  EXPECT_THAT(calls, IsEmpty());
  copy->flush();
  copy.reset();
  EXPECT_THAT(calls, ElementsAre("send 00 00 00 00", "flush", "deleted"));
}

}  // namespace
}  // namespace nox::test
