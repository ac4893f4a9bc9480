// TLS: what is spoken, which certificate is shown, and what a reload changes.
#include <gtest/gtest.h>
#include <openssl/ssl.h>
#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <string>

#include "tests/agent/support/certificates.h"
#include "tests/agent/support/client.h"
#include "tests/agent/support/noxd_process.h"
#include "tests/support/frames.h"

namespace nox::agent::test {
namespace {

ClientTls only(int version) {
  ClientTls tls;
  tls.version = version;
  return tls;
}

class Tls : public testing::Test {
protected:
  Tls() { noxd.withTls(); }

  ClientTls trusting() const {
    ClientTls tls;
    tls.authority = noxd.tlsAuthority();
    return tls;
  }

  /// Whether a client can log in and ask.
  bool serves(const ClientTls& tls) {
    try {
      Client client(noxd.tlsPort(), tls);
      return client.logIn().echoes();
    } catch (const std::runtime_error&) {
      return false;
    }
  }

  /// Another certificate of another authority in the place of the one that is there.
  void replaceCertificate(const std::string& name) {
    const Certificate authority = Certificate::authority("Others");
    authority.write(noxd.tlsAuthority(), noxd.file("authority-key.pem"));
    authority.issue(name).write(noxd.tlsCertificate(), noxd.tlsKey());
  }

  NoxdProcess noxd;
};

TEST_F(Tls, CarriesRequestsLargeAndSmall) {
  noxd.start();
  Client client(noxd.tlsPort(), trusting());
  client.logIn();
  EXPECT_EQ(client.certificateName(), "/CN=localhost");
  for (const std::size_t n : {0u, 1u, 16'000u, 16'384u, 20'000u, 1'000'000u, 8'000'000u}) {
    EXPECT_TRUE(client.echoes(n)) << n;
  }
}

TEST_F(Tls, TakesFramesThatArePipelined) {
  noxd.start();
  Client client(noxd.tlsPort(), trusting());
  client.logIn();
  std::string frames;
  for (int i = 0; i < 1000; ++i) frames += nox::test::frameOf(noxp::common::EchoRequestProt(10));
  ASSERT_TRUE(client.sendBytes(frames));
  for (int i = 0; i < 1000; ++i) ASSERT_NE(client.receive(), nullptr);
}

TEST_F(Tls, IsOfVersion12AtLeast) {
  noxd.start();
  EXPECT_EQ(Client(noxd.tlsPort(), only(TLS1_3_VERSION)).tlsVersion(), "TLSv1.3");
  EXPECT_EQ(Client(noxd.tlsPort(), only(TLS1_2_VERSION)).tlsVersion(), "TLSv1.2");
  EXPECT_TRUE(serves(only(TLS1_2_VERSION)));
  EXPECT_THROW(Client(noxd.tlsPort(), only(TLS1_1_VERSION)), std::runtime_error);
  EXPECT_THROW(Client(noxd.tlsPort(), only(TLS1_VERSION)), std::runtime_error);
  EXPECT_TRUE(serves(trusting()));
}

TEST_F(Tls, IsTheOnlyThingSpokenOnItsPort) {
  noxd.start();
  Client plain(noxd.tlsPort());
  plain.sendBytes(nox::test::frameOf(noxp::common::EchoRequestProt(10)));
  plain.receiveAll();  // an alert, and the end
  EXPECT_TRUE(serves(trusting()));
}

TEST_F(Tls, CanBeTheOnlyPort) {
  noxd.set("server.plain_listener", "false").start();
  EXPECT_EQ(noxd.plainPort(), 0);
  EXPECT_TRUE(serves(trusting()));
}

TEST_F(Tls, HandshakesHaveADeadline) {
  noxd.set("server.login_timeout", "1").start();
  Client silent(noxd.tlsPort());
  EXPECT_TRUE(silent.isClosed());
  Client trickling(noxd.tlsPort());
  // The head of a record that never becomes whole.
  trickling.sendBytes(std::string("\x16\x03\x01\x40\x00", 5));
  int sent = 0;
  while (sent < 100 && !trickling.hasInput(std::chrono::milliseconds(100))) {
    if (!trickling.sendBytes("x")) break;
    ++sent;
  }
  EXPECT_LT(sent, 100);
}

TEST_F(Tls, FramesHaveADeadlineWithinARecord) {
  noxd.set("server.frame_timeout", "1").start();
  Client client(noxd.tlsPort(), trusting());
  client.logIn();
  client.sendBytes(nox::test::frameOf(noxp::common::EchoRequestProt(50'000)).substr(0, 20'000));
  EXPECT_TRUE(client.isClosed());
}

TEST_F(Tls, ReplyThatIsNotReadHasADeadline) {
  noxd.set("server.send_timeout", "1").start();
  Client client(noxd.tlsPort(), trusting());
  client.logIn();
  client.sendBytes(nox::test::frameOf(noxp::common::EchoRequestProt(8 << 20)));
  noxd.waitForLog("the client is gone");
  EXPECT_TRUE(serves(trusting()));
}

TEST_F(Tls, ShowsTheNewCertificateAfterAReload) {
  noxd.start();
  Client before(noxd.tlsPort(), trusting());
  before.logIn();
  replaceCertificate("renewed");
  EXPECT_THROW(Client(noxd.tlsPort(), trusting()), std::runtime_error);  // still the old one
  noxd.reload();
  EXPECT_EQ(Client(noxd.tlsPort(), trusting()).certificateName(), "/CN=renewed");
  EXPECT_TRUE(before.echoes());  // goes on as it was
}

TEST_F(Tls, KeepsTheOldCertificateWhenTheNewOneIsBad) {
  noxd.start();
  for (const char* content : {"", "no certificate", "-----BEGIN CERTIFICATE-----\nAAAA\n"}) {
    std::ofstream(noxd.tlsCertificate(), std::ios::trunc) << content;
    noxd.reload();
    EXPECT_TRUE(serves(trusting())) << content;
  }
  EXPECT_NE(noxd.log().find("TLS: the old certificate stays"), std::string::npos);
}

TEST_F(Tls, KeepsTheOldCertificateWhenTheKeyIsNotItsOwn) {
  noxd.start();
  const Certificate other = Certificate::authority("Other");
  other.write(noxd.file("other.pem"), noxd.tlsKey());
  noxd.reload();
  noxd.waitForLog("key values mismatch");
  EXPECT_TRUE(serves(trusting()));
  EXPECT_EQ(noxd.log().find("PRIVATE KEY"), std::string::npos);
}

TEST_F(Tls, DoesNotStartWithoutItsCertificate) {
  ASSERT_EQ(unlink(noxd.tlsCertificate().c_str()), 0);
  const Finished finished = noxd.startToFail();
  EXPECT_EQ(finished.status, 78);
  EXPECT_NE(finished.output.find(noxd.tlsCertificate()), std::string::npos) << finished.output;
}

TEST_F(Tls, WarnsOfAKeyThatOthersMayRead) {
  ASSERT_EQ(chmod(noxd.tlsKey().c_str(), 0644), 0);
  noxd.start();
  EXPECT_NE(noxd.log().find("others than its owner may use the key"), std::string::npos);
}

TEST_F(Tls, AsksForClientCertificatesWhereItIsToldTo) {
  const Certificate clients = Certificate::authority("Clients");
  clients.write(noxd.file("clients.pem"), noxd.file("clients-key.pem"));
  clients.issue("ann").write(noxd.file("ann.pem"), noxd.file("ann-key.pem"));
  Certificate::authority("Stranger")
      .issue("bob")
      .write(noxd.file("bob.pem"), noxd.file("bob-key.pem"));
  noxd.set("tls.client_ca", "\"" + noxd.file("clients.pem") + "\"")
      .set("tls.require_client_certificate", "true")
      .start();
  ClientTls ann = trusting();
  ann.certificate = noxd.file("ann.pem");
  ann.key = noxd.file("ann-key.pem");
  EXPECT_TRUE(serves(ann));
  ClientTls bob = trusting();
  bob.certificate = noxd.file("bob.pem");
  bob.key = noxd.file("bob-key.pem");
  EXPECT_FALSE(serves(bob));
  EXPECT_FALSE(serves(trusting()));
}

TEST_F(Tls, MayBeSpokenWithoutAClientCertificateWhereNoneIsRequired) {
  const Certificate clients = Certificate::authority("Clients");
  clients.write(noxd.file("clients.pem"), noxd.file("clients-key.pem"));
  noxd.set("tls.client_ca", "\"" + noxd.file("clients.pem") + "\"").start();
  EXPECT_TRUE(serves(trusting()));
}

TEST_F(Tls, EndsAnOrderlyConversationInOrder) {
  noxd.start();
  Client client(noxd.tlsPort(), trusting());
  EXPECT_TRUE(client.logIn().echoes());
  client.endWriting();
  EXPECT_TRUE(client.isClosed());
  Client drained(noxd.tlsPort(), trusting());
  drained.logIn();
  EXPECT_EQ(noxd.stop(), 0);
  EXPECT_TRUE(drained.isClosed());
}

}  // namespace
}  // namespace nox::agent::test
