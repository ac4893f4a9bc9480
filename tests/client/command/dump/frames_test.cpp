#include "client/command/dump/frames.h"

#include <gtest/gtest.h>

#include "tests/support/bytes.h"

namespace nox::command {
namespace {

using test::bytes;

const std::string kFirst = bytes("00 00 00 03  5B 41 5D");
const std::string kSecond = bytes("00 00 00 04  5B 42 43 5D");

TEST(FramesOfBytes, AreCutByTheirLengths) {
  const CapturedFrames found = framesOfBytes(kFirst + kSecond);
  ASSERT_EQ(found.frames.size(), 2u);
  EXPECT_BYTES(found.frames[0].bytes, kFirst);
  EXPECT_BYTES(found.frames[1].bytes, kSecond);
  EXPECT_EQ(found.frames[1].offset, 7u);
  EXPECT_EQ(found.problem, "");
}

TEST(FramesOfBytes, SayWhereTheyEndEarly) {
  EXPECT_EQ(framesOfBytes(kFirst + kSecond.substr(0, 6)).problem,
            "byte 7: a frame of 4 bytes is cut off after 2");
  EXPECT_EQ(framesOfBytes(kFirst + std::string("\0\0", 2)).problem,
            "byte 7: the length of a frame is cut off");
  EXPECT_EQ(framesOfBytes("hello world").problem, "byte 0: no frame begins here");
  EXPECT_EQ(framesOfBytes(bytes("FF FF FF FF 5B 5D")).problem,
            "byte 0: a frame of 4294967295 bytes is cut off after 2");
}

TEST(FramesOfBytes, TakeHttpRequestsAsTheyStand) {
  const CapturedFrames found =
      framesOfBytes(kFirst + "GET /metrics HTTP/1.1\r\nHost: a\r\n\r\n" + kSecond);
  ASSERT_EQ(found.frames.size(), 3u);
  EXPECT_TRUE(found.frames[1].http);
  EXPECT_EQ(found.frames[1].bytes, "GET /metrics HTTP/1.1\r\nHost: a\r\n\r\n");
}

TEST(Hex, IsRecognisedAndRead) {
  const std::string text =
      "# a frame\n"
      "000000: 00 00 00 03 5B  # its head\n"
      "000005: 415D\n";
  EXPECT_TRUE(looksLikeHex(text));
  EXPECT_BYTES(bytesOfHex(text), kFirst);
  EXPECT_FALSE(looksLikeHex("hello"));
  EXPECT_FALSE(looksLikeHex(" \n"));
  EXPECT_FALSE(looksLikeHex(kFirst));
}

TEST(Hex, OfHalfAByteIsRefused) { EXPECT_THROW(bytesOfHex("00 0"), std::runtime_error); }

TEST(FramesOf, LooksAtTheInput) {
  EXPECT_EQ(framesOf("00 00 00 03 5B 41 5D").frames.size(), 1u);
  EXPECT_EQ(framesOf(kFirst + kSecond).frames.size(), 2u);
}

}  // namespace
}  // namespace nox::command
