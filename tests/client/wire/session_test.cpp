// Logging in, over TLS too, and what belongs to the session.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "tests/agent/support/noxd_process.h"
#include "tests/client/wire/noxd_session.h"

namespace nox::client {
namespace {

using agent::test::NoxdProcess;
using test::errorOf;
using testing::HasSubstr;
using testing::StartsWith;

class NoxdSession : public test::NoxdSession {};

TEST_F(NoxdSession, LogsIn) {
  EXPECT_EQ(ann_.common("@USER"), Record{"ann"});
  EXPECT_EQ(ann_.common("@ACCOUNT"), Record{"MAIN"});
  EXPECT_GT(ann_.ping().count(), 0);
}

TEST_F(NoxdSession, LogsInToTheDefaultAccount) {
  Options nowhere = options();
  nowhere.account.clear();
  EXPECT_EQ(Connection::open(nowhere).common("@ACCOUNT"), Record{"MAIN"});
}

TEST_F(NoxdSession, IsRefusedWithAWrongPassword) {
  Options wrong = options();
  wrong.password = "wrong";
  EXPECT_EQ(errorOf([&] { Connection::open(wrong); }), "28000 Rejected");
}

TEST_F(NoxdSession, IsNamed) {
  Options named = options();
  named.clientName = "wire test";
  const Connection other = Connection::open(named);
  // The name is in the list once the answer to it has been counted.
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  std::string sessions;
  do {
    sessions = ann_.monitor("sessions");
  } while (sessions.find("wire test") == std::string::npos &&
           std::chrono::steady_clock::now() < end);
  EXPECT_THAT(sessions, HasSubstr("wire test"));
}

TEST_F(NoxdSession, EchoesUpToTheFrameCap) {
  const std::string large(8u * 1024 * 1024, 'x');
  EXPECT_EQ(ann_.echo(large), large);
}

TEST_F(NoxdSession, HearsWhatIsWrongWithAFrameBeyondTheCap) {
  const std::string tooLarge(32u * 1024 * 1024, 'x');
  const std::string error = errorOf([&] { ann_.echo(tooLarge); });
  // What the server said may be lost with the connection, which it resets.
  EXPECT_TRUE(error == "IE000 Rejected" || error == "08006 Unknown") << error;
  EXPECT_NE(errorOf([&] { ann_.dateTime(); }), "no error") << "the server has closed";
  EXPECT_FALSE(ann_.isUsable());
}

TEST_F(NoxdSession, KnowsItsServer) {
  const ServerInfo info = ann_.serverInfo();
  EXPECT_EQ(info.name, "noxd");
  EXPECT_FALSE(info.version.empty());
  EXPECT_GT(info.maxConnections, 0);
  EXPECT_EQ(info.user, "ann");
}

TEST_F(NoxdSession, TellsTheTime) {
  const DateTime time = ann_.dateTime();
  EXPECT_GT(time.day, 20000);
  EXPECT_LT(time.second, 86400);
}

TEST_F(NoxdSession, Converts) {
  EXPECT_EQ(ann_.convertOutput("0", "DI"), "1967-12-31");
  EXPECT_EQ(ann_.convertInput("1968-01-01", "DI"), "1");
  EXPECT_EQ(ann_.convertOutput("1234\xFD"
                               "5",
                               "MD2"),
            "12.34\xFD"
            "0.05");
  EXPECT_EQ(errorOf([&] { ann_.convertOutput("x", "ZZ"); }), "42S72 Rejected");
}

TEST_F(NoxdSession, SetsProperties) {
  ann_.setProperties({{"LOCK_WAIT", "1"}, {"FETCH_SIZE", "7"}});
  EXPECT_EQ(errorOf([&] { ann_.setProperty("NONE", "1"); }), "0A000 Rejected");
  EXPECT_EQ(errorOf([&] { ann_.setProperty("FETCH_SIZE", "x"); }), "22003 Rejected");
}

TEST_F(NoxdSession, WritesToTheLog) {
  ann_.log("a line of the test", LogLevel::Warning);
  noxd().waitForLog("a line of the test");
}

TEST_F(NoxdSession, IsMonitored) {
  EXPECT_THAT(ann_.monitor("status"), StartsWith("name\tvalue\nversion\t"));
  EXPECT_EQ(errorOf([&] { ann_.monitor("nonsense"); }), "42000 Rejected");
}

TEST_F(NoxdSession, SwitchesTheAccount) {
  EXPECT_FALSE(ann_.switchAccount("ann", "NOWHERE", NoxdProcess::kPassword));
  EXPECT_EQ(ann_.common("@ACCOUNT"), Record{"MAIN"});
  EXPECT_TRUE(ann_.switchAccount("ann", "MAIN", NoxdProcess::kPassword));
}

TEST_F(NoxdSession, IsEndedByAnAdministrator) {
  const std::string id = bob_.common("@SESSION").bytes();
  ann_.monitor("kill " + id);
  while (bob_.isAlive()) {
  }
  EXPECT_EQ(errorOf([&] { bob_.dateTime(); }), "08003 NotSent");
}

TEST_F(NoxdSession, CompressesAnswersWhereItIsAsked) {
  ann_.setProperty("COMPRESS_THRESHOLD", "100");
  const std::string text(100'000, 'x');
  std::uint64_t received = 0;
  Options watched = options();
  watched.observer = [&received](const Exchange& exchange) { received = exchange.bytesReceived; };
  Connection connection = Connection::open(watched);
  connection.setProperty("COMPRESS_THRESHOLD", "100");
  EXPECT_EQ(connection.echo(text), text);
  EXPECT_LT(received, 10'000u);
}

TEST_F(NoxdSession, IsMadeWithAnotherHostWhereOneIsFull) {
  NoxdProcess small;
  small.set("server.max_connections", "1").start();
  const Connection first = Connection::open(test::optionsFor(small));
  Options either = options();
  either.hosts.insert(either.hosts.begin(), test::optionsFor(small).hosts[0]);
  const Connection second = Connection::open(either);
  EXPECT_EQ(second.host().port, noxd().plainPort());
}

class NoxdTls : public testing::Test {
protected:
  NoxdTls() { noxd_.withTls().start(); }

  Options options() const {
    Options made = test::optionsFor(noxd_);
    made.hosts = {{"localhost", static_cast<std::uint16_t>(noxd_.tlsPort())}};
    made.tls = Tls::VerifyFull;
    made.ca = noxd_.tlsAuthority();
    return made;
  }

  const test::Environment empty_;
  NoxdProcess noxd_;
};

TEST_F(NoxdTls, LogsInToWhomItTrusts) {
  Connection connection = Connection::open(options());
  EXPECT_TRUE(connection.isEncrypted());
  EXPECT_EQ(connection.common("@USER"), Record{"ann"});
  const std::string large(3'000'000, 'x');
  EXPECT_EQ(connection.echo(large), large);
}

TEST_F(NoxdTls, SaysSoWhereTlsIsOff) {
  Options plain = options();
  plain.tls = Tls::Off;
  try {
    Connection::open(plain);
    FAIL() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_THAT(error.message(), HasSubstr(" (does this port speak TLS? tls is off)"));
  }
}

TEST_F(NoxdTls, DoesNotLogInToAStranger) {
  Options strange = options();
  strange.ca.clear();
  EXPECT_EQ(errorOf([&] { Connection::open(strange); }), "08001 NotSent");
  Options misnamed = options();
  misnamed.tlsName = "other.example";
  EXPECT_EQ(errorOf([&] { Connection::open(misnamed); }), "08001 NotSent");
}

}  // namespace
}  // namespace nox::client
