// Answers that are cut off, damaged, or no answers at all.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "nox/client/connection.h"
#include "nox/client/error.h"
#include "tests/client/support/environment.h"
#include "tests/client/support/peer.h"

namespace nox::client {
namespace {

using test::Environment;
using test::Peer;
using test::PeerConnection;

/// An answer with something of everything: texts, records, a list.
std::string richAnswer() {
  const NOXPBlob keys(
      "A\xFE"
      "B\xFE"
      "C");
  auto list = std::make_unique<noxp::remote::SelectListProt>(&keys);
  list->setId(4);
  list->setHasRecordData(true);
  while (list->next()) list->setRecord(new NOXPBlob("a record"));
  list->getAllModified()->clear();
  return PeerConnection::frameOf(noxp::remote::SelectListFetchResponseProt(list.release()));
}

class BrokenFrames : public testing::Test {
protected:
  /// Asks for a page of a list, which is answered with these bytes and then the end. The error, if
  /// any.
  std::unique_ptr<Error> errorAfter(const std::string& bytes, const std::string& more = {}) {
    Peer peer([&bytes](PeerConnection& client) {
      client.welcome();
      client.receive();
      const NOXPBlob noKeys("");
      auto list = std::make_unique<noxp::remote::SelectListProt>(&noKeys);
      list->setId(4);
      NOXPBlob empty("");
      client.send(noxp::remote::ExecuteResponseProt(&empty, &empty, list.release()));
      client.receive();
      client.sendBytes(bytes);
    });
    Connection connection = Connection::open(peer.uri("request_timeout=20s" + more));
    SelectList list = connection.select("SELECT F").withRecords();
    try {
      list.nextPage();
    } catch (const Error& error) {
      EXPECT_FALSE(connection.isUsable());
      return std::make_unique<Error>(error);
    }
    EXPECT_TRUE(connection.isUsable());
    return nullptr;
  }

  const Environment empty_;
};

TEST_F(BrokenFrames, AreUnknownWhereverTheyEnd) {
  const std::string whole = richAnswer();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const auto error = errorAfter(whole.substr(0, length));
    ASSERT_NE(error, nullptr) << length;
    EXPECT_EQ(error->outcome(), Outcome::Unknown) << length;
    EXPECT_EQ(error->sqlState(), sqlstate::kConnectionLost) << length;
  }
  EXPECT_EQ(errorAfter(whole), nullptr);
}

TEST_F(BrokenFrames, NeverPassForAnswersOfAnotherKind) {
  // Each byte changed in its highest bit: texts and records may differ, the rest must be noticed.
  const std::string whole = richAnswer();
  for (std::size_t i = 0; i < whole.size(); ++i) {
    std::string damaged = whole;
    damaged[i] = static_cast<char>(damaged[i] ^ 0x80);
    const auto error = errorAfter(damaged);
    EXPECT_EQ(error ? error->outcome() : Outcome::Unknown, Outcome::Unknown) << i;
  }
}

TEST_F(BrokenFrames, AreKnownByTheirHead) {
  const auto error = errorAfter("HTTP/1.1 400 Bad Request\r\n\r\n");
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->sqlState(), sqlstate::kOutOfStep);
  EXPECT_EQ(error->message(), "what came is no frame");
}

TEST_F(BrokenFrames, AreRefusedBeyondTheLongest) {
  const auto error = errorAfter(std::string("\x7F\xFF\xFF\xFF[", 5));
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->sqlState(), sqlstate::kOutOfStep);
  EXPECT_EQ(error->message(),
            "an answer of 2147483651 bytes came; up to 67108864 (max_frame) are taken");
}

TEST_F(BrokenFrames, MayBeAsLongAsTheLimit) {
  const std::string whole = richAnswer();
  ASSERT_LT(whole.size(), 1024u);
  std::string large = PeerConnection::frameOf(noxp::common::EchoResponseProt(
      std::make_unique<NOXPBlob>(std::string(2000, 'x').c_str()).release()));
  const auto error = errorAfter(large, "&max_frame=1K");
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->message(), "an answer of " + std::to_string(large.size()) +
                                  " bytes came; up to 1024 (max_frame) are taken");
  EXPECT_EQ(errorAfter(whole, "&max_frame=1K"), nullptr);
}

TEST_F(BrokenFrames, WithoutALengthAreRefused) {
  for (const std::string& head : {std::string("\0\0\0\0[", 5), std::string("\xFF\xFF\xFF\xFF[", 5),
                                  std::string("\x80\0\0\0[", 5)}) {
    const auto error = errorAfter(head);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->message(), "what came is no frame");
  }
}

TEST_F(BrokenFrames, WithoutAnObjectAreRefused) {
  const auto error = errorAfter(std::string("\0\0\0\x09[LI\0\0\0\x01;]", 13));
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->sqlState(), sqlstate::kOutOfStep);
  EXPECT_EQ(error->message(), "the answer is no object");
}

TEST_F(BrokenFrames, OfARequestAreRefused) {
  const auto error = errorAfter(PeerConnection::frameOf(noxp::remote::DateTimeRequestProt()));
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->sqlState(), sqlstate::kOutOfStep);
}

TEST_F(BrokenFrames, ThatAreCompressedInflateUpToTheLimit) {
  NOXPBlob zeros;
  zeros.setSize(1u << 20);
  Serializable::properties_t compressed;
  compressed.compress = true;
  noxp::common::EchoResponseProt echo(new NOXPBlob(zeros));
  echo.setProperties(&compressed);
  const std::string bomb = PeerConnection::frameOf(echo);
  ASSERT_LT(bomb.size(), 4096u);
  const auto error = errorAfter(bomb, "&max_frame=64K");
  ASSERT_NE(error, nullptr);
  EXPECT_NE(error->message().find("the answer cannot be read"), std::string::npos)
      << error->message();
}

TEST_F(BrokenFrames, ThatAreCompressedAreRead) {
  Peer peer(test::serving([](PeerConnection& client, Serializable&) {
    Serializable::properties_t compressed;
    compressed.compress = true;
    noxp::common::EchoResponseProt echo(new NOXPBlob(std::string(100'000, 'x').c_str()));
    echo.setProperties(&compressed);
    client.send(echo);
  }));
  Connection connection = Connection::open(peer.uri());
  EXPECT_EQ(connection.echo("x"), std::string(100'000, 'x'));
}

TEST_F(BrokenFrames, EndALoginWithWhatCame) {
  Peer peer([](PeerConnection& client) {
    client.receive();
    client.sendBytes("SSH-2.0-OpenSSH\r\n");
    client.waitForClient();
  });
  try {
    Connection::open(peer.uri());
    FAIL() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_EQ(error.sqlState(), sqlstate::kCannotConnect);
    EXPECT_EQ(error.outcome(), Outcome::NotSent);
    EXPECT_EQ(error.message(),
              "cannot connect to 127.0.0.1:" + std::to_string(peer.port()) +
                  ": what came is no frame (does this port speak TLS? tls is off)");
  }
}

}  // namespace
}  // namespace nox::client
