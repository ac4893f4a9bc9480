// What the environment says, and what is stronger.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "nox/client/connection.h"
#include "nox/client/error.h"
#include "nox/client/options.h"
#include "tests/client/support/environment.h"
#include "tests/client/support/peer.h"

namespace nox::client {
namespace {

using std::chrono::milliseconds;
using test::Environment;
using Variables = Environment::Variables;

TEST(Options, TakesEverySettingFromTheEnvironment) {
  const Environment environment(Variables{{"NOX_USER", "anna"},
                                          {"NOX_HOST", "a,b:2"},
                                          {"NOX_PORT", "1"},
                                          {"NOX_ACCOUNT", "SALES"},
                                          {"NOX_TLS", "off"},
                                          {"NOX_TLS_NAME", "n"},
                                          {"NOX_CA", "c"},
                                          {"NOX_CERT", "e"},
                                          {"NOX_KEY", "k"},
                                          {"NOX_PASSWORD_FILE", "p"},
                                          {"NOX_CONNECT_TIMEOUT", "1s"},
                                          {"NOX_REQUEST_TIMEOUT", "2s"},
                                          {"NOX_MAX_FRAME", "3K"},
                                          {"NOX_FETCH_SIZE", "4"},
                                          {"NOX_CLIENT_NAME", "me"},
                                          {"NOX_TRACE", "t"},
                                          {"NOX_TRACE_PAYLOAD", "1"}});
  const Options options = Options::fromEnvironment();
  EXPECT_EQ(options.user, "anna");
  ASSERT_EQ(options.hosts.size(), 2u);
  EXPECT_EQ(options.hosts[0].port, 1);
  EXPECT_EQ(options.hosts[1].port, 2);
  EXPECT_EQ(options.account, "SALES");
  EXPECT_EQ(options.tls, Tls::Off);
  EXPECT_EQ(options.tlsName, "n");
  EXPECT_EQ(options.ca, "c");
  EXPECT_EQ(options.certificate, "e");
  EXPECT_EQ(options.key, "k");
  EXPECT_EQ(options.passwordFile, "p");
  EXPECT_EQ(options.connectTimeout, milliseconds(1000));
  EXPECT_EQ(options.requestTimeout, milliseconds(2000));
  EXPECT_EQ(options.maxFrame, 3072u);
  EXPECT_EQ(options.fetchSize, 4);
  EXPECT_EQ(options.clientName, "me");
  EXPECT_EQ(options.traceFile, "t");
  EXPECT_TRUE(options.tracePayload);
}

TEST(Options, AreDefaultsWhereNobodySaysAnything) {
  const Environment environment;
  const Options options = Options::fromEnvironment();
  EXPECT_FALSE(options.user.empty()) << "the login name";
  EXPECT_EQ(options.tls, Tls::VerifyFull);
  EXPECT_EQ(options.connectTimeout, milliseconds(10'000));
  EXPECT_EQ(options.requestTimeout, milliseconds(90'000));
  EXPECT_EQ(options.maxFrame, 64u * 1024 * 1024);
  EXPECT_EQ(options.fetchSize, 1000);
  EXPECT_EQ(options.traceFile, "");
  EXPECT_FALSE(options.tracePayload);
}

TEST(Options, AreTakenFromTheUriBeforeTheEnvironment) {
  const Environment environment(
      Variables{{"NOX_USER", "anna"}, {"NOX_HOST", "a"}, {"NOX_TLS", "off"}, {"NOX_CA", "c"}});
  const Options options = Options::fromUri("nox://bert@b?tls=verify-full");
  EXPECT_EQ(options.user, "bert");
  EXPECT_EQ(options.hosts[0].name, "b");
  EXPECT_EQ(options.tls, Tls::VerifyFull);
  EXPECT_EQ(options.ca, "c") << "the URI does not say";
}

TEST(Options, TakeAPortOfTheEnvironmentForHostsWithoutOne) {
  const Environment environment(Variables{{"NOX_PORT", "9"}});
  const Options options = Options::fromUri("nox://a,b:8");
  EXPECT_EQ(options.hosts[0].port, 9);
  EXPECT_EQ(options.hosts[1].port, 8);
}

TEST(Options, TakeTheUriOfTheEnvironmentForAnEmptyOne) {
  const Environment environment(Variables{{"NOX_URI", "nox://bert@b/SALES"}, {"NOX_USER", "anna"}});
  EXPECT_EQ(Options::fromUri("").user, "bert");
  EXPECT_EQ(Options::fromUri("nox://h").user, "anna");
}

TEST(Options, NameTheVariableThatCannotBe) {
  for (const auto& [name, value] : {std::pair{"NOX_TLS", "maybe"},
                                    {"NOX_CONNECT_TIMEOUT", "5"},
                                    {"NOX_FETCH_SIZE", "0"},
                                    {"NOX_TRACE_PAYLOAD", "yes"}}) {
    const Environment environment(Variables{{name, value}});
    try {
      static_cast<void>(Options::fromEnvironment());
      ADD_FAILURE() << name;
    } catch (const Error& error) {
      EXPECT_EQ(error.message().rfind(name, 0), 0u) << error.message();
    }
  }
}

TEST(Options, CountAnEmptyVariableAsNone) {
  const Environment environment(Variables{{"NOX_TLS", ""}, {"NOX_URI", ""}});
  EXPECT_EQ(Options::fromUri("").tls, Tls::VerifyFull);
}

/// What opening a connection with these options complains of.
std::string mistakeIn(const Options& options) {
  try {
    Connection::open(options);
  } catch (const Error& error) {
    EXPECT_EQ(error.sqlState(), sqlstate::kBadOption);
    return error.message();
  }
  return "connected";
}

TEST(Options, AreChecked) {
  const Environment environment;
  Options options;
  options.maxFrame = 1023;
  EXPECT_EQ(mistakeIn(options), "max_frame is at least 1K");
  options = Options();
  options.fetchSize = 0;
  EXPECT_EQ(mistakeIn(options), "fetch_size is at least 1");
}

TEST(Options, StandForThisUserWhereTheyNameNobody) {
  const Environment environment;
  test::Peer peer([](test::PeerConnection& client) { client.welcome(); });
  Options options;
  options.hosts = {{"127.0.0.1", peer.port()}};
  options.tls = Tls::Off;
  EXPECT_EQ(Connection::open(options).user(), Options::fromEnvironment().user);
}

TEST(Options, StandForThisMachineWhereTheyNameNoHost) {
  const Environment environment;
  Options options;
  options.user = "anna";
  try {
    Connection::open(options);
    FAIL() << "no authority vouches for whoever may listen there";
  } catch (const Error& error) {
    EXPECT_EQ(error.message().rfind("cannot connect to localhost:7434: ", 0), 0u)
        << error.message();
  }
}

TEST(Options, HaveNoTextThatWouldBeCut) {
  const Environment environment;
  const std::string cut("127.0.0.1\0evil", 14);
  Options options = Options::fromUri("nox://anna@127.0.0.1");
  options.hosts.push_back({cut, 1});
  EXPECT_EQ(mistakeIn(options), "the name of a host has a NUL") << "the first is not asked";
  options.hosts[1].name.clear();
  EXPECT_EQ(mistakeIn(options), "a host has no name");
  for (const auto& [text, message] : {std::pair{&Options::tlsName, "tls_name has a NUL"},
                                      {&Options::ca, "ca has a NUL"},
                                      {&Options::certificate, "cert has a NUL"},
                                      {&Options::key, "key has a NUL"},
                                      {&Options::passwordFile, "password_file has a NUL"},
                                      {&Options::traceFile, "the trace file's name has a NUL"}}) {
    Options one = Options::fromUri("nox://anna@127.0.0.1");
    one.*text = cut;
    EXPECT_EQ(mistakeIn(one), message);
  }
}

}  // namespace
}  // namespace nox::client
