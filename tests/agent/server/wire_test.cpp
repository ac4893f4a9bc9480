#include "agent/server/wire.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "agent/agent_object_factory.h"
#include "agent/http/http_request.h"
#include "tests/agent/server/scripted_transport.h"
#include "tests/support/bytes.h"
#include "tests/support/frames.h"

namespace nox::agent::test {
namespace {

using namespace std::chrono_literals;
using nox::test::bytes;
using nox::test::framed;
using nox::test::frameOf;
using nox::test::readFrame;

std::string echo(std::size_t n) { return frameOf(noxp::common::EchoRequestProt(n)); }

class WireTest : public testing::Test {
protected:
  WireTest() : wire(peer) {
    limits.frame = 100'000;
    limits.reply = 100'000;
    limits.frameTime = 1min;
    limits.sendTime = 1min;
    wire.expect(factory, limits);
  }

  std::unique_ptr<ErrorResponseProt> sentError() {
    ClientObjectFactory client;
    return nox::test::readAs<ErrorResponseProt>(peer.sent(), client);
  }

  AgentObjectFactory factory;
  ScriptedTransport peer;
  Wire::Limits limits;
  Wire wire;
};

TEST_F(WireTest, ReadsRequests) {
  peer.bytes(echo(10)).bytes(echo(20));
  for (const std::size_t n : {10u, 20u}) {
    ASSERT_EQ(wire.next(), Wire::Event::Request);
    EXPECT_EQ(wire.frameBytes(), echo(n).size());
    const auto request = wire.takeRequest();
    const auto* const asked = dynamic_cast<noxp::common::EchoRequestProt*>(request.get());
    ASSERT_NE(asked, nullptr);
    EXPECT_EQ(asked->getBuffer()->length(), n);
  }
  EXPECT_EQ(wire.next(), Wire::Event::Ended);
}

TEST_F(WireTest, GoesOnBehindAFrameThatCannotBeRead) {
  peer.bytes(framed("x") + echo(5));
  ASSERT_EQ(wire.next(), Wire::Event::Unreadable);
  EXPECT_EQ(wire.problem().state().sqlClass, "IE");
  EXPECT_EQ(wire.takeRequest(), nullptr);
  EXPECT_EQ(wire.next(), Wire::Event::Request);
}

TEST_F(WireTest, ReadsNothingBehindTheEndOfAFrame) {
  // The first frame ends within its object; what follows is not taken for the rest of it.
  const std::string cut = echo(1000).substr(4, 200);
  peer.bytes(bytes("00 00 00 C8") + cut + echo(5));
  EXPECT_EQ(wire.next(), Wire::Event::Unreadable);
  EXPECT_EQ(wire.next(), Wire::Event::Request);
}

TEST_F(WireTest, TellsAnUnknownTypeFromABrokenBody) {
  peer.bytes(framed(bytes("4C 49 00 00 03 E7 49 00 00 00 00 3B")) + framed("x"));
  ASSERT_EQ(wire.next(), Wire::Event::Unreadable);
  EXPECT_EQ(wire.unknownType(), 999);
  EXPECT_EQ(wire.problem().state().sqlClass, "0A");
  ASSERT_EQ(wire.next(), Wire::Event::Unreadable);
  EXPECT_EQ(wire.unknownType(), std::nullopt);
}

TEST_F(WireTest, LimitsWhatABodyInflatesTo) {
  peer.bytes(framed("GZIP" + GZipCompressor().compress(std::string(200'000, '\0'))));
  ASSERT_EQ(wire.next(), Wire::Event::Unreadable);
  EXPECT_NE(wire.problem().reason().find("code=-5"), std::string::npos);
}

TEST_F(WireTest, ReadsHttpWithItsFirstWord) {
  peer.bytes("GET /healthz HTTP/1.1\r\n").bytes("\r\n");
  ASSERT_EQ(wire.next(), Wire::Event::Http);
  const auto request = wire.readHttp();
  ASSERT_NE(request, nullptr);
  EXPECT_EQ(request->text(), "GET /healthz HTTP/1.1\r\n\r\n");
}

TEST_F(WireTest, HasNoHttpRequestThatDoesNotEnd) {
  peer.bytes("GET /healthz HTTP/1.1\r\n");
  ASSERT_EQ(wire.next(), Wire::Event::Http);
  EXPECT_EQ(wire.readHttp(), nullptr);
}

TEST_F(WireTest, SendsErrorsOfBothFamilies) {
  ClientObjectFactory client;
  wire.sendSqlError(7, Failure("42", "000", "the reason"));
  const auto reply = nox::test::readAs<noxp::sql::SQLErrorResponseProt>(peer.sent(), client);
  ASSERT_NE(reply, nullptr);
  EXPECT_EQ(reply->getStatementId(), 7);
  EXPECT_NE(reply->getError()->getMsg().find(": the reason"), std::string::npos);
}

TEST_F(WireTest, CutsTheTextOfAnErrorBetweenTwoCharacters) {
  std::string reason;
  while (reason.size() < 100'000) reason += "\xC3\xA4";
  wire.sendError(Failure("IE", "000", reason));
  const auto reply = sentError();
  ASSERT_NE(reply, nullptr);
  const std::string text = reply->getError()->getMsg();
  EXPECT_LT(text.size(), 5000u);
  EXPECT_EQ(text.substr(text.size() - 5), "\xC3\xA4...");
}

TEST_F(WireTest, DropsAReplyThatWasBegun) {
  noxp::common::EchoResponseProt tooLong(new NOXPBlob(std::string(200'000, 'x').data(), 200'000));
  EXPECT_THROW(wire.writer().writeRoot(tooLong), FrameTooLong);
  wire.dropReply();
  wire.sendError(Failure("IE", "000", "too long"));
  EXPECT_NE(sentError(), nullptr);
}

TEST_F(WireTest, WorksOnAfterARest) {
  peer.bytes(echo(50'000)).bytes(echo(5));
  ASSERT_EQ(wire.next(), Wire::Event::Request);
  wire.rest();
  EXPECT_EQ(wire.next(), Wire::Event::Request);
  wire.sendError(Failure("IE", "000", "x"));
  EXPECT_NE(sentError(), nullptr);
}

}  // namespace
}  // namespace nox::agent::test
