// Whom a connection trusts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "nox/client/batch.h"
#include "nox/client/connection.h"
#include "nox/client/error.h"
#include "tests/client/support/certificates.h"
#include "tests/client/support/environment.h"
#include "tests/client/support/peer.h"
#include "tests/client/support/scratch.h"

namespace nox::client {
namespace {

using test::Authority;
using test::CertificateFiles;
using test::CertificateText;
using test::Environment;
using test::Peer;
using test::PeerConnection;
using test::Scratch;
using testing::HasSubstr;

const Peer::Script& tellingTime() {
  static const Peer::Script script = test::serving([](PeerConnection& client, Serializable&) {
    client.send(noxp::remote::DateTimeResponseProt(7, 8));
  });
  return script;
}

class TlsConnections : public testing::Test {
protected:
  static CertificateText forLoopback() {
    CertificateText text;
    text.hosts = {"localhost"};
    text.addresses = {"127.0.0.1"};
    return text;
  }
  std::string trusting(const std::string& more = {}) const {
    return "ca=" + authority_.certificate() + more;
  }

  /// Why a connection is not made.
  static std::string refusalOf(const std::string& uri) {
    try {
      Connection::open(uri);
    } catch (const Error& error) {
      EXPECT_EQ(error.sqlState(), sqlstate::kCannotConnect) << error.message();
      EXPECT_EQ(error.outcome(), Outcome::NotSent);
      return error.message();
    }
    ADD_FAILURE() << "connected";
    return {};
  }

  const Environment empty_;
  const Scratch scratch_;
  Authority authority_{scratch_, "authority"};
};

TEST_F(TlsConnections, AreMadeToAServerThatAnAuthorityVouchesFor) {
  Peer peer(tellingTime(), authority_.issue(forLoopback()));
  Connection connection = Connection::open(peer.uri(trusting()));
  EXPECT_TRUE(connection.isEncrypted());
  EXPECT_EQ(connection.dateTime().day, 7);
  EXPECT_TRUE(connection.isAlive());
}

TEST_F(TlsConnections, GoByNameAsWellAsByAddress) {
  CertificateText text;
  text.hosts = {"localhost"};
  Peer peer(tellingTime(), authority_.issue(text));
  const std::string port = std::to_string(peer.port());
  EXPECT_EQ(Connection::open("nox://ann@localhost:" + port + "?" + trusting()).dateTime().day, 7);
  EXPECT_THAT(refusalOf(peer.uri(trusting())), HasSubstr("IP address mismatch"));
}

TEST_F(TlsConnections, AreRefusedToAnotherName) {
  CertificateText text;
  text.hosts = {"db.example", "*.example"};
  text.addresses = {"127.0.0.2"};
  Peer peer(tellingTime(), authority_.issue(text));
  EXPECT_THAT(refusalOf("nox://ann@localhost:" + std::to_string(peer.port()) + "?" + trusting()),
              HasSubstr("the server's certificate is refused: hostname mismatch: it is not for "
                        "localhost"));
  EXPECT_THAT(refusalOf(peer.uri(trusting("&tls_name=other.example"))),
              HasSubstr("hostname mismatch: it is not for other.example"));
  EXPECT_THAT(refusalOf(peer.uri(trusting())),
              HasSubstr("IP address mismatch: it is not for 127.0.0.1"));
}

TEST_F(TlsConnections, MayExpectAnotherNameThanTheHosts) {
  CertificateText text;
  text.hosts = {"db.example"};
  Peer peer(tellingTime(), authority_.issue(text));
  EXPECT_EQ(Connection::open(peer.uri(trusting("&tls_name=db.example"))).dateTime().day, 7);
  EXPECT_THAT(refusalOf(peer.uri(trusting("&tls_name=other.example"))),
              HasSubstr("hostname mismatch"));
}

TEST_F(TlsConnections, AreRefusedToAnExpiredCertificate) {
  CertificateText text = forLoopback();
  text.isExpired = true;
  Peer peer(tellingTime(), authority_.issue(text));
  EXPECT_THAT(refusalOf(peer.uri(trusting())), HasSubstr("certificate has expired"));
}

TEST_F(TlsConnections, AreRefusedToACertificateThatOnlyVouchesForItself) {
  Peer peer(tellingTime(), Authority::selfSigned(scratch_, forLoopback()));
  EXPECT_THAT(refusalOf(peer.uri(trusting())), HasSubstr("self-signed certificate"));
  EXPECT_THAT(refusalOf(peer.uri()), HasSubstr("self-signed certificate"));
}

TEST_F(TlsConnections, AreRefusedToACertificateOfAnUnknownAuthority) {
  Authority unknown(scratch_, "unknown");
  Peer peer(tellingTime(), unknown.issue(forLoopback()));
  EXPECT_THAT(refusalOf(peer.uri(trusting())), HasSubstr("the server's certificate is refused"));
  EXPECT_THAT(refusalOf(peer.uri()), HasSubstr("unable to get local issuer certificate"))
      << "nor do the system's authorities know it";
}

TEST_F(TlsConnections, AreRefusedToANameThatOnlyTheSubjectHas) {
  CertificateText text;
  text.name = "localhost";
  Peer peer(tellingTime(), authority_.issue(text));
  EXPECT_THAT(refusalOf("nox://ann@localhost:" + std::to_string(peer.port()) + "?" + trusting()),
              HasSubstr("the server's certificate is refused: hostname mismatch"));
}

TEST_F(TlsConnections, AreMadeToAnybodyWhereThatIsAskedForInFull) {
  CertificateText text;
  text.hosts = {"other.example"};
  text.isExpired = true;
  Peer peer(tellingTime(), Authority::selfSigned(scratch_, text));
  Connection connection = Connection::open(peer.uri("tls=insecure-no-verify"));
  EXPECT_TRUE(connection.isEncrypted());
  EXPECT_EQ(connection.dateTime().day, 7);
}

TEST_F(TlsConnections, NeverFallBackToPlainText) {
  // A plain server: the handshake fails, and the password is never sent.
  std::string received;
  {
    Peer peer([&received](PeerConnection& client) {
      client.sendBytes(PeerConnection::frameOf(OKResponseProt()));
      client.waitForClient();
      received = "closed";
    });
    const std::string uri = "nox://ann@127.0.0.1:" + std::to_string(peer.port()) + "?" + trusting();
    EXPECT_THAT(refusalOf(uri), HasSubstr("(does this port speak TLS?)"));
    EXPECT_EQ(peer.connections(), 1) << "nor is it tried again without";
  }
}

TEST_F(TlsConnections, SayThatAPortSpeaksTls) {
  Peer peer(tellingTime(), authority_.issue(forLoopback()));
  const std::string uri = "nox://ann@127.0.0.1:" + std::to_string(peer.port()) + "?tls=off";
  EXPECT_THAT(refusalOf(uri), HasSubstr(" (does this port speak TLS? tls is off)"));
}

TEST_F(TlsConnections, ShowACertificateWhereTheServerWantsOne) {
  Peer peer(tellingTime(), authority_.issue(forLoopback()), authority_.certificate());
  CertificateText me;
  me.name = "ann";
  const CertificateFiles mine = authority_.issue(me);
  EXPECT_EQ(Connection::open(peer.uri(trusting("&cert=" + mine.certificate + "&key=" + mine.key)))
                .dateTime()
                .day,
            7);
  EXPECT_THAT(refusalOf(peer.uri(trusting())), HasSubstr("certificate required"));
}

TEST_F(TlsConnections, NameTheFilesThatCannotBeUsed) {
  const std::string notPem = scratch_.write("not.pem", "this is no certificate\n");
  const auto refused = [](const std::string& parameters) -> std::string {
    try {
      Connection::open("nox://ann@127.0.0.1?" + parameters);
    } catch (const Error& error) {
      EXPECT_EQ(error.sqlState(), sqlstate::kBadOption);
      return error.message();
    }
    return "connected";
  };
  EXPECT_THAT(refused("ca=" + notPem), HasSubstr("the file of trusted certificates " + notPem));
  EXPECT_EQ(refused("ca=/nowhere"),
            "the file of trusted certificates /nowhere cannot be used: No such file or directory");
  EXPECT_THAT(refused("cert=" + notPem), HasSubstr("the client certificate " + notPem));
  EXPECT_THAT(refused("cert=" + authority_.certificate() + "&key=" + notPem),
              HasSubstr("the key of the client certificate " + notPem));
  EXPECT_THAT(refused("key=" + notPem), HasSubstr("a key is given without its certificate"));
}

TEST_F(TlsConnections, RefuseAKeyOfAnotherCertificate) {
  const CertificateFiles one = authority_.issue(forLoopback());
  const CertificateFiles other = authority_.issue(forLoopback());
  try {
    Connection::open("nox://ann@127.0.0.1?cert=" + one.certificate + "&key=" + other.key);
    FAIL() << "connected";
  } catch (const Error& error) {
    EXPECT_EQ(error.sqlState(), sqlstate::kBadOption);
  }
}

TEST_F(TlsConnections, CarryMoreThanARecord) {
  Peer peer(test::serving([](PeerConnection& client, Serializable& request) {
              auto& echo = dynamic_cast<noxp::common::EchoRequestProt&>(request);
              client.send(noxp::common::EchoResponseProt(new NOXPBlob(*echo.getBuffer())));
            }),
            authority_.issue(forLoopback()));
  Connection connection = Connection::open(peer.uri(trusting()));
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{16384},
                                 std::size_t{16385}, std::size_t{3'000'000}}) {
    const std::string bytes(size, 'x');
    EXPECT_EQ(connection.echo(bytes), bytes) << size;
  }
}

TEST_F(TlsConnections, CarryBatchesWithoutBlocking) {
  Peer peer(
      test::serving([](PeerConnection& client, Serializable& request) {
        auto& write = dynamic_cast<noxp::remote::WriteRecordRequestProt&>(request);
        client.send(noxp::remote::ToviResponseProt(0, new NOXPBlob(*write.getRecord()), nullptr));
      }),
      authority_.issue(forLoopback()));
  Connection connection = Connection::open(peer.uri(trusting("&request_timeout=60s")));
  Batch batch(connection);
  for (int i = 0; i < 100; ++i) batch.write("F", "1", Record(std::string(200'000, 'x')));
  for (const Batch::Result& result : batch.run()) {
    ASSERT_TRUE(result.ok()) << result.error->what();
    EXPECT_EQ(result.record.bytes().size(), 200'000u);
  }
}

TEST_F(TlsConnections, EndWithTheServer) {
  Peer peer(
      [](PeerConnection& client) {
        client.welcome();
        client.receive();
      },
      authority_.issue(forLoopback()));
  Connection connection = Connection::open(peer.uri(trusting()));
  try {
    connection.dateTime();
    FAIL() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_EQ(error.sqlState(), sqlstate::kConnectionLost);
    EXPECT_EQ(error.outcome(), Outcome::Unknown);
    EXPECT_EQ(error.message(), "the server closed the connection");
  }
}

TEST_F(TlsConnections, EndWithAReset) {
  Peer peer(
      [](PeerConnection& client) {
        client.welcome();
        client.receive();
        client.reset();
      },
      authority_.issue(forLoopback()));
  Connection connection = Connection::open(peer.uri(trusting()));
  EXPECT_THROW(connection.dateTime(), Error);
  EXPECT_FALSE(connection.isUsable());
}

TEST_F(TlsConnections, HaveTheSameDeadlines) {
  Peer peer(
      [](PeerConnection& client) {
        client.welcome();
        client.receive();
        client.sendSlowly(PeerConnection::frameOf(noxp::remote::DateTimeResponseProt(1, 2)),
                          std::chrono::milliseconds(150));
      },
      authority_.issue(forLoopback()));
  Connection connection = Connection::open(peer.uri(trusting("&request_timeout=600ms")));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_THROW(connection.dateTime(), Error);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
}

}  // namespace
}  // namespace nox::client
