// The data directory: who may use it, and that one agent serves it at a time.
#include "agent/admin/data_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "agent/admin/exit_status.h"
#include "command.h"
#include "tests/agent/support/files.h"

namespace nox::agent {
namespace {

using test::TempDirectory;
using test::writeFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

template <class Action>
ExitStatus statusOfFailure(Action&& action) {
  try {
    action();
  } catch (const AdminError& error) {
    return error.status();
  }
  return ExitStatus::Ok;
}

class DataDirectoryTest : public testing::Test {
protected:
  mode_t mode() const {
    struct stat status {};
    EXPECT_EQ(stat(directory.path().c_str(), &status), 0);
    return status.st_mode & 0777U;
  }

  TempDirectory temporary;
  DataDirectory directory{temporary.file("data")};
};

TEST_F(DataDirectoryTest, IsMadeForItsOwnerAlone) {
  EXPECT_TRUE(directory.makeEmpty());
  EXPECT_EQ(mode(), 0700U);
}

TEST_F(DataDirectoryTest, AnEmptyFolderIsTakenAndClosedToOthers) {
  std::filesystem::create_directory(directory.path());
  chmod(directory.path().c_str(), 0755);
  EXPECT_FALSE(directory.makeEmpty());
  EXPECT_EQ(mode(), 0700U);
}

TEST_F(DataDirectoryTest, WhatAnInterruptedStartLeavesIsAsGoodAsEmpty) {
  std::filesystem::create_directory(directory.path());
  writeFile(directory.lockFile(), "");
  EXPECT_FALSE(directory.makeEmpty());
}

TEST_F(DataDirectoryTest, AFolderWithSomethingInItIsLeftAlone) {
  std::filesystem::create_directory(directory.path());
  chmod(directory.path().c_str(), 0755);
  writeFile(directory.path() + "/letter", "");
  EXPECT_THROW(directory.makeEmpty(), AdminError);
  EXPECT_EQ(mode(), 0755U);
}

TEST_F(DataDirectoryTest, AFileIsNoFolder) {
  writeFile(directory.path(), "");
  EXPECT_THROW(directory.makeEmpty(), AdminError);
}

TEST_F(DataDirectoryTest, ThatIsNotThereIsNotServed) {
  try {
    directory.require();
    FAIL();
  } catch (const AdminError& error) {
    EXPECT_THAT(error.what(), HasSubstr("noxd init makes one"));
  }
}

TEST_F(DataDirectoryTest, WithoutUsersIsNotServed) {
  directory.makeEmpty();
  try {
    directory.require();
    FAIL();
  } catch (const AdminError& error) {
    EXPECT_THAT(error.what(), HasSubstr("holds no users.db"));
  }
}

TEST_F(DataDirectoryTest, ThatCannotBeWrittenIsNotServed) {
  if (geteuid() == 0) GTEST_SKIP() << "root may write everywhere";
  test::makeDataDirectory(directory.path());
  chmod(directory.path().c_str(), 0500);
  EXPECT_EQ(statusOfFailure([&] { directory.require(); }), ExitStatus::CannotWrite);
  chmod(directory.path().c_str(), 0700);
}

TEST_F(DataDirectoryTest, OfAnotherUserIsNotUsedEvenByRoot) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give a folder away";
  test::makeDataDirectory(directory.path());
  ASSERT_EQ(chown(directory.path().c_str(), 12345, 12345), 0);
  try {
    directory.require();
    FAIL();
  } catch (const AdminError& error) {
    EXPECT_EQ(error.status(), ExitStatus::CannotWrite);
    EXPECT_THAT(error.what(), HasSubstr("belongs to user 12345; run noxd as that user"));
  }
}

TEST_F(DataDirectoryTest, AsItIsMadeHasNoMistakesInItsPermissions) {
  test::makeDataDirectory(directory.path());
  EXPECT_NO_THROW(directory.require());
  EXPECT_THAT(directory.permissionMistakes(), IsEmpty());
}

TEST_F(DataDirectoryTest, WhatOthersMayReadIsNamed) {
  test::makeDataDirectory(directory.path());
  chmod(directory.path().c_str(), 0750);
  chmod(directory.users().c_str(), 0604);
  chmod(directory.account("MAIN").c_str(), 0620);
  EXPECT_THAT(directory.permissionMistakes(),
              ElementsAre(HasSubstr(directory.path() + " is open"), HasSubstr("users.db is open"),
                          HasSubstr("MAIN.db is open")));
}

TEST_F(DataDirectoryTest, IsServedByOneAgent) {
  directory.makeEmpty();
  const DirectoryLock lock(directory);
  EXPECT_EQ(statusOfFailure([&] { const DirectoryLock second(directory); }), ExitStatus::InUse);
}

TEST_F(DataDirectoryTest, IsFreeWhenItsAgentHasEnded) {
  directory.makeEmpty();
  { const DirectoryLock lock(directory); }
  EXPECT_NO_THROW(DirectoryLock{directory});
}

}  // namespace
}  // namespace nox::agent
