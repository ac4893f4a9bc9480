// Files that are made whole and durable, or not at all.
#include "agent/admin/files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "agent/admin/exit_status.h"
#include "tests/agent/support/files.h"
#include "tests/agent/support/temp_directory.h"

namespace nox::agent {
namespace {

using test::contentOfFile;
using test::TempDirectory;
using test::writeFile;
using testing::HasSubstr;

// "abc", from FIPS 180-4.
constexpr const char* kSumOfAbc =
    "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

class FilesTest : public testing::Test {
protected:
  std::size_t entries() const {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator(directory.path())) {
      ++count;
    }
    return count;
  }

  static mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return status.st_mode & 0777U;
  }

  TempDirectory directory;
};

TEST_F(FilesTest, ANewFileHoldsItsBytesForItsOwnerAlone) {
  const std::string file = directory.file("new");
  writeNewFile(file, "bytes");
  EXPECT_EQ(contentOfFile(file), "bytes");
  EXPECT_EQ(modeOf(file), 0600U);
  EXPECT_EQ(entries(), 1U);
}

TEST_F(FilesTest, ANewFileNeverReplacesAnother) {
  const std::string file = directory.file("new");
  writeFile(file, "old");
  EXPECT_THROW(writeNewFile(file, "bytes"), AdminError);
  EXPECT_EQ(contentOfFile(file), "old");
  EXPECT_EQ(entries(), 1U);
}

TEST_F(FilesTest, AFileThatCannotBeMadeIsNamedWithTheReason) {
  try {
    writeNewFile(directory.file("none/new"), "bytes");
    FAIL();
  } catch (const AdminError& error) {
    EXPECT_THAT(error.what(), HasSubstr("none/new cannot be made: No such file"));
    EXPECT_EQ(error.status(), ExitStatus::Failed);
  }
}

TEST_F(FilesTest, ACopyHasTheBytesAndSaysTheirSum) {
  writeFile(directory.file("a"), "abc");
  EXPECT_EQ(copyToNewFile(directory.file("a"), directory.file("b")), kSumOfAbc);
  EXPECT_EQ(contentOfFile(directory.file("b")), "abc");
}

TEST_F(FilesTest, ACopyMayBeLargerThanABlock) {
  const std::string content(1'000'003, 'x');
  writeFile(directory.file("a"), content);
  EXPECT_EQ(copyToNewFile(directory.file("a"), directory.file("b")),
            sha256OfFile(directory.file("a")));
  EXPECT_EQ(contentOfFile(directory.file("b")), content);
}

TEST_F(FilesTest, ACopyOfNothingLeavesNothing) {
  EXPECT_THROW(copyToNewFile(directory.file("a"), directory.file("b")), AdminError);
  EXPECT_EQ(entries(), 0U);
}

TEST_F(FilesTest, SumsAreThoseOfTheStandard) {
  writeFile(directory.file("a"), "abc");
  EXPECT_EQ(sha256OfFile(directory.file("a")), kSumOfAbc);
  writeFile(directory.file("a"), "");
  EXPECT_EQ(sha256OfFile(directory.file("a")),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST_F(FilesTest, ASmallFileIsReadUpToItsLimit) {
  writeFile(directory.file("a"), "abc");
  EXPECT_EQ(readSmallFile(directory.file("a"), 3), "abc");
  EXPECT_THROW(readSmallFile(directory.file("a"), 2), AdminError);
  EXPECT_EQ(sizeOfFile(directory.file("a")), 3U);
}

TEST_F(FilesTest, AFolderIsForItsOwnerAlone) {
  makeFolder(directory.file("folder"));
  EXPECT_EQ(modeOf(directory.file("folder")), 0700U);
  EXPECT_THROW(makeFolder(directory.file("folder")), AdminError);
}

TEST(ExitStatuses, FollowFromWhatTheSystemSays) {
  EXPECT_EQ(statusOfErrno(ENOSPC), ExitStatus::DiskFull);
  EXPECT_EQ(statusOfErrno(EDQUOT), ExitStatus::DiskFull);
  EXPECT_EQ(statusOfErrno(EROFS), ExitStatus::CannotWrite);
  EXPECT_EQ(statusOfErrno(EACCES), ExitStatus::CannotWrite);
  EXPECT_EQ(statusOfErrno(EIO), ExitStatus::Failed);
}

}  // namespace
}  // namespace nox::agent
