// The configuration file: what it may say, and what is said about its mistakes.
#include "agent/config/configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/agent/support/files.h"
#include "tests/agent/support/temp_directory.h"

namespace nox::agent {
namespace {

using test::contentOfFile;
using test::TempDirectory;
using test::writeFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using namespace std::chrono_literals;

ConfigurationValues parse(const std::string& text) {
  return parseConfiguration(text, "/etc/noxd/noxd.toml");
}

/// "LINE: TEXT" each.
std::vector<std::string> mistakesIn(const std::string& text) {
  try {
    parse(text);
  } catch (const ConfigurationError& error) {
    std::vector<std::string> texts;
    for (const ConfigurationMistake& mistake : error.mistakes()) {
      texts.push_back(std::to_string(mistake.line) + ": " + mistake.text);
    }
    return texts;
  }
  return {};
}

TEST(Configuration, OfAnEmptyFileIsTheDefaults) {
  const ConfigurationValues values = parse("");
  EXPECT_EQ(values.dataDirectory, "/var/lib/noxd");
  EXPECT_EQ(textOf(values.listen), "127.0.0.1:7433");
  EXPECT_TRUE(values.plainListener);
  EXPECT_FALSE(values.plainLoginEverywhere);
  EXPECT_EQ(values.maxConnections, 512U);
  EXPECT_EQ(values.maxFrame, 16U * 1024 * 1024);
  EXPECT_EQ(values.defaultAccount, "MAIN");
  EXPECT_EQ(values.timezone, "UTC");
  EXPECT_TRUE(values.http);
  EXPECT_FALSE(values.httpEverywhere);
  EXPECT_EQ(values.login, 10s);
  EXPECT_EQ(values.transactionIdle, 300s);
  EXPECT_EQ(values.prompt, 300s);
  EXPECT_EQ(values.drain, 30s);
  EXPECT_FALSE(values.tls.enabled);
  EXPECT_TRUE(values.synchronousFull);
  EXPECT_EQ(values.lockWait, 5s);
  EXPECT_EQ(values.statementTimeout, 60s);
  EXPECT_EQ(values.fetchSize, 1000);
  EXPECT_EQ(values.logFile, "");
  EXPECT_TRUE(values.accessLog);
  EXPECT_EQ(values.slowRequest, 1000ms);
}

TEST(Configuration, TakesEverySetting) {
  const ConfigurationValues values = parse(R"([server]
data_directory = "/srv/nox"
listen = "0.0.0.0:1"
plain_listener = false
plain_login_everywhere = true
max_connections = 2
max_frame = 65536
default_account = "SALES"
timezone = "Europe/Berlin"
http = false
http_everywhere = true
login_timeout = 3
frame_timeout = 4
idle_timeout = 5
send_timeout = 6
drain_timeout = 7
[tls]
enabled = true
listen = "[::1]:8"
certificate = "/c.pem"
key = "/k.pem"
client_ca = "/a.pem"
require_client_certificate = true
[store]
synchronous = "normal"
[session]
lock_wait = 9
statement_timeout = 10
fetch_size = 11
transaction_idle = 12
prompt_timeout = 13
[log]
file = "/var/log/noxd.log"
level = "debug"
access = false
slow_request = 14
)");
  EXPECT_EQ(values.dataDirectory, "/srv/nox");
  EXPECT_EQ(textOf(values.listen), "0.0.0.0:1");
  EXPECT_FALSE(values.plainListener);
  EXPECT_TRUE(values.plainLoginEverywhere);
  EXPECT_EQ(values.maxConnections, 2U);
  EXPECT_EQ(values.maxFrame, 65536U);
  EXPECT_EQ(values.defaultAccount, "SALES");
  EXPECT_EQ(values.timezone, "Europe/Berlin");
  EXPECT_FALSE(values.http);
  EXPECT_TRUE(values.httpEverywhere);
  EXPECT_EQ(values.login, 3s);
  EXPECT_EQ(values.frame, 4s);
  EXPECT_EQ(values.idle, 5s);
  EXPECT_EQ(values.send, 6s);
  EXPECT_EQ(values.drain, 7s);
  EXPECT_TRUE(values.tls.enabled);
  EXPECT_EQ(values.tls.listen.host, "::1");
  EXPECT_EQ(values.tls.listen.port, 8);
  EXPECT_EQ(values.tls.certificate, "/c.pem");
  EXPECT_EQ(values.tls.key, "/k.pem");
  EXPECT_EQ(values.tls.clientCa, "/a.pem");
  EXPECT_TRUE(values.tls.requireClientCertificate);
  EXPECT_FALSE(values.synchronousFull);
  EXPECT_EQ(values.lockWait, 9s);
  EXPECT_EQ(values.statementTimeout, 10s);
  EXPECT_EQ(values.fetchSize, 11);
  EXPECT_EQ(values.transactionIdle, 12s);
  EXPECT_EQ(values.prompt, 13s);
  EXPECT_EQ(values.logFile, "/var/log/noxd.log");
  EXPECT_EQ(values.logLevel, "debug");
  EXPECT_FALSE(values.accessLog);
  EXPECT_EQ(values.slowRequest, 14ms);
}

TEST(Configuration, StartsRelativePathsAtTheFolderOfTheFile) {
  const ConfigurationValues values = parse(
      "[server]\ndata_directory = \".\"\n[tls]\nenabled = true\ncertificate = \"tls/c.pem\"\n"
      "key = \"../k.pem\"\n");
  EXPECT_EQ(values.dataDirectory, "/etc/noxd");
  EXPECT_EQ(values.tls.certificate, "/etc/noxd/tls/c.pem");
  EXPECT_EQ(values.tls.key, "/etc/k.pem");
}

TEST(Configuration, NamesAllMistakesWithTheirLines) {
  EXPECT_THAT(mistakesIn("[server]\nmax_connections = 0\n\nhttp = 1\n[log]\nlevel = \"loud\"\n"),
              ElementsAre("2: server.max_connections: it is a whole number from 1 to 100000",
                          "4: server.http: it is true or false",
                          "6: log.level: it is \"debug\", \"info\", \"warning\" or \"error\""));
}

TEST(Configuration, SaysWhichFileAndLineInItsText) {
  try {
    parse("[server]\nhttp = 1\n[log]\naccess = 2\n");
    FAIL();
  } catch (const ConfigurationError& error) {
    EXPECT_STREQ(error.what(),
                 "/etc/noxd/noxd.toml:2: server.http: it is true or false\n"
                 "/etc/noxd/noxd.toml:4: log.access: it is true or false");
  }
}

TEST(Configuration, RefusesAnUnknownKeyAndNamesTheNearest) {
  EXPECT_THAT(
      mistakesIn("[server]\nmax_conections = 5\n"),
      ElementsAre(
          "2: there is no setting \"max_conections\" in [server]; \"max_connections\" is one"));
}

TEST(Configuration, SuggestsNothingForAKeyThatIsNearNone) {
  EXPECT_THAT(mistakesIn("[server]\nwombat = 5\n"),
              ElementsAre("2: there is no setting \"wombat\" in [server]"));
}

TEST(Configuration, SaysWhereAKeyOfAnotherSectionBelongs) {
  EXPECT_THAT(mistakesIn("[server]\nlock_wait = 5\n"),
              ElementsAre("2: there is no setting \"lock_wait\" in [server]; it belongs to "
                          "[session]"));
}

TEST(Configuration, SaysWhereAKeyOutsideOfSectionsBelongs) {
  EXPECT_THAT(mistakesIn("timezone = \"UTC\"\n"),
              ElementsAre("1: \"timezone\" stands in no section; it belongs to [server]"));
}

TEST(Configuration, RefusesAnUnknownSectionAndNamesTheNearest) {
  EXPECT_THAT(mistakesIn("[sesion]\nlock_wait = 5\n"),
              ElementsAre("1: there is no section [sesion]; [session] is one"));
}

TEST(Configuration, RefusesASectionThatIsAValue) {
  EXPECT_THAT(mistakesIn("server = 5\n"), ElementsAre("1: [server] is a section, not a value"));
  EXPECT_THAT(mistakesIn("[[server]]\nhttp = true\n"), SizeIs(1));
}

TEST(Configuration, RefusesATableForAKey) {
  EXPECT_THAT(mistakesIn("[server.http]\nx = 1\n"),
              ElementsAre("1: server.http: it is true or false"));
}

TEST(Configuration, SaysInWhichLineTheFileCannotBeRead) {
  EXPECT_THAT(mistakesIn("[server]\n\nhttp = maybe\n"), ElementsAre(HasSubstr("3: ")));
}

TEST(Configuration, RefusesAKeyThatIsThereTwice) {
  EXPECT_THAT(mistakesIn("[server]\nhttp = true\nhttp = false\n"), ElementsAre(HasSubstr("3: ")));
}

struct Mistake {
  const char* text;
  const char* what;
};

class ConfigurationMistakes : public testing::TestWithParam<Mistake> {};

TEST_P(ConfigurationMistakes, AreNamed) {
  EXPECT_THAT(mistakesIn(GetParam().text), ElementsAre(HasSubstr(GetParam().what)));
}

INSTANTIATE_TEST_SUITE_P(
    Each, ConfigurationMistakes,
    testing::Values(
        Mistake{"[server]\nlisten = \"localhost\"\n", "no address with a port"},
        Mistake{"[server]\nlisten = \"[::1\"\n", "no address with a port"},
        Mistake{"[server]\nlisten = \"[::1]7433\"\n", "no address with a port"},
        Mistake{"[server]\nlisten = \"\"\n", "no address with a port"},
        Mistake{"[server]\nlisten = \"::1:7433\"\n", "brackets"},
        Mistake{"[server]\nlisten = \":7433\"\n", "is no host"},
        Mistake{"[server]\nlisten = \"a b:7433\"\n", "is no host"},
        Mistake{"[server]\nlisten = \"localhost:65536\"\n", "is no port"},
        Mistake{"[server]\nlisten = \"localhost:\"\n", "is no port"},
        Mistake{"[server]\nlisten = \"localhost:-1\"\n", "is no port"},
        Mistake{"[server]\nlisten = \"localhost:99999999999999999999\"\n", "is no port"},
        Mistake{"[server]\nlisten = 7433\n", "a text in quotes"},
        Mistake{"[server]\nmax_frame = 65535\n", "from 65536 to 1073741824"},
        Mistake{"[server]\nmax_frame = 1e6\n", "a whole number"},
        Mistake{"[server]\nmax_connections = \"5\"\n", "a whole number"},
        Mistake{"[server]\ndrain_timeout = -1\n", "from 0 to 86400"},
        Mistake{"[server]\nlogin_timeout = 0\n", "from 1 to 3600"},
        Mistake{"[server]\ntimezone = \"Mars/Base\"\n", "no time zone \"Mars/Base\""},
        Mistake{"[server]\ndefault_account = \"a b\"\n", "no name of an account"},
        Mistake{"[server]\ndata_directory = \"\"\n", "must name a folder"},
        Mistake{"[server]\ndata_directory = \"a\\u0000b\"\n", "control character"},
        Mistake{"[server]\nplain_listener = false\n", "nobody can connect"},
        Mistake{"[store]\nsynchronous = true\n", "a text in quotes"},
        Mistake{"[store]\nsynchronous = \"off\"\n", "\"full\" or \"normal\""},
        Mistake{"[session]\nfetch_size = 0\n", "from 1 to 100000"},
        Mistake{"[tls]\nenabled = true\nkey = \"k\"\n", "tls.certificate must name"},
        Mistake{"[tls]\nenabled = true\ncertificate = \"c\"\n", "tls.key must name"},
        Mistake{"[tls]\nrequire_client_certificate = true\n", "tls.client_ca must name"},
        Mistake{"[tls]\nenabled = true\nkey = \"k\"\ncertificate = \"c\"\nlisten = "
                "\"127.0.0.1:7433\"\n",
                "server.listen is the same address"}));

TEST(Configuration, ShowsNothingThatATerminalWouldObeyAndNothingLong) {
  const std::vector<std::string> mistakes =
      mistakesIn("\"a\\u001B[2J\" = 1\n\"" + std::string(1000, 'x') + "\" = 1\n");
  ASSERT_THAT(mistakes, SizeIs(2));
  EXPECT_THAT(mistakes[0], HasSubstr("\"a?[2J\""));
  EXPECT_LT(mistakes[1].size(), 200U);
}

TEST(Configuration, ThatIsNoTomlIsShownWithoutControlCharactersToo) {
  const std::vector<std::string> mistakes = mistakesIn("[server]\nl\x1A = 1\n");
  ASSERT_THAT(mistakes, SizeIs(1));
  EXPECT_EQ(mistakes[0].find('\x1A'), std::string::npos);
}

TEST(ConfigurationFile, ThatIsNotThereIsAMistake) {
  const TempDirectory directory;
  try {
    readConfiguration(directory.file("none.toml"));
    FAIL();
  } catch (const ConfigurationError& error) {
    EXPECT_THAT(error.what(), HasSubstr("none.toml: cannot be read: No such file"));
  }
}

TEST(ConfigurationFile, ThatIsAFolderIsAMistake) {
  const TempDirectory directory;
  EXPECT_THROW(readConfiguration(directory.path()), ConfigurationError);
}

TEST(ConfigurationFile, ThatNamesAMissingCertificateIsAMistakeInThatLine) {
  const TempDirectory directory;
  const std::string file = directory.file("noxd.toml");
  writeFile(directory.file("k.pem"), "a key");
  writeFile(file, "[tls]\nenabled = true\ncertificate = \"c.pem\"\nkey = \"k.pem\"\n");
  try {
    readConfiguration(file);
    FAIL();
  } catch (const ConfigurationError& error) {
    ASSERT_THAT(error.mistakes(), SizeIs(1));
    EXPECT_EQ(error.mistakes()[0].line, 3U);
    EXPECT_THAT(error.mistakes()[0].text, HasSubstr("c.pem cannot be read: No such file"));
  }
}

TEST(ConfigurationFile, MayNameMissingFilesWhereTheyAreNotUsed) {
  const TempDirectory directory;
  const std::string file = directory.file("noxd.toml");
  writeFile(file, "[tls]\nenabled = false\ncertificate = \"c.pem\"\nkey = \"k.pem\"\n");
  EXPECT_NO_THROW(readConfiguration(file));
  writeFile(file, "[tls]\nenabled = true\ncertificate = \"c.pem\"\nkey = \"k.pem\"\n");
  EXPECT_NO_THROW(readConfiguration(file, false));
}

TEST(ConfigurationText, OfTheDefaultsSaysNothingThatIsNotAComment) {
  const std::string text = configurationText(ConfigurationValues{});
  const ConfigurationValues values = parse(text);
  EXPECT_EQ(configurationText(values), text);
  EXPECT_THAT(text, HasSubstr("\n[server]\n"));
  EXPECT_THAT(text, HasSubstr("\n#max_connections = 512\n"));
}

TEST(ConfigurationText, IsReadAsWhatItWasMadeOf) {
  ConfigurationValues values;
  values.dataDirectory = "/srv/\"nox\" \\ 1";
  values.listen = {"::1", 0};
  values.tls.enabled = true;
  values.tls.certificate = "/c";
  values.tls.key = "/k";
  values.synchronousFull = false;
  values.lockWait = 17s;
  values.slowRequest = 18ms;
  const ConfigurationValues read = parse(configurationText(values));
  EXPECT_EQ(read.dataDirectory, values.dataDirectory);
  EXPECT_EQ(textOf(read.listen), "[::1]:0");
  EXPECT_TRUE(read.tls.enabled);
  EXPECT_EQ(read.tls.key, "/k");
  EXPECT_FALSE(read.synchronousFull);
  EXPECT_EQ(read.lockWait, 17s);
  EXPECT_EQ(read.slowRequest, 18ms);
}

TEST(ConfigurationText, MayTurnEveryDefaultOn) {
  // Each line that is commented out is a setting that may be taken as it stands.
  std::string text = configurationText(ConfigurationValues{});
  for (std::size_t at = text.find("\n#"); at != std::string::npos; at = text.find("\n#", at + 1)) {
    if (text[at + 2] != ' ') text.erase(at + 1, 1);
  }
  EXPECT_THAT(mistakesIn(text), IsEmpty());
}

TEST(ConfigurationText, OfTheDefaultsIsTheExampleThatIsInstalled) {
  EXPECT_EQ(contentOfFile(NOXD_EXAMPLE_CONFIGURATION), configurationText(ConfigurationValues{}));
}

TEST(ConfigurationKeys, AreAllInTheManual) {
  const std::string manual = contentOfFile(NOXD_MANUAL);
  for (const ConfigurationKey& key : configurationKeys()) {
    EXPECT_THAT(manual, HasSubstr("`" + key.name + "`"));
  }
}

TEST(ConfigurationReload, KeepsAndNamesWhatNeedsARestart) {
  const ConfigurationValues running;
  ConfigurationValues next;
  next.listen.port = 1;
  next.synchronousFull = false;
  next.maxConnections = 7;
  EXPECT_THAT(keepWhatNeedsRestart(running, next),
              ElementsAre("server.listen", "store.synchronous"));
  EXPECT_EQ(next.listen.port, 7433);
  EXPECT_TRUE(next.synchronousFull);
  EXPECT_EQ(next.maxConnections, 7U);
}

TEST(ConfigurationReload, OfTheSameValuesNeedsNothing) {
  const ConfigurationValues running;
  ConfigurationValues next;
  EXPECT_THAT(keepWhatNeedsRestart(running, next), IsEmpty());
}

TEST(ConfigurationReload, LeavesTheOldValuesToThoseWhoHoldThem) {
  Configuration configuration{ConfigurationValues{}};
  const auto held = configuration.values();
  ConfigurationValues next;
  next.fetchSize = 5;
  configuration.replace(next);
  EXPECT_EQ(held->fetchSize, 1000);
  EXPECT_EQ(configuration.values()->fetchSize, 5);
}

TEST(ConfigurationThreads, ReadOneStateWhileItIsReplaced) {
  ConfigurationValues first;
  first.fetchSize = 1;
  first.defaultAccount = "A1";
  ConfigurationValues second;
  second.fetchSize = 2;
  second.defaultAccount = "A2";
  Configuration configuration(first);
  std::vector<std::thread> readers;
  for (int i = 0; i < 3; ++i) {
    readers.emplace_back([&] {
      for (int round = 0; round < 2000; ++round) {
        const auto values = configuration.values();
        ASSERT_EQ(values->defaultAccount, "A" + std::to_string(values->fetchSize));
      }
    });
  }
  for (int round = 0; round < 500; ++round) {
    configuration.replace(round % 2 == 0 ? second : first);
  }
  for (std::thread& reader : readers) reader.join();
}

}  // namespace
}  // namespace nox::agent
