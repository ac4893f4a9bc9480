// Requests that belong to no family, as noxd answers them: 219, 222, 229, 502 and 504.
#include <gmock/gmock.h>

#include <chrono>
#include <memory>
#include <string>

#include "agent/version.h"
#include "tests/agent/support/command_calls.h"
#include "tests/agent/wire/shared_noxd.h"
#include "tests/support/frames.h"

namespace nox::agent::test {
namespace {

using namespace noxp::common;
using namespace noxp::remote;
using nox::test::frameOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class WireCommon : public SharedNoxd {
protected:
  static std::string set(const Properties& properties) {
    SetPropertiesRequestProt request(properties);
    const auto reply = ann().ask(request);
    return dynamic_cast<SetPropertiesResponseProt*>(reply.get()) ? "OK" : errorOf(*reply);
  }
  static std::string set(const char* key, const std::string& value) {
    Properties properties;
    properties.setProperty(key, value);
    return set(properties);
  }
  static std::string log(std::string_view text, int level) {
    const NOXPString line(text.data(), text.size(), true);
    return ann().say(LoggingRequestProt(&line, level));
  }
};

// 504.

TEST_F(WireCommon, AnEchoHasTheSameBytes) {
  for (const std::size_t size : {0u, 1u, 499u, 500u, 501u, 100'000u, 5'000'000u}) {
    EXPECT_TRUE(ann().echoes(size)) << size;
  }
}

TEST_F(WireCommon, AnEchoTravelsAsTheLibrarysReply) {
  EchoRequestProt request(3);
  request.getBuffer()->assign("a\0b", 3);
  ann().send(request);
  EXPECT_EQ(ann().receiveFrame(), frameOf(EchoResponseProt(new NOXPBlob("a\0b", 3))));
}

// 502.

TEST_F(WireCommon, AClientsLineIsLoggedWithItsUserAndConnection) {
  EXPECT_EQ(log("backup done", 8), "OK");
  noxd().waitForLog("user ann, account MAIN: backup done");
}

TEST_F(WireCommon, ALineCannotPretendToBeAnother) {
  EXPECT_EQ(log("first\nforged line\x1B[2J", 8), "OK");
  noxd().waitForLog("first\\x0Aforged line\\x1B[2J");
}

TEST_F(WireCommon, ALineHasItsLevel) {
  EXPECT_EQ(log("as an error", 128), "OK");
  noxd().waitForLog("as an error");
  const std::string all = noxd().log();
  const std::string line = all.substr(all.rfind('\n', all.find("as an error")) + 1);
  EXPECT_THAT(line.substr(0, line.find("as an error")), HasSubstr(" error "));
}

TEST_F(WireCommon, ALongLineIsCut) {
  EXPECT_EQ(log("long " + std::string(60'000, 'x') + " end", 8), "OK");
  noxd().waitForLog("long xxx");
  const std::string all = noxd().log();
  const std::size_t begin = all.find("long xxx");
  EXPECT_LT(all.find('\n', begin) - begin, 5000U);
}

TEST_F(WireCommon, LinesBeyondTheRateAreAnsweredAndLeftOut) {
  const auto client = newClient();
  const NOXPString line("flood");
  for (int i = 0; i < 500; ++i) ASSERT_EQ(client->say(LoggingRequestProt(&line, 8)), "OK");
  noxd().waitForLog("flood");
  const std::string all = noxd().log();
  int logged = 0;
  for (std::size_t at = all.find(": flood"); at != std::string::npos;
       at = all.find(": flood", at + 1)) {
    ++logged;
  }
  // One period's worth, or two where the requests took that long.
  EXPECT_GE(logged, 100);
  EXPECT_LE(logged, 300);
}

// 229.

TEST_F(WireCommon, PropertiesAreTaken) {
  EXPECT_EQ(set("LOCK_WAIT", "0"), "OK");
  EXPECT_EQ(set("FETCH_SIZE", "1"), "OK");
  EXPECT_EQ(set("FETCH_SIZE", "1000"), "OK");
  EXPECT_EQ(set("STATEMENT_TIMEOUT", "0"), "OK");
  EXPECT_EQ(set("STATEMENT_TIMEOUT", "60"), "OK");
  EXPECT_EQ(set("COMPRESS_THRESHOLD", "-1"), "OK");
  EXPECT_EQ(set("TIMEZONE", "Europe/Berlin"), "OK");
  EXPECT_EQ(set("TIMEZONE", "UTC"), "OK");
  EXPECT_EQ(set("CLIENT_NAME", "tests, müller"), "OK");
  EXPECT_EQ(set("EMPTY_NULL", "1"), "OK");
  EXPECT_EQ(set("EMPTY_NULL", "0"), "OK");
  EXPECT_EQ(set(Properties()), "OK");
}

TEST_F(WireCommon, ValuesOutOfRangeAreRefused) {
  const std::pair<const char*, const char*> wrong[] = {
      {"LOCK_WAIT", "-1"},          {"LOCK_WAIT", "3601"},         {"LOCK_WAIT", ""},
      {"LOCK_WAIT", "5s"},          {"LOCK_WAIT", " 5"},           {"LOCK_WAIT", "99999999999999"},
      {"FETCH_SIZE", "0"},          {"FETCH_SIZE", "100001"},      {"STATEMENT_TIMEOUT", "-1"},
      {"STATEMENT_TIMEOUT", "1.5"}, {"COMPRESS_THRESHOLD", "-2"},  {"TIMEZONE", ""},
      {"TIMEZONE", "Mars/Base"},    {"TIMEZONE", "../etc/passwd"}, {"EMPTY_NULL", "2"},
      {"EMPTY_NULL", "yes"}};
  for (const auto& [key, value] : wrong)
    EXPECT_EQ(set(key, value), "22/003") << key << "=" << value;
  EXPECT_EQ(set("CLIENT_NAME", std::string(256, 'x')), "22/003");
}

TEST_F(WireCommon, AnUnknownPropertyIsRefused) {
  EXPECT_EQ(set("NO_SUCH", "1"), "0A/000");
  EXPECT_EQ(set("lock_wait", "1"), "0A/000");
}

TEST_F(WireCommon, PropertiesAreTakenTogetherOrNotAtAll) {
  Properties properties;
  properties.setProperty("EMPTY_NULL", "1");
  properties.setProperty("LOCK_WAIT", "30");
  properties.setProperty("TIMEZONE", "Mars/Base");
  EXPECT_EQ(set(properties), "22/003");
  // Nobody waits in these tests, and still not now.
  bob().read(file(), "A", kUpdate);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(ann().read(file(), "A", kUpdate), "2");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

TEST_F(WireCommon, TheStatementTimeoutHoldsFromTheNextRequestOn) {
  EXPECT_EQ(execute(ann(), "CREATE-FILE NOX.SUBS").prompt, 0);
  ann().write("NOX.SUBS", "LOOP", "while true do end");
  EXPECT_EQ(set("STATEMENT_TIMEOUT", "1"), "OK");
  EXPECT_THAT(call(ann(), "LOOP", std::nullopt).error, HasSubstr("STATEMENT_TIMEOUT"));
  EXPECT_EQ(set("STATEMENT_TIMEOUT", "60"), "OK");
}

TEST_F(WireCommon, RepliesAreCompressedFromTheThresholdOn) {
  ann().write(file(), "A", std::string(10'000, 'a'));
  EXPECT_EQ(set("COMPRESS_THRESHOLD", "1000"), "OK");
  ann().send(ReadRecordRequestProt(0, file(), "A"));
  EXPECT_LT(ann().receiveFrame().size(), 1000U);
  EXPECT_EQ(ann().read(file(), "A"), "0 '" + std::string(10'000, 'a') + "'");
  EXPECT_EQ(set("COMPRESS_THRESHOLD", "-1"), "OK");
  ann().send(ReadRecordRequestProt(0, file(), "A"));
  EXPECT_GT(ann().receiveFrame().size(), 10'000U);
}

// 219.

TEST_F(WireCommon, DateAndTimeAreThoseOfTheSessionsZone) {
  const auto ask = [] {
    DateTimeRequestProt request;
    const auto reply = ann().askFor<DateTimeResponseProt>(request);
    return reply ? reply->getDate() * 86'400LL + reply->getTime() : 0LL;
  };
  // Days count from 31 December 1967, which is 732 days before 1970.
  const long long before = std::time(nullptr) + 732 * 86'400LL;
  const long long utc = ask();
  EXPECT_GE(utc, before);
  EXPECT_LE(utc, before + 60);
  EXPECT_EQ(set("TIMEZONE", "Asia/Tokyo"), "OK");
  EXPECT_NEAR(static_cast<double>(ask() - utc), 9 * 3600.0, 60.0);
  EXPECT_EQ(set("TIMEZONE", "UTC"), "OK");
}

// 222.

TEST_F(WireCommon, MetadataNameTheAgent) {
  EISMetaDataRequestProt request;
  const auto reply = ann().askFor<EISMetaDataReplyProt>(request);
  ASSERT_TRUE(reply);
  const auto text = [](const NOXPBlob* blob) {
    return std::string(reinterpret_cast<const char*>(blob->getBuf()), blob->length());
  };
  EXPECT_EQ(text(reply->getProductName()), "noxd");
  EXPECT_EQ(text(reply->getProductVersion()), version());
  EXPECT_EQ(text(reply->getMaxConnections()), "512");
  EXPECT_EQ(text(reply->getUserName()), "ann");
}

}  // namespace
}  // namespace nox::agent::test
