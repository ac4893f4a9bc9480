// What a peer can send, before and after login: every frame has one clear reply or ends the
// connection, and the next client is served as if nothing had been.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/agent/support/client.h"
#include "tests/agent/support/noxd_process.h"
#include "tests/agent/support/sanitized.h"
#include "tests/support/bytes.h"
#include "tests/support/frames.h"

namespace nox::agent::test {
namespace {

using nox::test::bytes;
using nox::test::framed;
using nox::test::frameOf;

std::string compressed(const std::string& body) {
  return framed("GZIP" + GZipCompressor().compress(body));
}

/// An object without fields.
std::string objectOf(int type) {
  std::string head = bytes("4C 49");
  for (int shift = 24; shift >= 0; shift -= 8) head.push_back(static_cast<char>(type >> shift));
  return head + bytes("49 00 00 00 00 3B");
}

/// Login requests inside one another.
std::string nested(int levels) {
  std::string body;
  for (int i = 0; i < levels; ++i) body += bytes("4C 49 00 00 00 0F 49 00 00 00 00");
  return body + bytes("4C 49 00 00 00 01 3B") + std::string(static_cast<std::size_t>(levels), ';');
}

struct HostileFrame {
  const char* name;
  std::string bytes;
};

/// Whole frames whose body is bad: IE/000, and on with the next.
std::vector<HostileFrame> unreadable() {
  const std::string login = "4C 49 00 00 00 0F 49 00 00 00 00";
  const std::string credentials = login + "4C 49 00 00 00 70 49 00 00 00 00";
  std::string falseChecksum = compressed(nested(1));
  falseChecksum[falseChecksum.size() - 9] ^= 1;
  std::string falseSize = compressed(nested(1));
  falseSize.replace(falseSize.size() - 5, 4, bytes("00 00 00 00"));
  return {
      {"nothing", framed("")},
      {"its start alone", bytes("00 00 00 01 5B")},
      {"no end", bytes("00 00 00 09 5B 4C 49 00 00 00 01 3B 78")},
      {"no object", framed("x")},
      {"zeros", framed(std::string(1000, '\0'))},
      {"half a head", framed(bytes("4C 49 00 00 00 0F"))},
      {"no end of the object", framed(bytes(login + "4C 49 00 00 00 01 3B"))},
      {"credentials of another type", framed(bytes(login + "4C 49 00 00 00 0F 49 00 00 00 00"))},
      {"a string that claims 65,535 bytes", framed(bytes(credentials + "73 FF FF 41 3B"))},
      {"a blob for a string", framed(bytes(credentials + "6A 62 FF FF FF FF 41 3B"))},
      {"a number for a string", framed(bytes(credentials + "49 7F FF FF FF"))},
      {"objects 600 deep", framed(nested(600))},
      {"objects 5,000 deep", framed(nested(5000))},
      {"a false checksum", falseChecksum},
      {"a false size", falseSize},
      {"a bomb of 20 MiB", compressed(std::string(20 << 20, '\0'))},
      {"no gzip", framed("GZIP" + std::string(40, 'x'))},
      {"an empty gzip member", compressed("")},
  };
}

/// The place in the stream is lost: IE/000, then the end.
std::vector<HostileFrame> broken() {
  return {
      {"a length of 0", bytes("00 00 00 00")},
      {"a length of 0 with a mark", bytes("00 00 00 00 5B 4C")},
      {"a negative length", bytes("FF FF FF FF 5B")},
      {"the most negative length", bytes("80 00 00 00 5B 00")},
      {"2 GiB", bytes("7F FF FF FF 5B") + std::string(100, 'x')},
      {"no mark", bytes("00 00 00 05 78")},
      {"text", "hello, is there anybody?\r\n"},
      {"an HTTP method that is none", "PATCH / HTTP/1.1\r\n\r\n"},
      {"the start of a TLS handshake", bytes("16 03 01 02 00 01 00 01 FC 03 03")},
  };
}

class HostileFrames : public testing::Test {
protected:
  static void SetUpTestSuite() {
    noxd = std::make_unique<NoxdProcess>();
    noxd->start();
  }
  static void TearDownTestSuite() { noxd.reset(); }

  static void expectServesTheNext() {
    Client next(noxd->plainPort());
    EXPECT_TRUE(next.logIn().echoes());
  }

  static std::unique_ptr<NoxdProcess> noxd;
};
std::unique_ptr<NoxdProcess> HostileFrames::noxd;

TEST_F(HostileFrames, WithABadBodyAreAnsweredAfterLoginAndTheNextIsRead) {
  for (const HostileFrame& frame : unreadable()) {
    Client client(noxd->plainPort());
    client.logIn().sendBytes(frame.bytes);
    const auto reply = client.receive();
    ASSERT_NE(reply, nullptr) << frame.name;
    // Only the agent knows whether the type of a request that is not read any more exists.
    EXPECT_TRUE(errorOf(*reply) == "IE/000" || errorOf(*reply) == "0A/000")
        << frame.name << ": " << errorOf(*reply);
    EXPECT_TRUE(client.echoes()) << frame.name;
  }
}

TEST_F(HostileFrames, WithABadBodyAreAnsweredBeforeLoginAndTheNextIsRead) {
  for (const HostileFrame& frame : unreadable()) {
    Client client(noxd->plainPort());
    client.sendBytes(frame.bytes);
    const auto reply = client.receive();
    ASSERT_NE(reply, nullptr) << frame.name;
    EXPECT_EQ(errorOf(*reply), "IE/000") << frame.name;
    EXPECT_TRUE(client.logIn().echoes()) << frame.name;
  }
}

TEST_F(HostileFrames, WithABadBodyCloseTheConnectionAtTheThird) {
  for (const bool loggedIn : {false, true}) {
    Client client(noxd->plainPort());
    if (loggedIn) client.logIn();
    for (int i = 0; i < 3; ++i) {
      client.sendBytes(framed("x"));
      const auto reply = client.receive();
      ASSERT_NE(reply, nullptr);
      EXPECT_EQ(errorOf(*reply), "IE/000");
    }
    EXPECT_TRUE(client.isClosed());
  }
}

TEST_F(HostileFrames, ThatArePipelinedAreAnsweredInOrder) {
  Client client(noxd->plainPort());
  client.logIn();
  const std::string echo = frameOf(noxp::common::EchoRequestProt(3));
  client.sendBytes(framed("x") + echo + framed("y") + echo);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(errorOf(*client.receive()), "IE/000");
    const auto reply = client.receive();
    EXPECT_NE(dynamic_cast<noxp::common::EchoResponseProt*>(reply.get()), nullptr);
  }
}

TEST_F(HostileFrames, ThatAreNoFramesAreAnsweredOnceAndEndTheConnection) {
  for (const bool loggedIn : {false, true}) {
    for (const HostileFrame& frame : broken()) {
      Client client(noxd->plainPort());
      if (loggedIn) client.logIn();
      client.sendBytes(frame.bytes);
      const auto reply = client.receive();
      ASSERT_NE(reply, nullptr) << frame.name;
      EXPECT_EQ(errorOf(*reply), "IE/000") << frame.name;
      EXPECT_TRUE(client.isClosed()) << frame.name;
    }
  }
}

/// Messages that are read, and ask for nothing.
std::vector<std::string> withoutRequest() {
  return {
      frameOf(noxp::UnrecognizedRequestProt()),   // 402
      frameOf(noxp::InternalErrorRequestProt()),  // 404
      frameOf(SQLExtError("00", "000", "")),      // 103
      framed(bytes("4C 49 00 00 00 01 3B")),      // the null object
      framed(objectOf(401)),                      // the flat list of old
      framed(objectOf(101)),                      // the all-in-one reply of old
      framed(objectOf(300)),
      framed(objectOf(999)),
      framed(objectOf(1000)),
      framed(objectOf(-1)),
      framed(objectOf(0x7FFFFFFF)),
  };
}

TEST_F(HostileFrames, ThatHoldNoRequestAreNotSupported) {
  auto client = std::make_unique<Client>(noxd->plainPort());
  client->logIn();
  int sent = 0;
  for (const std::string& frame : withoutRequest()) {
    client->sendBytes(frame);
    EXPECT_EQ(errorOf(*client->receive()), "0A/000") << nox::test::hex(frame);
    if (++sent % 3 != 0) {
      EXPECT_TRUE(client->echoes());
      continue;
    }
    EXPECT_TRUE(client->isClosed());
    client = std::make_unique<Client>(noxd->plainPort());
    client->logIn();
  }
}

TEST_F(HostileFrames, ThatHoldNoRequestAreNotSupportedBeforeLogin) {
  for (const std::string& frame : withoutRequest()) {
    Client client(noxd->plainPort());
    client.sendBytes(frame);
    EXPECT_EQ(errorOf(*client.receive()), "0A/000") << nox::test::hex(frame);
  }
}

TEST_F(HostileFrames, ThatAreCutShortEndWithTheirConnection) {
  const std::string echo = frameOf(noxp::common::EchoRequestProt(50));
  for (const std::size_t n : {1u, 4u, 5u, 6u, 20u, 40u}) {
    Client client(noxd->plainPort());
    client.logIn().sendBytes(echo.substr(0, n));
    client.endWriting();
    EXPECT_TRUE(client.isClosed()) << n;
  }
  for (std::size_t n = 1; n < echo.size(); ++n) {
    Client client(noxd->plainPort());
    client.sendBytes(echo.substr(0, n));
    client.endWriting();
    EXPECT_TRUE(client.isClosed()) << n;
  }
  expectServesTheNext();
}

TEST_F(HostileFrames, WithAnyBitFlippedHaveOneReply) {
  // The length and the mark stay, so that it is a frame. No flipped bit makes the password right.
  const std::string frame = frameOf(
      noxp::AuthenticationRequestProt(new AccountUserCredentialsProt("ann", "MAIN", "wrong")));
  auto client = std::make_unique<Client>(noxd->plainPort());
  client->logIn();
  int sent = 0;
  for (std::size_t bit = 5 * 8; bit < (frame.size() - 1) * 8; bit += 7) {
    std::string flipped = frame;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
    client->sendBytes(flipped);
    const auto reply = client->receive();
    ASSERT_NE(reply, nullptr) << bit;
    EXPECT_NE(errorOf(*reply), "") << bit;
    if (++sent % 3 != 0) continue;
    EXPECT_TRUE(client->isClosed());
    client = std::make_unique<Client>(noxd->plainPort());
    client->logIn();
  }
}

TEST_F(HostileFrames, OfTheCorporaHaveAnEnd) {
  namespace fs = std::filesystem;
  int files = 0;
  for (const auto& entry : fs::recursive_directory_iterator(NOX_FUZZ_CORPUS)) {
    if (!entry.is_regular_file()) continue;
    ++files;
    std::ifstream in(entry.path(), std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    // Checking a password takes its time: after login the frames of the agent's own factory.
    const std::string folder = entry.path().parent_path().filename();
    const bool also = folder == "frames" || folder == "agent_factory";
    for (const bool loggedIn : {false, true}) {
      if (loggedIn && !also) continue;
      Client client(noxd->plainPort());
      if (loggedIn) client.logIn();
      client.sendBytes(content.str());
      client.endWriting();
      client.receiveAll();
    }
  }
  EXPECT_GT(files, 50);
  expectServesTheNext();
}

TEST_F(HostileFrames, TakeNoMemoryThatStays) {
  if (kSanitized) GTEST_SKIP() << "the sanitizer keeps what is freed";
  const auto sendAll = [] {
    for (const auto& frames : {unreadable(), broken()}) {
      for (const HostileFrame& frame : frames) {
        Client client(noxd->plainPort());
        client.sendBytes(frame.bytes);
        client.endWriting();
        client.receiveAll();
      }
    }
    Client client(noxd->plainPort());
    client.logIn();
    for (const std::string& frame :
         {compressed(std::string(20 << 20, '\0')), compressed(std::string(16'000'000, '\0')),
          framed(std::string(16'000'000, '\0'))}) {
      client.sendBytes(frame);
      EXPECT_EQ(errorOf(*client.receive()), "IE/000");
    }
    EXPECT_TRUE(client.isClosed());
  };
  sendAll();  // so that what is made once is there
  const long before = noxd->memoryKiB();
  const int descriptors = noxd->descriptors();
  for (int i = 0; i < 4; ++i) sendAll();
  expectServesTheNext();
  EXPECT_LT(noxd->memoryKiB() - before, 10 * 1024);
  EXPECT_LE(noxd->descriptors(), descriptors + 8);
}

TEST(FrameLimits, TakeFramesUpToTheLimitAfterLogin) {
  NoxdProcess noxd;
  noxd.set("server.max_frame", "200000").start();
  Client client(noxd.plainPort());
  EXPECT_TRUE(client.logIn().echoes(199'900));
  // From '[' through ']' there are 23 bytes besides the 200,000.
  client.send(noxp::common::EchoRequestProt(200'000));
  EXPECT_EQ(errorOf(*client.receive()), "IE/000");
  EXPECT_TRUE(client.isClosed());
}

TEST(FrameLimits, TakeFramesOf64KiBBeforeLogin) {
  NoxdProcess noxd;
  noxd.start();
  const std::string longName(60'000, 'u');
  EXPECT_EQ(Client(noxd.plainPort()).logIn(longName, "x"), "28/000");
  Client client(noxd.plainPort());
  client.logIn(longName, longName);
  EXPECT_TRUE(client.isClosed());
}

TEST(FrameLimits, LimitWhatAFrameInflatesTo) {
  NoxdProcess noxd;
  noxd.set("server.max_frame", "200000").start();
  Client client(noxd.plainPort());
  client.logIn();
  Serializable::properties_t compressing;
  compressing.compress = true;
  noxp::common::EchoRequestProt fits(199'900);
  fits.setProperties(&compressing);
  EXPECT_EQ(client.askFor<noxp::common::EchoResponseProt>(fits)->getBuffer()->length(), 199'900u);
  noxp::common::EchoRequestProt tooLong(200'000);
  tooLong.setProperties(&compressing);
  EXPECT_EQ(errorOf(*client.ask(tooLong)), "IE/000");
  EXPECT_TRUE(client.echoes());
}

TEST(FrameLimits, CutAPeerThatTricklesAFrame) {
  NoxdProcess noxd;
  noxd.set("server.frame_timeout", "1").start();
  Client client(noxd.plainPort());
  const std::string frame = frameOf(noxp::common::EchoRequestProt(100));
  client.logIn();
  std::size_t sent = 0;
  while (sent < frame.size() - 1 && !client.hasInput(std::chrono::milliseconds(100))) {
    if (!client.sendBytes(frame.substr(sent, 1))) break;
    ++sent;
  }
  EXPECT_LT(sent, frame.size() - 1);
  EXPECT_TRUE(client.isClosed());
}

TEST(FrameLimits, CutAPeerThatDoesNotReadItsReplies) {
  NoxdProcess noxd;
  noxd.set("server.send_timeout", "1").start();
  Client client(noxd.plainPort());
  client.logIn();
  // Far more than what the sockets' buffers hold.
  const std::string echo = frameOf(noxp::common::EchoRequestProt(8 << 20));
  client.sendBytes(echo);
  noxd.waitForLog("the client is gone");
  Client next(noxd.plainPort());
  EXPECT_TRUE(next.logIn().echoes());
}

TEST(FrameLimits, EndAnIdleConnection) {
  NoxdProcess noxd;
  noxd.set("server.idle_timeout", "1").start();
  Client client(noxd.plainPort());
  client.logIn();
  EXPECT_TRUE(client.isClosed());
}

TEST(FrameLimits, CountIdlenessFromTheLastRequest) {
  NoxdProcess noxd;
  noxd.set("server.idle_timeout", "2").start();
  Client client(noxd.plainPort());
  client.logIn();
  for (int i = 0; i < 3; ++i) {
    EXPECT_FALSE(client.hasInput(std::chrono::milliseconds(1000)));
    EXPECT_TRUE(client.echoes());
  }
}

}  // namespace
}  // namespace nox::agent::test
