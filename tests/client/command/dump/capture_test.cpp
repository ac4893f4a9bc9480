// Captures are written by hand: the header of the file, then packets of Ethernet, IP and TCP.
#include <gtest/gtest.h>

#include "client/command/dump/frames.h"
#include "tests/support/bytes.h"

namespace nox::command {
namespace {

using test::bytes;

const std::string kFrame = bytes("00 00 00 03  5B 41 5D");
const std::string kOther = bytes("00 00 00 04  5B 42 43 5D");

std::string number(std::uint32_t value, int size, bool bigEndian) {
  std::string text;
  for (int i = 0; i < size; ++i) {
    const int shift = 8 * (bigEndian ? size - 1 - i : i);
    text += static_cast<char>(value >> shift & 0xFF);
  }
  return text;
}

/// The head of a pcap file, lowest byte first: version 2.4, packets of up to 65,535 bytes,
/// Ethernet.
std::string captureHead() {
  return bytes("D4 C3 B2 A1  02 00 04 00  00 00 00 00  00 00 00 00  FF FF 00 00  01 00 00 00");
}

struct Packet {
  std::string payload;
  std::uint32_t sequence = 1;
  unsigned char flags = 0x18;  // PSH, ACK
  std::uint16_t sourcePort = 5000;
};

std::string packetOf(const Packet& packet) {
  const std::string tcp = number(packet.sourcePort, 2, true) + number(7433, 2, true) +
                          number(packet.sequence, 4, true) + number(0, 4, true) +
                          std::string(1, '\x50') + static_cast<char>(packet.flags) +
                          bytes("FF FF 00 00 00 00") + packet.payload;
  const std::string ip = bytes("45 00") +
                         number(static_cast<std::uint32_t>(20 + tcp.size()), 2, true) +
                         bytes("00 00 40 00 40 06 00 00  0A 00 00 01  0A 00 00 02") + tcp;
  const std::string ethernet = bytes("02 00 00 00 00 02  02 00 00 00 00 01  08 00") + ip;
  const auto size = static_cast<std::uint32_t>(ethernet.size());
  return number(0, 4, false) + number(0, 4, false) + number(size, 4, false) +
         number(size, 4, false) + ethernet;
}

std::string captureOf(const std::vector<Packet>& packets) {
  std::string capture = captureHead();
  for (const Packet& packet : packets) capture += packetOf(packet);
  return capture;
}

TEST(Capture, IsRecognised) {
  EXPECT_TRUE(looksLikeCapture(captureHead()));
  EXPECT_FALSE(looksLikeCapture(kFrame));
}

TEST(Capture, GivesTheFramesOfAStreamWithTheirEnds) {
  const auto found = framesOfCapture(captureOf({{kFrame + kOther}}));
  ASSERT_EQ(found.frames.size(), 2u);
  EXPECT_BYTES(found.frames[1].bytes, kOther);
  EXPECT_EQ(found.frames[0].origin, "10.0.0.1:5000 > 10.0.0.2:7433");
  EXPECT_EQ(found.problem, "");
}

TEST(Capture, PutsSegmentsIntoOrderAndDropsRepetitions) {
  const auto found = framesOfCapture(captureOf({{"", 99, 0x02},  // SYN
                                                {kFrame.substr(5), 105},
                                                {kFrame.substr(0, 5), 100},
                                                {kFrame.substr(0, 3), 100},
                                                {kFrame.substr(3), 103}}));
  ASSERT_EQ(found.frames.size(), 1u);
  EXPECT_BYTES(found.frames[0].bytes, kFrame);
  EXPECT_EQ(found.problem, "");
}

TEST(Capture, KeepsConnectionsApart) {
  const auto found = framesOfCapture(captureOf({{kFrame.substr(0, 4), 1, 0x18, 5000},
                                                {kOther, 1, 0x18, 5001},
                                                {kFrame.substr(4), 5, 0x18, 5000}}));
  ASSERT_EQ(found.frames.size(), 2u);
  EXPECT_BYTES(found.frames[0].bytes, kFrame);
  EXPECT_EQ(found.frames[1].origin, "10.0.0.1:5001 > 10.0.0.2:7433");
}

TEST(Capture, SaysWherePacketsAreMissing) {
  const auto found = framesOfCapture(captureOf({{kFrame, 1}, {kOther, 20}}));
  EXPECT_EQ(found.frames.size(), 1u);
  EXPECT_EQ(found.problem, "10.0.0.1:5000 > 10.0.0.2:7433: packets are missing");
}

TEST(Capture, SaysWhichStreamsHoldNoFrames) {
  const auto found = framesOfCapture(captureOf({{"\x16\x03\x01\x02 a TLS hello"}}));
  EXPECT_TRUE(found.frames.empty());
  EXPECT_EQ(found.problem, "10.0.0.1:5000 > 10.0.0.2:7433, byte 0: no frame begins here");
}

TEST(Capture, SurvivesEveryTruncationAndFlippedByte) {
  const std::string whole = captureOf({{"", 99, 0x02}, {kFrame + kOther, 100}});
  for (std::size_t n = 4; n < whole.size(); ++n) {
    try {
      static_cast<void>(framesOfCapture(whole.substr(0, n)));
    } catch (const std::runtime_error&) {  // no capture: as clear an end as any
    }
    std::string damaged = whole;
    damaged[n] = static_cast<char>(damaged[n] ^ 0xFF);
    try {
      EXPECT_LE(framesOfCapture(damaged).frames.size(), 2u);
    } catch (const std::runtime_error&) {
    }
  }
}

}  // namespace
}  // namespace nox::command
