// The subcommands as a person uses them: what they say, and their exit statuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "agent/users/users.h"
#include "command.h"
#include "tests/agent/support/files.h"

namespace nox::agent {
namespace {

namespace fs = std::filesystem;
using test::contentOfFile;
using test::kNotPrepared;
using test::makeDataDirectory;
using test::Result;
using test::runNoxd;
using test::TempDirectory;
using test::writeFile;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

/// Without a data directory at first.
class InitTest : public testing::Test {
protected:
  Result init(std::vector<std::string> more = {}, const std::string& password = "open sesame\n") {
    more.insert(more.begin(), {"init", "--data-dir", data});
    return runNoxd(more, password);
  }

  TempDirectory directory;
  std::string data = directory.file("data");
};

TEST_F(InitTest, MakesWhatCanBeServed) {
  const Result result = init();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, AllOf(HasSubstr("data directory  " + data + "\n"),
                                HasSubstr("account         MAIN\n"),
                                HasSubstr("noxd --config " + data + "/noxd.toml")));
  const Users users(data + "/users.db");
  EXPECT_TRUE(users.verify("admin", "open sesame"));
  EXPECT_EQ(users.right("admin", "MAIN"), Right::Admin);
  EXPECT_EQ(runNoxd({"--check-config", "--data-dir", data}).status, 0);
  EXPECT_EQ(runNoxd({"verify", "--data-dir", data}).out, data + " is sound\n");
}

TEST_F(InitTest, IsForItsOwnerAlone) {
  init({"--self-signed"});
  for (const auto& entry : fs::recursive_directory_iterator(data)) {
    EXPECT_EQ(entry.status().permissions() & (fs::perms::group_all | fs::perms::others_all),
              fs::perms::none)
        << entry.path();
  }
}

TEST_F(InitTest, TakesNamesOfOnesOwn) {
  EXPECT_EQ(init({"--account", "SALES", "--user", "ann"}).status, 0);
  EXPECT_EQ(Users(data + "/users.db").right("ann", "SALES"), Right::Admin);
  EXPECT_THAT(contentOfFile(data + "/noxd.toml"), HasSubstr("\ndefault_account = \"SALES\"\n"));
}

TEST_F(InitTest, RefusesNamesThatAreNone) {
  EXPECT_EQ(init({"--account", "a b"}).status, 2);
  EXPECT_EQ(init({"--user", "../ann"}).status, 2);
  EXPECT_FALSE(fs::exists(data));
}

TEST_F(InitTest, MakesACertificateAndTurnsTlsOn) {
  const Result result = init({"--self-signed"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("signed by itself"));
  EXPECT_THAT(
      contentOfFile(data + "/noxd.toml"),
      AllOf(HasSubstr("\nenabled = true\n"), HasSubstr("\ncertificate = \"tls/certificate.pem\"\n"),
            HasSubstr("\nkey = \"tls/key.pem\"\n")));
  // Reads both as serving would.
  const Result checked = runNoxd({"--check-config", "--data-dir", data});
  EXPECT_EQ(checked.status, 0) << checked.err;
}

TEST_F(InitTest, MayMoveWithItsConfiguration) {
  init({"--self-signed"});
  fs::rename(data, directory.file("moved"));
  EXPECT_EQ(runNoxd({"--check-config", "--data-dir", directory.file("moved")}).status, 0);
  EXPECT_EQ(runNoxd({"user", "list", "--config", directory.file("moved/noxd.toml")}).status, 0);
}

TEST_F(InitTest, WritesTheConfigurationWhereItIsTold) {
  const std::string configuration = directory.file("here.toml");
  EXPECT_EQ(init({"--config", configuration}).status, 0);
  EXPECT_FALSE(fs::exists(data + "/noxd.toml"));
  EXPECT_THAT(contentOfFile(configuration), HasSubstr("data_directory = \"" + data + "\""));
}

TEST_F(InitTest, NeverTouchesWhatIsThere) {
  init();
  const std::string users = contentOfFile(data + "/users.db");
  EXPECT_EQ(init().status, 1);
  EXPECT_EQ(contentOfFile(data + "/users.db"), users);

  fs::remove(data + "/noxd.toml");
  const Result result = init();
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("is not empty; nothing was changed"));
  EXPECT_EQ(contentOfFile(data + "/users.db"), users);
}

TEST_F(InitTest, KeepsAConfigurationThatIsThere) {
  const std::string configuration = directory.file("here.toml");
  writeFile(configuration, "mine");
  EXPECT_EQ(init({"--config", configuration}).status, 1);
  EXPECT_EQ(contentOfFile(configuration), "mine");
  EXPECT_FALSE(fs::exists(data));
}

TEST_F(InitTest, LeavesNothingWhenItFails) {
  EXPECT_EQ(init({"--config", directory.file("none/here.toml")}).status, 1);
  EXPECT_FALSE(fs::exists(data));
  EXPECT_EQ(init({}, "").status, 1);
  EXPECT_FALSE(fs::exists(data));
}

TEST_F(InitTest, OnAFullDiskSaysSoAndLeavesNothing) {
  fs::create_directory(directory.file("disk"));
  const Result result = runNoxd({"init", "--data-dir", directory.file("disk/data")}, "one\n", [&] {
    return test::mountSmallDisk(directory.file("disk"), "24k");
  });
  if (result.status == kNotPrepared) GTEST_SKIP() << "file systems cannot be mounted here";
  EXPECT_EQ(result.status, 74);
  EXPECT_EQ(result.err, "noxd: account MAIN cannot be made: there is no room on the disk\n");
}

TEST_F(InitTest, OnAReadOnlyDiskSaysSo) {
  const Result result = runNoxd({"init", "--data-dir", data}, "one\n",
                                [&] { return test::mountReadOnly(directory.path()); });
  if (result.status == kNotPrepared) GTEST_SKIP() << "file systems cannot be mounted here";
  EXPECT_EQ(result.status, 73);
  EXPECT_EQ(result.err, "noxd: " + data + " cannot be made: Read-only file system\n");
}

/// With the account MAIN and the user ann.
class CommandTest : public testing::Test {
protected:
  CommandTest() { makeDataDirectory(data); }

  Result run(std::vector<std::string> arguments, const std::string& input = {}) const {
    arguments.insert(arguments.end(), {"--data-dir", data});
    return runNoxd(arguments, input);
  }
  /// That it fails with this status and this one line.
  void expectFailure(const std::vector<std::string>& arguments, int status,
                     const std::string& message, const std::string& input = {}) const {
    const Result result = run(arguments, input);
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.err, "noxd: " + message + "\n");
    EXPECT_EQ(result.out, "");
  }

  TempDirectory directory;
  std::string data = directory.file("data");
};

TEST_F(CommandTest, AUserIsAddedWithRights) {
  run({"account", "add", "SALES"});
  const Result result =
      run({"user", "add", "ben", "--grant", "MAIN=write", "--grant", "SALES=read"}, "two\n");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "user ben added\n");
  EXPECT_EQ(run({"user", "list"}).out,
            "user\taccount\tright\nann\tMAIN\tadmin\nben\tMAIN\twrite\nben\tSALES\tread\n");
  EXPECT_TRUE(Users(data + "/users.db").verify("ben", "two"));
}

TEST_F(CommandTest, AUserMayHaveNoRightAtFirst) {
  run({"user", "add", "ben"}, "two\n");
  EXPECT_THAT(run({"user", "list"}).out, HasSubstr("\nben\t-\t-\n"));
}

TEST_F(CommandTest, AUserIsThereOnce) {
  expectFailure({"user", "add", "ann"}, 1, "there is a user \"ann\" already", "two\n");
}

TEST_F(CommandTest, AUserIsNotAddedWithARightInNothing) {
  expectFailure({"user", "add", "ben", "--grant", "NONE=read"}, 1,
                "there is no account \"NONE\"; nothing was changed", "two\n");
  expectFailure({"user", "add", "ben", "--grant", "MAIN"}, 2,
                "\"MAIN\" is no grant, like MAIN=write", "two\n");
  expectFailure({"user", "add", "ben", "--grant", "MAIN=all"}, 2,
                "\"all\" is no right: read, write and admin are", "two\n");
  EXPECT_THAT(run({"user", "list"}).out, Not(HasSubstr("ben")));
}

TEST_F(CommandTest, RightsAreGrantedAndRevoked) {
  EXPECT_EQ(run({"user", "grant", "ann", "MAIN", "read"}).out, "ann has the right read in MAIN\n");
  EXPECT_EQ(run({"user", "list"}).out, "user\taccount\tright\nann\tMAIN\tread\n");
  EXPECT_EQ(run({"user", "revoke", "ann", "MAIN"}).out, "ann has no right in MAIN any more\n");
  EXPECT_EQ(run({"user", "list"}).out, "user\taccount\tright\nann\t-\t-\n");
}

TEST_F(CommandTest, RightsOfNobodyAndInNothingAreRefused) {
  expectFailure({"user", "grant", "ben", "MAIN", "read"}, 1, "there is no user \"ben\"");
  expectFailure({"user", "grant", "ann", "../MAIN", "read"}, 1,
                "there is no account \"../MAIN\"; nothing was changed");
  expectFailure({"user", "grant", "ann", "MAIN", "write,admin"}, 2,
                "\"write,admin\" is no right: read, write and admin are");
  expectFailure({"user", "revoke", "ann", "SALES"}, 1,
                "nothing is granted to \"ann\" in \"SALES\"");
}

TEST_F(CommandTest, AUserIsRemoved) {
  EXPECT_EQ(run({"user", "remove", "ann"}).out, "user ann removed\n");
  expectFailure({"user", "remove", "ann"}, 1, "there is no user \"ann\"");
  expectFailure({"user", "passwd", "ann"}, 1, "there is no user \"ann\"", "two\n");
}

TEST_F(CommandTest, AccountsAreAddedAndListed) {
  EXPECT_EQ(run({"account", "add", "SALES"}).out, "account SALES added\n");
  EXPECT_THAT(run({"account", "list"}).out,
              MatchesRegex("account\tbytes\nMAIN\t[1-9][0-9]*\nSALES\t[1-9][0-9]*\n"));
  expectFailure({"account", "add", "SALES"}, 1, "there is an account \"SALES\" already");
  expectFailure({"account", "add", "a/b"}, 2, "\"a/b\" is no name of an account");
}

TEST_F(CommandTest, ABackupIsMadeAndRestored) {
  const std::string backup = directory.file("backup");
  const Result made = run({"backup", backup});
  EXPECT_EQ(made.status, 0) << made.err;
  EXPECT_THAT(made.out, MatchesRegex("accounts/MAIN.db\t[0-9]+\nusers.db\t[0-9]+\nbacked up into " +
                                     backup + "\n"));
  const std::string restored = directory.file("restored");
  const Result result = runNoxd({"restore", backup, "--data-dir", restored});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("restored into " + restored));
  EXPECT_EQ(runNoxd({"verify", "--data-dir", restored}).status, 0);
  EXPECT_EQ(runNoxd({"restore", backup, "--data-dir", restored}).status, 1);
}

TEST_F(CommandTest, ADamagedBackupHasAStatusOfItsOwn) {
  const std::string backup = directory.file("backup");
  run({"backup", backup});
  writeFile(backup + "/users.db", "x");
  EXPECT_EQ(runNoxd({"restore", backup, "--data-dir", directory.file("restored")}).status, 65);
}

TEST_F(CommandTest, ABackupOnAFullDiskSaysSo) {
  fs::create_directory(directory.file("disk"));
  const Result result =
      runNoxd({"backup", directory.file("disk/backup"), "--data-dir", data}, {},
              [&] { return test::mountSmallDisk(directory.file("disk"), "24k"); });
  if (result.status == kNotPrepared) GTEST_SKIP() << "file systems cannot be mounted here";
  EXPECT_EQ(result.status, 74) << result.err;
}

TEST_F(CommandTest, WhatIsWrongIsPrintedALineEach) {
  chmod((data + "/users.db").c_str(), 0644);
  const Result result = run({"verify"});
  EXPECT_EQ(result.status, 65);
  EXPECT_THAT(result.out, HasSubstr("users.db is open to others than its owner"));
  EXPECT_THAT(result.err, HasSubstr("is not as it should be; see above"));
}

TEST_F(CommandTest, ADirectoryThatCannotBeWrittenHasAStatusOfItsOwn) {
  const Result result = runNoxd({"user", "remove", "ann", "--data-dir", data}, {},
                                [&] { return test::mountReadOnly(data); });
  if (result.status == kNotPrepared) GTEST_SKIP() << "file systems cannot be mounted here";
  EXPECT_EQ(result.status, 73);
  EXPECT_THAT(result.err, HasSubstr("cannot be written: Read-only file system"));
}

TEST_F(CommandTest, DamagedUsersHaveAStatusOfTheirOwn) {
  writeFile(data + "/users.db", std::string(20000, 'x'));
  expectFailure({"user", "list"}, 65, data + "/users.db: file is not a database");
}

TEST_F(CommandTest, ADirectoryThatIsNotThereIsNamed) {
  const Result result = runNoxd({"user", "list", "--data-dir", directory.file("none")});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "noxd: there is no data directory " + directory.file("none") +
                            "; noxd init makes one\n");
}

TEST(CommandLine, ThatCannotBeUnderstoodHasAStatusOfItsOwn) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"--wombat"},
                                             {"wombat"},
                                             {"user"},
                                             {"user", "wombat"},
                                             {"user", "add"},
                                             {"backup"},
                                             {"account"},
                                             {"user", "grant", "ann", "MAIN"},
                                             {"init", "more"},
                                             {"--config"}}) {
    const Result result = runNoxd(arguments);
    EXPECT_EQ(result.status, 2) << arguments.front();
    EXPECT_THAT(result.err, AllOf(StartsWith("noxd: "), HasSubstr("noxd --help")));
    EXPECT_EQ(result.out, "");
  }
}

TEST(CommandLine, TellsItsVersion) {
  const Result result = runNoxd({"--version"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, MatchesRegex("noxd [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(CommandLine, HelpsOnStandardOutput) {
  const Result result = runNoxd({"--help"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("Usage: noxd"));
  EXPECT_EQ(result.err, "");
}

TEST(CheckConfig, NamesEveryMistakeWithFileAndLine) {
  const TempDirectory directory;
  const std::string file = directory.file("noxd.toml");
  writeFile(file, "[server]\nmax_conections = 3\n[log]\nlevel = \"loud\"\n");
  const Result result = runNoxd({"--check-config", "--config", file});
  EXPECT_EQ(result.status, 78);
  EXPECT_EQ(result.err, file +
                            ":2: there is no setting \"max_conections\" in [server]; "
                            "\"max_connections\" is one\n" +
                            file +
                            ":4: log.level: it is \"debug\", \"info\", \"warning\" or \"error\"\n");
}

TEST(CheckConfig, OfASoundFileSaysSo) {
  const TempDirectory directory;
  const std::string file = directory.file("noxd.toml");
  writeFile(file, "[server]\nmax_connections = 3\n");
  const Result result = runNoxd({"--check-config", "--config", file});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, file + " is sound\n");
}

TEST(CheckConfig, NamesACertificateThatIsNone) {
  const TempDirectory directory;
  const std::string file = directory.file("noxd.toml");
  writeFile(directory.file("c.pem"), "no certificate");
  writeFile(file, "[tls]\nenabled = true\ncertificate = \"c.pem\"\nkey = \"c.pem\"\n");
  const Result result = runNoxd({"--check-config", "--config", file});
  EXPECT_EQ(result.status, 78);
  EXPECT_THAT(result.err, HasSubstr("c.pem cannot be used"));
}

TEST(CheckConfig, OfAFileThatIsNotThereFails) {
  const Result result = runNoxd({"--check-config", "--config", "/none/noxd.toml"});
  EXPECT_EQ(result.status, 78);
  EXPECT_EQ(result.err, "/none/noxd.toml: cannot be read: No such file or directory\n");
}

}  // namespace
}  // namespace nox::agent
