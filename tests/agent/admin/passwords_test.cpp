// Where new passwords come from.
#include "agent/admin/passwords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "agent/admin/exit_status.h"
#include "agent/users/users.h"
#include "command.h"
#include "tests/agent/support/files.h"

namespace nox::agent {
namespace {

using test::makeDataDirectory;
using test::Result;
using test::runNoxd;
using test::runNoxdOnTerminal;
using test::TempDirectory;
using test::writeFile;
using testing::HasSubstr;
using testing::Not;

class PasswordFileTest : public testing::Test {
protected:
  std::string read(const std::string& content, mode_t mode = 0600) const {
    writeFile(file, content);
    chmod(file.c_str(), mode);
    return std::string(readNewPassword(file, "ann").view());
  }

  TempDirectory directory;
  std::string file = directory.file("password");
};

TEST_F(PasswordFileTest, TheFirstLineCounts) {
  EXPECT_EQ(read("open sesame\nsecond\n"), "open sesame");
  EXPECT_EQ(read("without an end"), "without an end");
  EXPECT_EQ(read("of other systems\r\n"), "of other systems");
  EXPECT_EQ(read(" blanks are part of it \n"), " blanks are part of it ");
}

TEST_F(PasswordFileTest, MustBeForItsOwnerAlone) {
  EXPECT_EQ(read("one", 0400), "one");
  for (const mode_t mode : {0640, 0604, 0620, 0601, 0644, 0666}) {
    EXPECT_THROW(read("one", mode), AdminError) << mode;
  }
}

TEST_F(PasswordFileTest, MustHoldOne) {
  EXPECT_THROW(read(""), AdminError);
  EXPECT_THROW(read("\nsecond\n"), AdminError);
  EXPECT_THROW(readNewPassword(directory.file("none"), "ann"), AdminError);
  EXPECT_THROW(readNewPassword(directory.path(), "ann"), AdminError);
}

TEST_F(PasswordFileTest, HasALimit) {
  EXPECT_EQ(read(std::string(kLongestPassword, 'x')), std::string(kLongestPassword, 'x'));
  EXPECT_THROW(read(std::string(kLongestPassword + 1, 'x')), AdminError);
}

class PasswordPromptTest : public testing::Test {
protected:
  PasswordPromptTest() { makeDataDirectory(data); }

  bool has(const std::string& password) const {
    return Users(data + "/users.db").verify("ann", password);
  }

  TempDirectory directory;
  std::string data = directory.file("data");
};

TEST_F(PasswordPromptTest, AsksTwiceAndShowsNothing) {
  const Result result = runNoxdOnTerminal(
      {"user", "passwd", "ann", "--data-dir", data},
      {{"New password of ann: ", "open sesame\n"}, {"The same again: ", "open sesame\n"}});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("password of ann changed"));
  EXPECT_THAT(result.out, Not(HasSubstr("open")));
  EXPECT_TRUE(has("open sesame"));
}

TEST_F(PasswordPromptTest, TwoThatDifferChangeNothing) {
  const Result result = runNoxdOnTerminal(
      {"user", "passwd", "ann", "--data-dir", data},
      {{"New password of ann: ", "open sesame\n"}, {"The same again: ", "open sesam\n"}});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("the two are not the same; nothing was changed"));
  EXPECT_TRUE(has("one"));
}

TEST_F(PasswordPromptTest, CtrlCGivesUp) {
  const Result result = runNoxdOnTerminal({"user", "passwd", "ann", "--data-dir", data},
                                          {{"New password of ann: ", "open\x03\n"}});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("given up; nothing was changed"));
  EXPECT_TRUE(has("one"));
}

TEST_F(PasswordPromptTest, WithoutATerminalTheFirstLineOfStandardInputCounts) {
  const Result result =
      runNoxd({"user", "passwd", "ann", "--data-dir", data}, "open sesame\nmore\n");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_TRUE(has("open sesame"));
}

TEST_F(PasswordPromptTest, AnEmptyInputChangesNothing) {
  const Result result = runNoxd({"user", "passwd", "ann", "--data-dir", data});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "noxd: the password is empty; nothing was changed\n");
  EXPECT_TRUE(has("one"));
}

TEST_F(PasswordPromptTest, NoPasswordIsTakenFromTheCommandLine) {
  for (const char* option : {"--password=x", "--password-file=x=y", "-p"}) {
    EXPECT_NE(runNoxd({"user", "passwd", "ann", "--data-dir", data, option}, "new\n").status, 0);
  }
  EXPECT_EQ(runNoxd({"user", "passwd", "ann", "secret", "--data-dir", data}).status, 2);
  EXPECT_TRUE(has("one"));
}

}  // namespace
}  // namespace nox::agent
