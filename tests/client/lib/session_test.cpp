// What belongs to the session itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "nox/client/connection.h"
#include "tests/client/lib/recorder.h"

namespace nox::client {
namespace {

using testing::ElementsAre;

class Session : public test::RecordedSession {
protected:
  static Error errorOf(const std::function<void()>& action) {
    try {
      action();
    } catch (const Error& error) {
      return error;
    }
    ADD_FAILURE() << "nothing was thrown";
    return Error("00000", "", Outcome::Unknown);
  }
};

TEST_F(Session, KnowsWhoseItIsAndWhereItWent) {
  EXPECT_EQ(connection_.user(), "ann");
  EXPECT_EQ(connection_.account(), "MAIN");
  EXPECT_EQ(connection_.host().name, "127.0.0.1");
  EXPECT_EQ(connection_.host().port, peer_.port());
  EXPECT_FALSE(connection_.isEncrypted());
  EXPECT_TRUE(connection_.isAlive());
}

TEST_F(Session, EchoesAnyBytes) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  EXPECT_EQ(connection_.echo(all), all);
  EXPECT_EQ(connection_.echo(""), "");
  const std::string large(5'000'000, 'x');
  EXPECT_EQ(connection_.echo(large), large);
}

TEST_F(Session, MeasuresARoundTrip) { EXPECT_GT(connection_.ping().count(), 0); }

TEST_F(Session, ConvertsBothWays) {
  NOXPBlob result("31 DEC 1967");
  const NOXPBlob* const converted = &result;
  reply<noxp::remote::ConvResponseProt>(converted);
  EXPECT_EQ(connection_.convertOutput("0", "D"), "31 DEC 1967");
  NOXPBlob day("0");
  const NOXPBlob* const internal = &day;
  reply<noxp::remote::ConvResponseProt>(internal);
  EXPECT_EQ(connection_.convertInput("31 DEC 1967", "D\xFDMCU"), "0");
  EXPECT_THAT(asked(), ElementsAre("Conv 0 0 D", "Conv 1 31 DEC 1967 D\xFDMCU"));
}

TEST_F(Session, SetsProperties) {
  reply<noxp::common::SetPropertiesResponseProt>();
  connection_.setProperty("LOCK_WAIT", "1");
  reply<noxp::common::SetPropertiesResponseProt>();
  connection_.setProperties({{"FETCH_SIZE", "5"}, {"TIMEZONE", "UTC"}});
  EXPECT_THAT(asked(),
              ElementsAre("Properties LOCK_WAIT=1", "Properties FETCH_SIZE=5 TIMEZONE=UTC"));
}

TEST_F(Session, SwitchesTheAccount) {
  reply<noxp::remote::SwitchAccountResponseProt>(0);
  EXPECT_TRUE(connection_.switchAccount("bert", "SALES", "geheim"));
  EXPECT_EQ(connection_.user(), "bert");
  EXPECT_EQ(connection_.account(), "SALES");
  EXPECT_THAT(asked(), ElementsAre("Switch bert/SALES/geheim"));
}

TEST_F(Session, StaysAsItWasWhereASwitchIsRefused) {
  reply<noxp::remote::SwitchAccountResponseProt>(1);
  EXPECT_FALSE(connection_.switchAccount("bert", "SALES", "geheim"));
  EXPECT_EQ(connection_.user(), "ann");
}

TEST_F(Session, TellsTheServersTime) {
  reply<noxp::remote::DateTimeResponseProt>(21000, 86399);
  const DateTime time = connection_.dateTime();
  EXPECT_EQ(time.day, 21000);
  EXPECT_EQ(time.second, 86399);
}

TEST_F(Session, KnowsItsServer) {
  MetaDataRepositoryProt facts;
  facts.setRepositoryEntry("EIS_PRODUCT_NAME", std::string("noxd"));
  facts.setRepositoryEntry("EIS_PRODUCT_VERSION", std::string("1.2"));
  facts.setRepositoryEntry("EIS_MAX_CONNECTIONS", std::string("512"));
  facts.setRepositoryEntry("EIS_USER_NAME", std::string("ann"));
  reply<noxp::remote::EISMetaDataResponseProt>(&facts);
  const ServerInfo info = connection_.serverInfo();
  EXPECT_EQ(info.name, "noxd");
  EXPECT_EQ(info.version, "1.2");
  EXPECT_EQ(info.maxConnections, 512);
  EXPECT_EQ(info.user, "ann");
}

TEST_F(Session, ReadsNamedCommons) {
  reply<noxp::remote::ReadCommonResponseProt>(
      "a\xFE"
      "b");
  EXPECT_EQ(connection_.common("@USER"), Record({"a", "b"}));
  EXPECT_THAT(asked(), ElementsAre("Common @USER"));
}

TEST_F(Session, WritesLinesToTheServersLog) {
  connection_.log("started");
  connection_.log("beware", LogLevel::Warning);
  EXPECT_THAT(asked(), ElementsAre("Log 8 started", "Log 32 beware"));
}

TEST_F(Session, IsMonitored) {
  reply<noxp::remote::MonitoringResponseProt>("name\tvalue\nversion\t1");
  EXPECT_EQ(connection_.monitor("status"), "name\tvalue\nversion\t1");
  EXPECT_THAT(asked(), ElementsAre("Monitor status"));
}

TEST_F(Session, FailsWhereMonitoringIsRefused) {
  reply<noxp::remote::MonitoringResponseProt>("error: not allowed");
  const Error error = errorOf([&] { connection_.monitor("status"); });
  EXPECT_EQ(error.sqlState(), "42000");
  EXPECT_EQ(error.message(), "not allowed");
  EXPECT_EQ(error.outcome(), Outcome::Rejected);
}

TEST_F(Session, IsNamedAndSizedAtItsLogin) {
  Connection named = Connection::open(peer_.uri("client_name=me&fetch_size=50"));
  EXPECT_THAT(asked(), ElementsAre("Properties CLIENT_NAME=me FETCH_SIZE=50"));
}

TEST_F(Session, FailsItsLoginWhereItsNameIsRefused) {
  reply<ErrorResponseProt>(SQLExtError("22", "003", "too long"));
  EXPECT_EQ(errorOf([&] { Connection::open(peer_.uri("client_name=me")); }).sqlState(), "22003");
}

TEST_F(Session, MovesWithItsConnection) {
  Connection moved = std::move(connection_);
  EXPECT_EQ(moved.echo("x"), "x");
  connection_ = std::move(moved);
  EXPECT_EQ(connection_.echo("x"), "x");
}

TEST_F(Session, EndsWhereAnotherOneTakesItsPlace) {
  Connection other = Connection::open(peer_.uri());
  File file = connection_.file("F");
  connection_ = std::move(other);
  EXPECT_EQ(errorOf([&] { file.exists("1"); }).message(),
            "the connection is unusable: it was closed")
      << "although what was moved from still lives";
  EXPECT_EQ(connection_.echo("x"), "x");
}

TEST_F(Session, SurvivesInWhatWasMadeFromItOnlyWhileItIsOpen) {
  reply<OKResponseProt>();
  std::unique_ptr<File> file;
  {
    Connection other = Connection::open(peer_.uri());
    file = std::make_unique<File>(other.file("F"));
  }
  EXPECT_EQ(errorOf([&] { file->exists("1"); }).message(),
            "the connection is unusable: it was closed");
}

}  // namespace
}  // namespace nox::client
