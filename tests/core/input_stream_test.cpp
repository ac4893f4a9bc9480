#include "nox/core/input_stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "nox/core/memory_streams.h"
#include "nox/core/serializable.h"
#include "tests/core/expect_logged.h"
#include "tests/support/bytes.h"
#include "tests/support/caught.h"

namespace nox {
namespace {

using test::bytes;
using test::caught;
using test::LogCapture;
using testing::HasSubstr;

// Answers every read with the same result and errno, and stores `byte` in the buffer.
class FixedStream : public InputStream {
public:
  FixedStream(std::int64_t result, int error, char byte = 'x')
      : result_(result), error_(error), byte_(byte) {}
  std::int64_t readMax(char* buf, int max) override {
    asked_ = max;
    if (result_ > 0) std::memset(buf, byte_, static_cast<std::size_t>(max));
    errno = error_;
    return result_;
  }
  std::int64_t readMax(char* buf, int max, int /*timeout*/) override { return readMax(buf, max); }

  int asked_ = 0;

private:
  std::int64_t result_;
  int error_;
  char byte_;
};

class ThrowingStream : public InputStream {
public:
  std::int64_t readMax(char*, int) override { throw new NONE; }
  std::int64_t readMax(char*, int, int) override { throw new NONE; }
};

TEST(InputStream, ReadCharGivesBytesAsUnsignedNumbers) {
  FixedStream last(1, 0, '\xFF');
  EXPECT_EQ(last.readChar(), 255);
  EXPECT_EQ(last.asked_, 1);
  EXPECT_EQ(FixedStream(1, 0, '\0').readChar(), 0);
  EXPECT_EQ(FixedStream(1, 0, '\x80').readChar(), 128);
}

TEST(InputStream, ReadCharThrowsLastAtTheEnd) {
  FixedStream stream(0, 0);
  const LogCapture log;
  EXPECT_TRUE(caught<LAST>([&] { stream.readChar(); }));
  EXPECT_LOGGED(log, error, "InputStream::readChar(): readMax => 0 (EOF)");
}

TEST(InputStream, ReadCharAnswersMinusOneWhenNothingHasArrived) {
  const LogCapture log;
  EXPECT_EQ(FixedStream(-1, kErrnoWouldBlock).readChar(), -1);
  EXPECT_LOGGED(log, debug, "InputStream::readChar(): readMax => -1 (EWOULDBLOCK)");
  EXPECT_EQ(FixedStream(-1, kErrnoTimeout).readChar(), -1);
  EXPECT_LOGGED(log, debug, "InputStream::readChar(): readMax => -1 (ETIME)");
}

TEST(InputStream, TheLibrarysErrorNumbersAreFixed) {
  EXPECT_EQ(kErrnoWouldBlock, 61);
  EXPECT_EQ(kErrnoTimeout, 62);
}

TEST(InputStream, ReadCharTakesThePlatformsWouldBlockToo) {
  EXPECT_EQ(FixedStream(-1, EWOULDBLOCK).readChar(), -1);
  EXPECT_EQ(FixedStream(-1, EAGAIN).readChar(), -1);
}

TEST(InputStream, ReadCharComparesMinusOneIn32Bits) {
  EXPECT_EQ(FixedStream(0xFFFFFFFF, kErrnoTimeout).readChar(), -1);
}

TEST(InputStream, ReadCharReportsAHardErrorOnStandardErrorAndThrowsLast) {
  FixedStream stream(-1, EIO);
  const LogCapture log;
  testing::internal::CaptureStderr();
  const auto last = caught<LAST>([&] { stream.readChar(); });
  const std::string shown = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(last);
  EXPECT_THAT(shown, HasSubstr(std::string("InputStream::readChar(): readMax => -1: ") +
                               std::strerror(EIO) + "\n"));
  EXPECT_LOGGED(log, error, "InputStream::readChar(): readMax => -1:");
}

TEST(InputStream, TheSystemsOwnTimeoutIsAHardError) {
  FixedStream stream(-1, ETIMEDOUT);
  testing::internal::CaptureStderr();
  EXPECT_TRUE(caught<LAST>([&] { stream.readChar(); }));
  EXPECT_NE(testing::internal::GetCapturedStderr(), "");
}

TEST(InputStream, QuietOutcomesPrintNothing) {
  testing::internal::CaptureStderr();
  FixedStream(-1, kErrnoTimeout).readChar();
  caught<LAST>([&] { FixedStream(0, 0).readChar(); });
  const std::string shown = testing::internal::GetCapturedStderr();
  EXPECT_EQ(shown.find("readMax => -1: "), std::string::npos) << shown;
}

TEST(InputStream, ReadCharTreatsOtherNegativeResultsAsAnEmptyByte) {
  EXPECT_EQ(FixedStream(-2, 0).readChar(), 0);
}

TEST(InputStream, ReadIntIsBigEndian) {
  const std::string get = bytes("47 45 54 20");
  MemoryBufferInputStream stream(get.data(), get.size());
  int value = 0;
  EXPECT_EQ(stream.readInt(value), 4);
  EXPECT_EQ(value, 0x47455420);

  const std::string negative = bytes("FF FF FF FE");
  MemoryBufferInputStream second(negative.data(), negative.size());
  second.readInt(value);
  EXPECT_EQ(value, -2);
}

TEST(InputStream, ReadIntConsumesAShortReadAndLeavesTheValue) {
  const std::string three = bytes("01 02 03");
  MemoryBufferInputStream stream(three.data(), three.size());
  int value = 77;
  const LogCapture log;
  EXPECT_EQ(stream.readInt(value), 3);
  EXPECT_LOGGED(log, error, "Could not read 32 bit int, only 3 byte(s) read.");
  EXPECT_EQ(value, 77);
  EXPECT_TRUE(caught<LAST>([&] { stream.readChar(); }));
}

TEST(InputStream, ReadIntAtTheEndLeavesTheValue) {
  MemoryBufferInputStream stream("", 0);
  int value = 77;
  const LogCapture log;
  EXPECT_EQ(stream.readInt(value), 0);
  EXPECT_LOGGED(log, error, "Could not read 32 bit int, only 0 byte(s) read.");
  EXPECT_EQ(value, 77);
  EXPECT_TRUE(caught<LAST>([&] { stream.readChar(); }));
}

TEST(InputStream, ReadIntPassesFailuresOnWithoutThrowing) {
  FixedStream stream(-1, kErrnoTimeout);
  int value = 77;
  EXPECT_EQ(stream.readInt(value), -1);
  EXPECT_EQ(stream.asked_, 4);
  EXPECT_EQ(value, 77);
}

TEST(InputStream, ReadIntLetsTheStreamsOwnThrowPass) {
  ThrowingStream stream;
  int value = 77;
  EXPECT_TRUE(caught<NONE>([&] { stream.readInt(value); }));
  EXPECT_TRUE(caught<NONE>([&] { stream.readChar(); }));
}

}  // namespace
}  // namespace nox
