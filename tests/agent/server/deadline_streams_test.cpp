#include "agent/server/deadline_streams.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <string>

#include "tests/agent/server/scripted_transport.h"
#include "tests/support/allocation_counter.h"
#include "tests/support/bytes.h"
#include "tests/support/frames.h"

namespace nox::agent::test {
namespace {

using namespace std::chrono_literals;
using Arrival = DeadlineInputStream::Arrival;
using nox::test::AllocationScope;
using nox::test::bytes;
using nox::test::framed;

constexpr std::size_t kCap = 1024 * 1024;
constexpr auto kPlenty = 1min;

std::string contentOf(DeadlineInputStream& in) {
  return std::string(in.frame().getBuffer(), in.frameBytes());
}

TEST(DeadlineInputStream, ReceivesAFrameThatComesInOnePieceOnce) {
  ScriptedTransport peer;
  peer.bytes(framed("abc"));
  DeadlineInputStream in(peer);
  ASSERT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Frame);
  EXPECT_EQ(contentOf(in), framed("abc"));
  EXPECT_EQ(peer.receives(), 1);
}

TEST(DeadlineInputStream, LaysOutFramesThatComeTogetherOneByOne) {
  ScriptedTransport peer;
  peer.bytes(framed("abc") + framed("") + framed("de"));
  DeadlineInputStream in(peer);
  for (const char* body : {"abc", "", "de"}) {
    ASSERT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Frame);
    EXPECT_EQ(contentOf(in), framed(body));
  }
  EXPECT_EQ(peer.receives(), 1);
  EXPECT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Ended);
}

TEST(DeadlineInputStream, KnowsOfBytesBehindTheFrame) {
  ScriptedTransport peer;
  peer.bytes(framed("abc") + framed("de"));
  DeadlineInputStream in(peer);
  ASSERT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Frame);
  EXPECT_TRUE(in.hasMore());
  ASSERT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Frame);
  EXPECT_FALSE(in.hasMore());
}

TEST(DeadlineInputStream, JoinsAFrameThatComesByteByByte) {
  ScriptedTransport peer;
  const std::string frame = framed("some body");
  for (const char byte : frame) peer.bytes(std::string(1, byte)).tick();
  DeadlineInputStream in(peer);
  ASSERT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Frame);
  EXPECT_EQ(contentOf(in), frame);
}

TEST(DeadlineInputStream, JoinsALargeFrameAndTheBeginOfTheNext) {
  const std::string large = framed(std::string(300'000, 'x'));
  const std::string second = framed("second");
  const std::string all = large + second;
  ScriptedTransport peer;
  for (std::size_t at = 0; at < all.size(); at += 1000) peer.bytes(all.substr(at, 1000));
  DeadlineInputStream in(peer);
  ASSERT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Frame);
  EXPECT_EQ(contentOf(in), large);
  ASSERT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Frame);
  EXPECT_EQ(contentOf(in), second);
}

TEST(DeadlineInputStream, KeepsUpWithFramesThatAreCutWhereverTheyMayBe) {
  // Frames of many lengths, in pieces of another one, so that every place of the block is met.
  std::string all;
  std::vector<std::string> frames;
  for (std::size_t n = 0; n < 400; ++n) {
    frames.push_back(framed(std::string(n * 37 % 9000, static_cast<char>('a' + n % 26))));
    all += frames.back();
  }
  ScriptedTransport peer;
  for (std::size_t at = 0; at < all.size(); at += 4093) peer.bytes(all.substr(at, 4093));
  DeadlineInputStream in(peer);
  for (const std::string& frame : frames) {
    ASSERT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Frame);
    ASSERT_EQ(contentOf(in), frame);
  }
}

TEST(DeadlineInputStream, IsAimedAtEveryFrameThroughTheSameObject) {
  ScriptedTransport peer;
  peer.bytes(framed(bytes("4C 49 00 00 00 01 3B")) + framed(bytes("4C 49 00 00 00 01 3B")));
  DeadlineInputStream in(peer);
  nox::test::Classes<> none;
  BinaryReader reader(&none, &in.frame());
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Frame);
    EXPECT_EQ(reader.readRootObject(), nullptr);
  }
}

TEST(DeadlineInputStream, TakesAFrameAsLongAsTheCapAndNoLonger) {
  const std::string frame = framed("12345678");  // 10 bytes from '[' through ']'
  {
    ScriptedTransport peer;
    peer.bytes(frame);
    DeadlineInputStream in(peer);
    EXPECT_EQ(in.nextFrame(10, kPlenty), Arrival::Frame);
  }
  ScriptedTransport peer;
  peer.bytes(frame);
  DeadlineInputStream in(peer);
  EXPECT_EQ(in.nextFrame(9, kPlenty), Arrival::Broken);
}

TEST(DeadlineInputStream, SeesFourBytesThatCanBeginNoFrame) {
  for (const char* start : {"00 00 00 00", "FF FF FF FF", "80 00 00 00", "00 10 00 01"}) {
    ScriptedTransport peer;
    peer.bytes(bytes(start)).endlessly("");
    DeadlineInputStream in(peer);
    EXPECT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Broken) << start;
  }
}

TEST(DeadlineInputStream, SeesAFrameThatDoesNotBeginWithItsMark) {
  ScriptedTransport peer;
  peer.bytes(bytes("00 00 00 05 78"));
  DeadlineInputStream in(peer);
  EXPECT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Broken);
}

TEST(DeadlineInputStream, TakesNoMemoryForAClaim) {
  ScriptedTransport peer;
  peer.bytes(bytes("3F FF FF FF 5B")).tick();
  DeadlineInputStream in(peer);
  const AllocationScope scope;
  EXPECT_EQ(in.nextFrame(0x40000000, kPlenty), Arrival::Ended);
  EXPECT_LT(scope.bytes(), 128u * 1024);
}

TEST(DeadlineInputStream, KnowsTheWordsOfHttp) {
  for (const char* word : {"GET /", "PUT /", "POST ", "DELET", "HEAD ", "OPTIO"}) {
    ScriptedTransport peer;
    peer.bytes(word);
    DeadlineInputStream in(peer);
    EXPECT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Http) << word;
  }
  ScriptedTransport peer;
  peer.bytes("GET [");  // a frame of more than a GiB
  DeadlineInputStream in(peer);
  EXPECT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Broken);
}

TEST(DeadlineInputStream, GivesTheBytesOfHttpAsTheyCame) {
  ScriptedTransport peer;
  peer.bytes("GET /healthz").bytes(" HTTP/1.1\r\n").endlessly("");
  DeadlineInputStream in(peer);
  ASSERT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Http);
  std::string line(23, '\0');
  EXPECT_EQ(in.readMax(line.data(), 23), 23);
  EXPECT_EQ(line, "GET /healthz HTTP/1.1\r\n");
}

TEST(DeadlineInputStream, SaysAfterATickThatNothingHasCome) {
  ScriptedTransport peer;
  peer.tick().bytes(framed("abc"));
  DeadlineInputStream in(peer);
  EXPECT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Nothing);
  EXPECT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Frame);
}

TEST(DeadlineInputStream, CutsAPeerThatTricklesAFrame) {
  ScriptedTransport peer;
  peer.bytes(bytes("00 00 40 00 5B")).endlessly("");
  DeadlineInputStream in(peer);
  EXPECT_EQ(in.nextFrame(kCap, 30ms), Arrival::Late);
}

TEST(DeadlineInputStream, CutsAPeerWhoseEveryByteComesInTime) {
  ScriptedTransport peer;
  peer.bytes(bytes("3F FF FF FF 5B")).endlessly("x");
  DeadlineInputStream in(peer);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(in.nextFrame(0x40000000, 30ms), Arrival::Late);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
}

TEST(DeadlineInputStream, EndsAllReadingAtItsOwnDeadline) {
  ScriptedTransport peer;
  peer.bytes(bytes("00 00 40 00 5B")).endlessly("");
  DeadlineInputStream in(peer);
  in.setDeadline(Transport::Clock::now() + 30ms);
  EXPECT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Late);
}

TEST(DeadlineInputStream, ReportsATimeOutAsStreamsDo) {
  ScriptedTransport peer;
  peer.endlessly("");
  DeadlineInputStream in(peer);
  in.setDeadline(Transport::Clock::now() + 30ms);
  char byte = 0;
  errno = 0;
  EXPECT_EQ(in.readMax(&byte, 1), -1);
  EXPECT_EQ(errno, kErrnoTimeout);
}

TEST(DeadlineInputStream, ReportsATimeOutToAReaderOfSingleBytesThatNeverWaits) {
  ScriptedTransport peer;
  peer.endlessly("x");
  DeadlineInputStream in(peer);
  const auto begin = Transport::Clock::now();
  in.setDeadline(begin + 30ms);
  while (in.readChar() == 'x') ASSERT_LT(Transport::Clock::now() - begin, 10s);
}

TEST(DeadlineInputStream, ReportsTheEndAsStreamsDo) {
  ScriptedTransport peer;
  peer.bytes("ab");
  DeadlineInputStream in(peer);
  std::string text(3, '\0');
  EXPECT_EQ(in.readMax(text.data(), 3), 2);
  EXPECT_EQ(in.readMax(text.data(), 3), 0);
}

TEST(DeadlineInputStream, WaitsAsLongAsACallAllows) {
  ScriptedTransport peer;
  peer.endlessly("");
  DeadlineInputStream in(peer);
  char byte = 0;
  EXPECT_EQ(in.readMax(&byte, 1, 0), -1);
}

TEST(DeadlineInputStream, GivesAGrownBlockBack) {
  ScriptedTransport peer;
  peer.bytes(framed(std::string(500'000, 'x'))).bytes(framed("abc")).bytes(framed("def"));
  DeadlineInputStream in(peer);
  ASSERT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Frame);
  const AllocationScope scope;
  in.shrink();
  EXPECT_LT(scope.bytes(), 64u * 1024);
  ASSERT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Frame);
  EXPECT_EQ(contentOf(in), framed("abc"));
  in.shrink();
  ASSERT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Frame);
}

TEST(DeadlineInputStream, KeepsWhatHasComeWhenItShrinks) {
  ScriptedTransport peer;
  peer.bytes(framed(std::string(100'000, 'x')) + framed("abc"));
  DeadlineInputStream in(peer);
  ASSERT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Frame);
  ASSERT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Frame);
  in.shrink();
  EXPECT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Ended);
}

TEST(DeadlineInputStream, WipesAFrameAndGoesOnBehindIt) {
  ScriptedTransport peer;
  peer.bytes(framed("secret") + framed("abc"));
  DeadlineInputStream in(peer);
  ASSERT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Frame);
  const char* const begin = in.frame().getBuffer();
  const std::size_t n = in.frameBytes();
  in.wipeFrame();
  EXPECT_EQ(std::string(begin, n), std::string(n, '\0'));
  ASSERT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Frame);
  EXPECT_EQ(contentOf(in), framed("abc"));
}

TEST(DeadlineOutStream, SendsAFrameInOnePiece) {
  ScriptedTransport peer;
  DeadlineOutStream out(peer);
  out.setLimits(100, kPlenty);
  out.send("abcdef", 6);
  EXPECT_EQ(peer.sends(), 1);
  EXPECT_EQ(peer.sent(), "abcdef");
  EXPECT_EQ(out.bytes(), 6u);
}

TEST(DeadlineInputStream, KnowsWhetherAllOfTheNextFrameHasCome) {
  const std::string next = framed("de");
  for (const bool isWhole : {false, true}) {
    ScriptedTransport peer;
    peer.bytes(framed("abc") + next.substr(0, isWhole ? next.size() : next.size() - 1));
    DeadlineInputStream in(peer);
    ASSERT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Frame);
    EXPECT_EQ(in.hasNextFrame(), isWhole);
  }
  ScriptedTransport peer;
  peer.bytes(framed("abc") + next.substr(0, 3));
  DeadlineInputStream in(peer);
  EXPECT_FALSE(in.hasNextFrame());
  ASSERT_EQ(in.nextFrame(kCap, kPlenty), Arrival::Frame);
  EXPECT_FALSE(in.hasNextFrame());
}

TEST(DeadlineOutStream, SendsWhatItGatheredTogetherAndInOrder) {
  ScriptedTransport peer;
  DeadlineOutStream out(peer);
  out.setLimits(100, kPlenty);
  out.gather(true);
  out.send("ab", 2);
  out.send("cd", 2);
  EXPECT_EQ(peer.sent(), "");
  EXPECT_EQ(out.bytes(), 4u);
  out.sendGathered();
  EXPECT_EQ(peer.sent(), "abcd");
  EXPECT_EQ(peer.sends(), 1);
  out.sendGathered();
  EXPECT_EQ(peer.sends(), 1);
  out.send("ef", 2);
  out.gather(false);
  out.send("gh", 2);
  EXPECT_EQ(peer.sent(), "abcdefgh");
}

TEST(DeadlineOutStream, GathersNoMoreThanAFew) {
  const std::string frame(10'000, 'x');
  ScriptedTransport peer;
  DeadlineOutStream out(peer);
  out.setLimits(100'000, kPlenty);
  out.gather(true);
  out.send(frame.data(), frame.size());
  EXPECT_EQ(peer.sent().size(), 0u);
  out.send(frame.data(), frame.size());
  EXPECT_EQ(peer.sent().size(), 20'000u);
}

TEST(DeadlineOutStream, LosesWhatItGatheredForAPeerThatTakesNothing) {
  ScriptedTransport peer;
  peer.takes(0);
  DeadlineOutStream out(peer);
  out.setLimits(100, 30ms);
  out.gather(true);
  out.send("abc", 3);
  EXPECT_THROW(out.sendGathered(), ConnectionLost);
  EXPECT_TRUE(out.lost());
  EXPECT_THROW(out.sendGathered(), ConnectionLost);
}

TEST(DeadlineOutStream, GoesOnUntilASlowPeerHasTakenAll) {
  ScriptedTransport peer;
  peer.takes(2);
  DeadlineOutStream out(peer);
  out.setLimits(100, kPlenty);
  out.send("abcdefg", 7);
  EXPECT_EQ(peer.sent(), "abcdefg");
}

TEST(DeadlineOutStream, GivesUpAPeerThatTakesNothing) {
  ScriptedTransport peer;
  peer.takes(0);
  DeadlineOutStream out(peer);
  out.setLimits(100, 30ms);
  EXPECT_THROW(out.send("abc", 3), ConnectionLost);
  EXPECT_TRUE(out.lost());
  peer.takes(100);
  EXPECT_THROW(out.send("abc", 3), ConnectionLost);  // what would follow is no frame
  EXPECT_EQ(peer.sent(), "");
}

TEST(DeadlineOutStream, RefusesAFrameBeyondItsCapBeforeAByteHasLeft) {
  ScriptedTransport peer;
  DeadlineOutStream out(peer);
  out.setLimits(4, kPlenty);
  out.send("....abcd", 8);
  EXPECT_THROW(out.send("....abcde", 9), FrameTooLong);
  EXPECT_EQ(peer.sent(), "....abcd");
  EXPECT_EQ(out.bytes(), 8u);
  EXPECT_FALSE(out.lost());
}

}  // namespace
}  // namespace nox::agent::test
