// What a URI says, and what it may not say.
#include <gtest/gtest.h>

#include <string>

#include "nox/client/error.h"
#include "nox/client/options.h"
#include "tests/client/support/environment.h"

namespace nox::client {
namespace {

using std::chrono::milliseconds;
using test::Environment;

class Uri : public testing::Test {
protected:
  /// Why the URI is refused.
  static std::string mistakeIn(const std::string& uri) {
    try {
      static_cast<void>(Options::fromUri(uri));
    } catch (const Error& error) {
      EXPECT_EQ(error.sqlState(), sqlstate::kBadOption);
      EXPECT_EQ(error.outcome(), Outcome::NotSent);
      return error.message();
    }
    ADD_FAILURE() << "taken: " << uri;
    return {};
  }

  const Environment empty_;
};

TEST_F(Uri, SaysUserHostPortAndAccount) {
  const Options options = Options::fromUri("nox://anna@db.example:7000/SALES");
  EXPECT_EQ(options.user, "anna");
  ASSERT_EQ(options.hosts.size(), 1u);
  EXPECT_EQ(options.hosts[0].name, "db.example");
  EXPECT_EQ(options.hosts[0].port, 7000);
  EXPECT_EQ(options.account, "SALES");
}

TEST_F(Uri, MayLeaveOutAllButTheScheme) {
  const Options options = Options::fromUri("nox://");
  ASSERT_EQ(options.hosts.size(), 1u);
  EXPECT_EQ(options.hosts[0].name, "localhost");
  EXPECT_EQ(options.hosts[0].port, 0);
  EXPECT_EQ(options.account, "");
  EXPECT_EQ(options.tls, Tls::VerifyFull);
}

TEST_F(Uri, NamesSeveralHostsInTheirOrder) {
  const Options options = Options::fromUri("nox://a:1,b,[2001:db8::1]:3/");
  ASSERT_EQ(options.hosts.size(), 3u);
  EXPECT_EQ(options.hosts[0].name, "a");
  EXPECT_EQ(options.hosts[0].port, 1);
  EXPECT_EQ(options.hosts[1].name, "b");
  EXPECT_EQ(options.hosts[1].port, 0);
  EXPECT_EQ(options.hosts[2].name, "2001:db8::1");
  EXPECT_EQ(options.hosts[2].port, 3);
}

TEST_F(Uri, TakesIpv6AddressesInBrackets) {
  EXPECT_EQ(Options::fromUri("nox://[::1]").hosts[0].name, "::1");
  EXPECT_EQ(Options::fromUri("nox://[fe80::1%25eth0]:7").hosts[0].name, "fe80::1%eth0");
  EXPECT_EQ(mistakeIn("nox://::1"), "an IPv6 address must stand in brackets");
  EXPECT_EQ(mistakeIn("nox://[::1"), "a \"]\" is missing behind an IPv6 address");
  EXPECT_EQ(mistakeIn("nox://[::1]x"), "only a port may follow the \"]\" of an IPv6 address");
}

TEST_F(Uri, IsPercentDecoded) {
  const Options options =
      Options::fromUri("nox://an%40na@db%2eexample/SA%2FLES?ca=%2fetc%2Fmy%20ca.pem");
  EXPECT_EQ(options.user, "an@na");
  EXPECT_EQ(options.hosts[0].name, "db.example");
  EXPECT_EQ(options.account, "SA/LES");
  EXPECT_EQ(options.ca, "/etc/my ca.pem");
}

TEST_F(Uri, RefusesBrokenPercentSigns) {
  for (const char* const uri : {"nox://a%", "nox://a%4", "nox://a%4g", "nox://h?ca=%zz"}) {
    EXPECT_EQ(mistakeIn(uri), "two hexadecimal digits are missing behind a \"%\" of the URI")
        << uri;
  }
  EXPECT_EQ(mistakeIn("nox://a%00b"), "the URI has a NUL (\"%00\")");
}

TEST_F(Uri, SaysHowToConnect) {
  const Options options = Options::fromUri(
      "nox://h/A?tls=insecure-no-verify&tls_name=n&ca=c&cert=e&key=k&password_file=p"
      "&connect_timeout=5s&request_timeout=2m&max_frame=2M&fetch_size=17&client_name=me");
  EXPECT_EQ(options.tls, Tls::InsecureNoVerify);
  EXPECT_EQ(options.tlsName, "n");
  EXPECT_EQ(options.ca, "c");
  EXPECT_EQ(options.certificate, "e");
  EXPECT_EQ(options.key, "k");
  EXPECT_EQ(options.passwordFile, "p");
  EXPECT_EQ(options.connectTimeout, milliseconds(5000));
  EXPECT_EQ(options.requestTimeout, milliseconds(120'000));
  EXPECT_EQ(options.maxFrame, 2u * 1024 * 1024);
  EXPECT_EQ(options.fetchSize, 17);
  EXPECT_EQ(options.clientName, "me");
}

TEST_F(Uri, VerifiesUnlessItIsToldOtherwiseInFull) {
  EXPECT_EQ(Options::fromUri("nox://h?tls=verify-full").tls, Tls::VerifyFull);
  EXPECT_EQ(Options::fromUri("nox://h?tls=off").tls, Tls::Off);
  for (const char* const value : {"", "on", "no", "insecure", "prefer", "OFF"}) {
    EXPECT_EQ(mistakeIn(std::string("nox://h?tls=") + value),
              std::string("tls is verify-full, insecure-no-verify or off, not \"") + value + "\"");
  }
}

TEST_F(Uri, RefusesKeysThatItDoesNotKnow) {
  EXPECT_EQ(mistakeIn("nox://h?conect_timeout=5s"), "there is no setting \"conect_timeout\"");
  EXPECT_EQ(mistakeIn("nox://h?TLS=off"), "there is no setting \"TLS\"");
  EXPECT_EQ(mistakeIn("nox://h?tls=off&tls=off"), "\"tls\" is given twice");
  EXPECT_EQ(mistakeIn("nox://h?tls"), "the URI's parameter \"tls\" has no \"=\"");
  EXPECT_EQ(mistakeIn("nox://h?=x"), "a parameter of the URI has no name");
  EXPECT_EQ(mistakeIn("nox://h?tls=off&&ca=x"), "a parameter of the URI has no name");
}

TEST_F(Uri, HoldsNoPasswordAndRepeatsNone) {
  const std::string mistake = mistakeIn("nox://anna:geheim@h/A");
  EXPECT_NE(mistake.find("a password does not belong in a URI"), std::string::npos) << mistake;
  EXPECT_EQ(mistake.find("geheim"), std::string::npos) << mistake;
  const std::string asKey = mistakeIn("nox://h/A?password=geheim");
  EXPECT_NE(asKey.find("a password does not belong in a URI"), std::string::npos) << asKey;
  EXPECT_EQ(asKey.find("geheim"), std::string::npos) << asKey;
}

TEST_F(Uri, HasOneOfEachMark) {
  EXPECT_EQ(mistakeIn("nox://a@b@c"), "a URI has one \"@\"; write \"%40\" for those in a name");
  EXPECT_EQ(mistakeIn("nox://h/A/B"), "behind the account a URI has no \"/\"");
  EXPECT_EQ(mistakeIn("nox://h/A#b"), "a URI has no \"#\"; write \"%23\"");
}

TEST_F(Uri, BeginsWithItsScheme) {
  for (const char* const uri : {"http://h", "nox:h", "NOX://h", "h", "nox:/h"}) {
    EXPECT_EQ(mistakeIn(uri), "a URI begins with \"nox://\"") << uri;
  }
}

TEST_F(Uri, NamesEachHost) {
  EXPECT_EQ(mistakeIn("nox://a,,b"), "a host has no name");
  EXPECT_EQ(mistakeIn("nox://:7000"), "a host has no name");
  EXPECT_EQ(mistakeIn("nox://[]:1"), "a host has no name");
}

TEST_F(Uri, HasPortsFromOneTo65535) {
  EXPECT_EQ(Options::fromUri("nox://h:65535").hosts[0].port, 65535);
  for (const char* const port : {"0", "65536", "-1", "", "7x", " 7", "99999999999"}) {
    EXPECT_EQ(mistakeIn(std::string("nox://h:") + port),
              std::string("a port is a number from 1 to 65535, not \"") + port + "\"");
  }
}

TEST_F(Uri, HasTimesWithTheirUnits) {
  EXPECT_EQ(Options::fromUri("nox://h?connect_timeout=250ms").connectTimeout, milliseconds(250));
  EXPECT_EQ(Options::fromUri("nox://h?connect_timeout=0s").connectTimeout, milliseconds(0));
  EXPECT_EQ(Options::fromUri("nox://h?connect_timeout=1440m").connectTimeout,
            milliseconds(86'400'000));
  for (const char* const time :
       {"5", "s", "5h", "-5s", "5 s", "1.5s", "1441m", "99999999999999999999s", "5S"}) {
    EXPECT_EQ(
        mistakeIn(std::string("nox://h?connect_timeout=") + time),
        std::string("connect_timeout is a time of up to a day such as 500ms, 5s or 2m, not \"") +
            time + "\"");
  }
}

TEST_F(Uri, HasSizesWithinBounds) {
  EXPECT_EQ(Options::fromUri("nox://h?max_frame=1K").maxFrame, 1024u);
  EXPECT_EQ(Options::fromUri("nox://h?max_frame=2047M").maxFrame, 2047u * 1024 * 1024);
  for (const char* const size : {"1023", "2048M", "1G", "", "-1", "64k"}) {
    EXPECT_EQ(mistakeIn(std::string("nox://h?max_frame=") + size),
              std::string("max_frame is a size from 1K to 2047M, not \"") + size + "\"");
  }
  for (const char* const size : {"0", "100001", "x", "1K"}) {
    EXPECT_EQ(mistakeIn(std::string("nox://h?fetch_size=") + size),
              std::string("fetch_size is a number from 1 to 100000, not \"") + size + "\"");
  }
}

TEST_F(Uri, IsShownWithoutThePasswordAndWithoutDefaults) {
  const std::string uri =
      "nox://an%40na@db.example:7000,[2001:db8::1]/SA%2FLES?tls=off&ca=/etc/ca.pem"
      "&connect_timeout=1500ms";
  Options options = Options::fromUri(uri);
  options.password = "geheim";
  EXPECT_EQ(options.toUri(), uri);
}

TEST_F(Uri, ShowsAlwaysWhetherTlsIsUsed) {
  const Options options = Options::fromUri("nox://anna@h?tls=verify-full");
  EXPECT_EQ(options.toUri(), "nox://anna@h?tls=verify-full");
  const test::Environment unsafe(test::Environment::Variables{{"NOX_TLS", "off"}});
  EXPECT_EQ(Options::fromUri(options.toUri()).tls, Tls::VerifyFull);
}

TEST_F(Uri, ThatIsShownIsTheSameWhenItIsRead) {
  Options options = Options::fromUri("nox://[fe80::1%25eth0]:7,h/A?client_name=%20%26%3D%25");
  options.user = "a:b@c";
  const Options again = Options::fromUri(options.toUri());
  EXPECT_EQ(again.user, options.user);
  EXPECT_EQ(again.hosts[0].name, options.hosts[0].name);
  EXPECT_EQ(again.clientName, " &=%");
}

}  // namespace
}  // namespace nox::client
