// The agent's life as the one who runs it sees it: starts that fail, signals, and commands beside
// it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "command.h"
#include "tests/agent/support/client.h"
#include "tests/agent/support/files.h"
#include "tests/agent/support/noxd_process.h"

namespace nox::agent {
namespace {

namespace fs = std::filesystem;
using test::Client;
using test::contentOfFile;
using test::Finished;
using test::kNotPrepared;
using test::NoxdProcess;
using test::Result;
using test::runNoxd;
using test::TempDirectory;
using test::writeFile;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// A start that fails before anybody could connect.
class StartTest : public testing::Test {
protected:
  StartTest() {
    test::makeDataDirectory(data);
    configure("");
  }

  void configure(const std::string& more) const {
    writeFile(data + "/noxd.toml", "server.listen = \"127.0.0.1:0\"\n" + more);
  }
  Result start() const { return runNoxd({"--data-dir", data}); }

  TempDirectory directory;
  std::string data = directory.file("data");
};

TEST_F(StartTest, WithoutADataDirectoryFails) {
  fs::remove_all(data);
  const Result result = start();
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("there is no data directory " + data));
}

TEST_F(StartTest, WithAnUnknownKeyFails) {
  configure("server.wombat = 1\n");
  const Result result = start();
  EXPECT_EQ(result.status, 78);
  EXPECT_EQ(result.err, data + "/noxd.toml:2: there is no setting \"wombat\" in [server]\n");
}

TEST_F(StartTest, WithoutItsCertificateFails) {
  configure("tls.enabled = true\ntls.certificate = \"c.pem\"\ntls.key = \"k.pem\"\n");
  const Result result = start();
  EXPECT_EQ(result.status, 78);
  EXPECT_THAT(result.err,
              AllOf(HasSubstr("noxd.toml:3: tls.certificate: " + data + "/c.pem cannot be read"),
                    HasSubstr("noxd.toml:4: tls.key: ")));
}

TEST_F(StartTest, WithACertificateThatIsNoneFails) {
  writeFile(data + "/c.pem", "no certificate");
  configure(
      "tls.enabled = true\ntls.certificate = \"c.pem\"\ntls.key = \"c.pem\"\n"
      "tls.listen = \"127.0.0.1:0\"\n");
  const Result result = start();
  EXPECT_EQ(result.status, 78);
  EXPECT_THAT(result.err, HasSubstr("c.pem cannot be used"));
}

TEST_F(StartTest, AtAnAddressOfAnotherMachineFails) {
  // Set aside for documents (RFC 5737).
  configure("tls.enabled = false\n");
  writeFile(data + "/noxd.toml", "server.listen = \"192.0.2.1:0\"\n");
  const Result result = start();
  EXPECT_EQ(result.status, 69);
  EXPECT_THAT(result.err, HasSubstr("cannot listen on 192.0.2.1:0"));
}

TEST_F(StartTest, OnADamagedAccountFailsAndChangesNothing) {
  const std::string content(20000, 'x');
  writeFile(data + "/accounts/MAIN.db", content);
  const Result result = start();
  EXPECT_EQ(result.status, 65);
  EXPECT_THAT(result.err, AllOf(HasSubstr("MAIN.db: file is not a database"),
                                HasSubstr("noxd verify says more")));
  EXPECT_EQ(contentOfFile(data + "/accounts/MAIN.db"), content);
}

TEST_F(StartTest, OnDamagedUsersFails) {
  writeFile(data + "/users.db", std::string(20000, 'x'));
  const Result result = start();
  EXPECT_EQ(result.status, 65);
  EXPECT_THAT(result.err, HasSubstr("users.db: file is not a database"));
}

TEST_F(StartTest, OnAReadOnlyDiskFails) {
  const Result result =
      runNoxd({"--data-dir", data}, {}, [&] { return test::mountReadOnly(data); });
  if (result.status == kNotPrepared) GTEST_SKIP() << "file systems cannot be mounted here";
  EXPECT_EQ(result.status, 73);
  EXPECT_THAT(result.err, HasSubstr("the data directory " + data + " cannot be written"));
}

TEST_F(StartTest, WithALogThatCannotBeWrittenFails) {
  configure("log.file = \"none/noxd.log\"\n");
  const Result result = start();
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("none/noxd.log cannot be written"));
}

TEST_F(StartTest, ThatFailsSaysSoInTheLogToo) {
  configure("log.file = \"noxd.log\"\n");
  writeFile(data + "/accounts/MAIN.db", std::string(20000, 'x'));
  EXPECT_EQ(start().status, 65);
  EXPECT_THAT(contentOfFile(data + "/noxd.log"), HasSubstr("error " + data + "/accounts/MAIN.db"));
}

/// With the account MAIN and NoxdProcess::kUser.
class ServeTest : public testing::Test {
protected:
  /// What a client hears that logs in.
  std::string logIn(const std::string& user, const std::string& password,
                    const std::string& account = {}) const {
    return Client(noxd.plainPort()).logIn(user, password, account);
  }
  Finished command(std::vector<std::string> arguments, const std::string& input = {}) const {
    arguments.insert(arguments.end(), {"--data-dir", noxd.dataDirectory()});
    return noxd.run(arguments, input);
  }

  NoxdProcess noxd;
};

TEST_F(ServeTest, TheServiceManagerHearsOfTheStartAndSigtermEndsItWell) {
  noxd.start();  // waits for READY=1
  EXPECT_EQ(noxd.stop(), 0);
  EXPECT_THAT(noxd.log(), AllOf(HasSubstr("starts; data directory " + noxd.dataDirectory()),
                                HasSubstr("SIGTERM"), HasSubstr("noxd ends")));
}

TEST_F(ServeTest, SigintEndsItWell) {
  noxd.start();
  noxd.signal(SIGINT);
  EXPECT_EQ(noxd.wait(), 0);
  EXPECT_THAT(noxd.log(), AllOf(HasSubstr("SIGINT"), HasSubstr("noxd ends")));
}

TEST_F(ServeTest, ASecondAgentIsTurnedAwayAndTheFirstGoesOn) {
  noxd.start();
  const Finished second = noxd.startToFail();
  EXPECT_EQ(second.status, 75);
  EXPECT_THAT(second.output, HasSubstr("another noxd serves " + noxd.dataDirectory()));
  EXPECT_EQ(logIn(NoxdProcess::kUser, NoxdProcess::kPassword), "OK");
}

TEST_F(ServeTest, TheDirectoryIsFreeAfterSigkill) {
  noxd.start();
  noxd.kill();
  noxd.start();
  EXPECT_EQ(logIn(NoxdProcess::kUser, NoxdProcess::kPassword), "OK");
}

TEST_F(ServeTest, APortThatIsTakenIsNamed) {
  noxd.start();
  const TempDirectory other;
  test::makeDataDirectory(other.file("data"));
  const std::string address = "127.0.0.1:" + std::to_string(noxd.plainPort());
  writeFile(other.file("data/noxd.toml"), "server.listen = \"" + address + "\"\n");
  const Result result = runNoxd({"--data-dir", other.file("data")});
  EXPECT_EQ(result.status, 69);
  EXPECT_THAT(result.err, HasSubstr("cannot listen on " + address + ": Address already in use"));
}

TEST_F(ServeTest, UsersAreChangedWhileItRuns) {
  noxd.start();
  EXPECT_EQ(logIn("ben", "two"), "28/000");
  EXPECT_EQ(command({"user", "add", "ben", "--grant", "MAIN=read"}, "two\n").status, 0);
  EXPECT_EQ(logIn("ben", "two"), "OK");
  EXPECT_EQ(command({"user", "passwd", "ben"}, "three\n").status, 0);
  EXPECT_EQ(logIn("ben", "two"), "28/000");
  EXPECT_EQ(logIn("ben", "three"), "OK");
  EXPECT_EQ(command({"user", "revoke", "ben", "MAIN"}).status, 0);
  EXPECT_EQ(logIn("ben", "three"), "28/000");
}

TEST_F(ServeTest, AccountsAreAddedWhileItRuns) {
  noxd.start();
  const std::string user = NoxdProcess::kUser;
  EXPECT_EQ(command({"account", "add", "SALES"}).status, 0);
  EXPECT_EQ(command({"user", "grant", user, "SALES", "write"}).status, 0);
  Client client(noxd.plainPort());
  EXPECT_EQ(client.logIn(user, NoxdProcess::kPassword, "SALES"), "OK");
  EXPECT_THAT(client.run("CREATE-FILE F"), HasSubstr("F"));
  EXPECT_EQ(client.write("F", "A", "alpha"), "0");
}

TEST_F(ServeTest, ABackupIsMadeAndDataAreVerifiedWhileItRuns) {
  noxd.start();
  Client client(noxd.plainPort());
  client.logIn();
  client.run("CREATE-FILE F");
  client.write("F", "A", "alpha");
  const Finished made = command({"backup", noxd.file("backup")});
  EXPECT_EQ(made.status, 0) << made.output;
  EXPECT_EQ(command({"verify"}).status, 0);
  client.write("F", "A", "changed");
  EXPECT_EQ(client.read("F", "A"), "0 'changed'");
  EXPECT_EQ(noxd.stop(), 0);

  fs::rename(noxd.dataDirectory(), noxd.file("before"));
  const Finished restored = command({"restore", noxd.file("backup")});
  EXPECT_EQ(restored.status, 0) << restored.output;
  noxd.start();
  Client again(noxd.plainPort());
  again.logIn();
  EXPECT_EQ(again.read("F", "A"), "0 'alpha'");
}

TEST_F(ServeTest, SighupReadsTheConfigurationAgain) {
  noxd.start();
  noxd.set("session.lock_wait", "1");
  noxd.set("server.listen", "\"127.0.0.1:1\"");
  noxd.reload();
  EXPECT_THAT(noxd.log(),
              AllOf(HasSubstr("the configuration was read again"),
                    HasSubstr("server.listen has changed; the new value holds after a restart")));
  EXPECT_EQ(logIn(NoxdProcess::kUser, NoxdProcess::kPassword), "OK");
}

TEST_F(ServeTest, SighupWithAMistakeKeepsTheOldConfigurationAndNamesIt) {
  noxd.set("log.access", "true").start();
  noxd.set("log.access", "false").set("server.wombat", "1");
  noxd.reload();
  EXPECT_THAT(noxd.log(), AllOf(HasSubstr("error the configuration stays as it was:"),
                                HasSubstr("there is no setting \"wombat\" in [server]")));
  {
    Client client(noxd.plainPort());
    client.logIn();
    client.common("@USER");
  }
  noxd.waitForLog("request=ReadCommon");
}

TEST_F(ServeTest, ARotatedLogIsOpenedAnew) {
  noxd.set("log.file", "\"" + noxd.file("noxd.log") + "\"").start();
  EXPECT_THAT(contentOfFile(noxd.file("noxd.log")), HasSubstr("noxd"));
  fs::rename(noxd.file("noxd.log"), noxd.file("noxd.log.1"));
  noxd.reload();
  EXPECT_THAT(contentOfFile(noxd.file("noxd.log")), HasSubstr("the configuration was read again"));
  EXPECT_THAT(contentOfFile(noxd.file("noxd.log.1")), HasSubstr("starts; data directory"));
}

TEST_F(ServeTest, EachRequestHasALineAndNoSecretIsInTheLog) {
  noxd.start();
  {
    Client client(noxd.plainPort());
    client.logIn();
    client.common("@USER");
  }
  EXPECT_EQ(logIn(NoxdProcess::kUser, "a wrong secret"), "28/000");
  EXPECT_EQ(noxd.stop(), 0);
  EXPECT_THAT(noxd.log(),
              AllOf(HasSubstr(std::string("user=") + NoxdProcess::kUser +
                              " account=MAIN request=ReadCommon in="),
                    Not(HasSubstr(NoxdProcess::kPassword)), Not(HasSubstr("wrong secret"))));
}

TEST_F(ServeTest, WhatOthersMayReadIsAWarning) {
  chmod((noxd.dataDirectory() + "/users.db").c_str(), 0644);
  noxd.start();
  EXPECT_THAT(noxd.log(), HasSubstr("warning " + noxd.dataDirectory() + "/users.db is open"));
}

}  // namespace
}  // namespace nox::agent
