#include "nox/core/memory_streams.h"

#include <gtest/gtest.h>

#include "nox/text/blob.h"
#include "nox/text/pstring.h"

namespace nox {
namespace {

TEST(MemoryBufferInputStream, DeliversTheBufferInPieces) {
  MemoryBufferInputStream stream("abcde", 5);
  char buf[8] = {};
  EXPECT_EQ(stream.readMax(buf, 2), 2);
  EXPECT_EQ(std::string(buf, 2), "ab");
  EXPECT_EQ(stream.readMax(buf, 8), 3);
  EXPECT_EQ(std::string(buf, 3), "cde");
  EXPECT_EQ(stream.readMax(buf, 8), 0);
}

TEST(MemoryBufferInputStream, IgnoresTheTimeout) {
  MemoryBufferInputStream stream("abc", 3);
  char buf[2];
  EXPECT_EQ(stream.readMax(buf, 2, 0), 2);
  EXPECT_EQ(stream.readMax(buf, 2, -1), 1);
}

TEST(MemoryBufferInputStream, TouchesNothingBehindWhatItCopies) {
  MemoryBufferInputStream stream("ab", 2);
  char buf[4] = {'-', '-', '-', '-'};
  EXPECT_EQ(stream.readMax(buf, 4), 2);
  EXPECT_EQ(std::string(buf, 4), "ab--");
}

TEST(MemoryBufferInputStream, CopiesNothingForANegativeCountOrNoBuffer) {
  MemoryBufferInputStream stream("abc", 3);
  char buf[4] = {'-', '-', '-', '-'};
  EXPECT_EQ(stream.readMax(buf, -1), 0);
  EXPECT_EQ(stream.readMax(buf, 0), 0);
  EXPECT_EQ(stream.readMax(nullptr, 2), 0);
  EXPECT_EQ(std::string(buf, 4), "----");
  EXPECT_EQ(stream.readMax(buf, 4), 3);

  MemoryBufferInputStream nothing(nullptr, 5);
  EXPECT_EQ(nothing.readMax(buf, 4), 0);
}

TEST(MemoryBufferInputStream, ReadsTheCallersBufferInPlace) {
  char buffer[] = "abc";
  MemoryBufferInputStream stream(buffer, 3);
  EXPECT_EQ(stream.getBuffer(), buffer);
  EXPECT_EQ(stream.getBufferLength(), 3u);
  buffer[0] = 'X';
  EXPECT_EQ(stream.readChar(), 'X');
}

TEST(MemoryBufferInputStream, CopiesHaveAPositionOfTheirOwn) {
  MemoryBufferInputStream stream("abc", 3);
  stream.readChar();
  MemoryBufferInputStream copy(stream);
  EXPECT_EQ(copy.getBuffer(), stream.getBuffer());
  EXPECT_EQ(copy.readChar(), 'b');
  EXPECT_EQ(copy.readChar(), 'c');
  EXPECT_EQ(stream.readChar(), 'b');

  MemoryBufferInputStream assigned("", 0);
  assigned = stream;
  EXPECT_EQ(assigned.readChar(), 'c');
  EXPECT_EQ(stream.readChar(), 'c');
}

TEST(MemoryBufferInputStream, CutsItsLengthTo32Bits) {
  // Deliberate: 4 GiB is nothing. The buffer is not looked at.
  char buffer[1] = {'a'};
  MemoryBufferInputStream stream(buffer, std::size_t{1} << 32);
  EXPECT_EQ(stream.getBufferLength(), 0u);
  char buf[1];
  EXPECT_EQ(stream.readMax(buf, 1), 0);
  EXPECT_EQ(MemoryBufferInputStream(buffer, (std::size_t{1} << 32) + 1).getBufferLength(), 1u);
}

TEST(MemoryBufferOutStream, GathersWhatIsSent) {
  MemoryBufferOutStream stream;
  stream.send("ab", 2);
  stream.send("c", 1);
  EXPECT_EQ(stream.str(), "abc");
  stream.flush();
  EXPECT_EQ(stream.str(), "abc");
  stream.send("\0d", 2);
  EXPECT_EQ(stream.str(), std::string("abc\0d", 5));
}

TEST(MemoryBufferOutStream, TakesNoBytesFromANullPointer) {
  MemoryBufferOutStream stream;
  stream.send(static_cast<const char*>(nullptr), 0);
  EXPECT_EQ(stream.str(), "");
}

TEST(MemoryBufferOutStream, CopiesDeeply) {
  MemoryBufferOutStream stream;
  stream.send("a", 1);
  MemoryBufferOutStream copy(stream);
  copy.send("b", 1);
  EXPECT_EQ(stream.str(), "a");
  EXPECT_EQ(copy.str(), "ab");
  stream = copy;
  stream.send("c", 1);
  EXPECT_EQ(stream.str(), "abc");
  EXPECT_EQ(copy.str(), "ab");
}

TEST(MemoryBufferOutStream, ShowsItsOwnText) {
  MemoryBufferOutStream stream;
  stream.str() = "given";
  stream.send("!", 1);
  EXPECT_EQ(stream.str(), "given!");
}

TEST(MemoryBufferOutStream, KeepsTheOtherFormsOfSend) {
  MemoryBufferOutStream stream;
  NOXPBlob blob("blob", 4);
  NOXPString text("text");
  stream.send(blob);
  stream.send(&blob);
  stream.send(text);
  stream.send(&text);
  EXPECT_EQ(stream.str(), "blobblobtexttext");
}

TEST(NullOutStream, TakesEverythingAndKeepsNothing) {
  NullOutStream stream;
  NOXPBlob blob("blob", 4);
  NOXPString text("text");
  stream.send("a", 1);
  stream.send(static_cast<const char*>(nullptr), 0);
  stream.send(blob);
  stream.send(&text);
  stream.flush();
  EXPECT_EQ(text.getType(), NOXPString::Utf8);  // run for its side effects
}

}  // namespace
}  // namespace nox
