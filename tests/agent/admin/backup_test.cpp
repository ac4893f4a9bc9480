// Backups: what is in them, what is refused, and that nothing is left half done.
#include "agent/admin/backup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "agent/admin/exit_status.h"
#include "agent/admin/stores.h"
#include "agent/users/users.h"
#include "command.h"
#include "tests/agent/support/files.h"

namespace nox::agent {
namespace {

namespace fs = std::filesystem;
using test::contentOfFile;
using test::TempDirectory;
using test::writeFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

std::string textOf(NOXPBlob& blob) {
  return {reinterpret_cast<const char*>(blob.getBuf()), static_cast<std::size_t>(blob.length())};
}

/// A record, or "none".
std::string recordOf(const DataDirectory& directory, const std::string& account,
                     const std::string& id) {
  const auto stores = openStores(directory, false);
  const auto session = stores->open(account).openSession();
  NOXPBlob body;
  return session->read({"F"}, id, body) ? textOf(body) : "none";
}

void replaceIn(const std::string& file, std::string_view from, std::string_view to) {
  std::string content = contentOfFile(file);
  const std::size_t at = content.find(from);
  ASSERT_NE(at, std::string::npos) << from;
  content.replace(at, from.size(), to);
  writeFile(file, content);
}

class BackupTest : public testing::Test {
protected:
  BackupTest() {
    test::makeDataDirectory(directory.path());
    const auto stores = openStores(directory, false);
    stores->createAccount("SALES");
    for (const char* account : {"MAIN", "SALES"}) {
      const auto session = stores->open(account).openSession();
      session->createFile("F");
      session->write({"F"}, "A", std::string("alpha of ") + account);
    }
  }

  /// The status and the message of the error with which an action ends.
  template <class Action>
  static std::pair<ExitStatus, std::string> failureOf(Action&& action) {
    try {
      action();
    } catch (const AdminError& error) {
      return {error.status(), error.what()};
    }
    return {ExitStatus::Ok, ""};
  }

  void expectRefused(ExitStatus status, const std::string& message) const {
    const auto [got, text] = failureOf([&] { restore(backup, restored); });
    EXPECT_EQ(got, status);
    EXPECT_THAT(text, HasSubstr(message));
    EXPECT_FALSE(fs::exists(restored.path()));
  }

  TempDirectory temporary;
  DataDirectory directory{temporary.file("data")};
  DataDirectory restored{temporary.file("restored")};
  std::string backup = temporary.file("backup");
};

TEST_F(BackupTest, BringsEverythingBack) {
  backUp(directory, backup);
  restore(backup, restored);
  EXPECT_EQ(recordOf(restored, "MAIN", "A"), "alpha of MAIN");
  EXPECT_EQ(recordOf(restored, "SALES", "A"), "alpha of SALES");
  const Users users(restored.users());
  EXPECT_TRUE(users.verify("ann", "one"));
  EXPECT_EQ(users.right("ann", "MAIN"), Right::Admin);
  EXPECT_THAT(verify(restored), IsEmpty());
}

TEST_F(BackupTest, HoldsWhatWasThereAtItsMoment) {
  backUp(directory, backup);
  {
    const auto stores = openStores(directory, false);
    const auto session = stores->open("MAIN").openSession();
    session->write({"F"}, "A", "changed");
    session->write({"F"}, "B", "new");
  }
  restore(backup, restored);
  EXPECT_EQ(recordOf(restored, "MAIN", "A"), "alpha of MAIN");
  EXPECT_EQ(recordOf(restored, "MAIN", "B"), "none");
}

TEST_F(BackupTest, ListsItsFilesWithSizesAndSums) {
  const std::vector<BackupFile> files = backUp(directory, backup);
  ASSERT_THAT(files, SizeIs(3));
  EXPECT_EQ(files[0].path, "accounts/MAIN.db");
  EXPECT_EQ(files[1].path, "accounts/SALES.db");
  EXPECT_EQ(files[2].path, "users.db");
  const std::string manifest = contentOfFile(backup + "/manifest.json");
  for (const BackupFile& file : files) {
    EXPECT_EQ(file.bytes, fs::file_size(backup + "/" + file.path));
    EXPECT_THAT(manifest, HasSubstr(file.sha256));
  }
}

TEST_F(BackupTest, IsForItsOwnerAlone) {
  backUp(directory, backup);
  for (const char* path : {"", "/accounts", "/manifest.json", "/users.db", "/accounts/MAIN.db"}) {
    struct stat status {};
    ASSERT_EQ(stat((backup + path).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 077U, 0U) << path;
  }
}

TEST_F(BackupTest, GoesWhereNothingIs) {
  fs::create_directory(backup);
  const auto [status, message] = failureOf([&] { backUp(directory, backup); });
  EXPECT_EQ(status, ExitStatus::Failed);
  EXPECT_THAT(message, HasSubstr("is there already"));
  EXPECT_TRUE(fs::is_empty(backup));
}

TEST_F(BackupTest, OfDamagedDataLeavesNothing) {
  writeFile(directory.account("SALES"), std::string(20000, 'x'));
  EXPECT_THROW(backUp(directory, backup), StoreError);
  EXPECT_FALSE(fs::exists(backup));
}

TEST_F(BackupTest, ThatWasInterruptedIsNotRestored) {
  backUp(directory, backup);
  fs::remove(backup + "/manifest.json");
  expectRefused(ExitStatus::Damaged, "it has no manifest.json");
}

TEST_F(BackupTest, WithAChangedByteIsNotRestored) {
  backUp(directory, backup);
  std::string content = contentOfFile(backup + "/accounts/MAIN.db");
  content[content.size() / 2] ^= 1;
  writeFile(backup + "/accounts/MAIN.db", content);
  expectRefused(ExitStatus::Damaged, "accounts/MAIN.db is not what was backed up");
}

TEST_F(BackupTest, ThatWasCutShortIsNotRestored) {
  backUp(directory, backup);
  fs::resize_file(backup + "/users.db", 100);
  expectRefused(ExitStatus::Damaged, "users.db is not what was backed up");
}

TEST_F(BackupTest, WithAMissingFileIsNotRestored) {
  backUp(directory, backup);
  fs::remove(backup + "/accounts/SALES.db");
  expectRefused(ExitStatus::Damaged, "accounts/SALES.db is missing");
}

TEST_F(BackupTest, WhoseManifestLeadsElsewhereIsNotRestored) {
  for (const char* path :
       {"accounts/../../elsewhere.db", "/etc/passwd", "accounts/.db", "accounts/a/b.db", ""}) {
    fs::remove_all(backup);
    backUp(directory, backup);
    replaceIn(backup + "/manifest.json", "accounts/MAIN.db", path);
    expectRefused(ExitStatus::Damaged, "names a file that no backup has");
  }
}

TEST_F(BackupTest, WhoseManifestNamesAFileTwiceIsNotRestored) {
  backUp(directory, backup);
  replaceIn(backup + "/manifest.json", "accounts/MAIN.db", "accounts/SALES.db");
  expectRefused(ExitStatus::Damaged, "names a file that no backup has");
}

TEST_F(BackupTest, WithoutUsersIsNotRestored) {
  backUp(directory, backup);
  replaceIn(backup + "/manifest.json", "\"users.db\"", "\"accounts/X.db\"");
  expectRefused(ExitStatus::Damaged, "names no users.db");
}

TEST_F(BackupTest, WhoseManifestIsNoJsonIsNotRestored) {
  backUp(directory, backup);
  for (const char* text : {"", "{", "[]", "{\"format\": \"1\"}", "{\"format\": 1, \"files\": 5}",
                           "{\"format\": 1, \"files\": [{\"path\": 1}]}"}) {
    writeFile(backup + "/manifest.json", text);
    expectRefused(ExitStatus::Damaged, "manifest.json");
  }
}

TEST_F(BackupTest, OfALaterVersionIsNotRestored) {
  backUp(directory, backup);
  replaceIn(backup + "/manifest.json", "\"format\": 1", "\"format\": 2");
  expectRefused(ExitStatus::Failed, "another version");
}

TEST_F(BackupTest, IsRestoredIntoAnEmptyDirectoryOnly) {
  backUp(directory, backup);
  const std::string before = contentOfFile(directory.users());
  const auto [status, message] = failureOf([&] { restore(backup, directory); });
  EXPECT_EQ(status, ExitStatus::Failed);
  EXPECT_THAT(message, HasSubstr("is not empty; nothing was changed"));
  EXPECT_EQ(contentOfFile(directory.users()), before);
}

TEST_F(BackupTest, MayBeRestoredIntoAFolderThatIsThere) {
  backUp(directory, backup);
  fs::create_directory(restored.path());
  restore(backup, restored);
  EXPECT_THAT(verify(restored), IsEmpty());
}

TEST_F(BackupTest, OfAnAccountThatIsNoStoreIsTakenBackAgain) {
  // The sums are right, but what they are of was damaged before.
  backUp(directory, backup);
  const std::string file = backup + "/accounts/MAIN.db";
  const std::string sum = sha256OfFile(file);
  const auto size = fs::file_size(file);
  writeFile(file, std::string(size, 'x'));
  replaceIn(backup + "/manifest.json", sum, sha256OfFile(file));
  expectRefused(ExitStatus::Damaged, "account MAIN");
}

TEST_F(BackupTest, ThreadsMayWriteWhileItIsMade) {
  std::atomic<bool> stop{false};
  const auto stores = openStores(directory, false);
  std::thread writer([&] {
    const auto session = stores->open("MAIN").openSession();
    for (int i = 0; !stop; ++i) {
      // Two records that are the same at every moment.
      const std::string body = std::to_string(i);
      session->writeAll({{{"F"}, "L", body}, {{"F"}, "R", body}});
    }
  });
  for (int round = 0; round < 3; ++round) {
    const std::string target = backup + std::to_string(round);
    backUp(directory, target);
    const DataDirectory copy(temporary.file("copy" + std::to_string(round)));
    restore(target, copy);
    EXPECT_EQ(recordOf(copy, "MAIN", "L"), recordOf(copy, "MAIN", "R"));
  }
  stop = true;
  writer.join();
}

TEST_F(BackupTest, SoundDataVerify) { EXPECT_THAT(verify(directory), IsEmpty()); }

TEST_F(BackupTest, VerificationFindsOpenPermissions) {
  chmod(directory.users().c_str(), 0644);
  EXPECT_THAT(verify(directory), ElementsAre(HasSubstr("users.db is open to others")));
}

TEST_F(BackupTest, VerificationFindsADamagedAccountAndGoesOn) {
  writeFile(directory.account("MAIN"), std::string(20000, 'x'));
  Users(directory.users()).grant("ann", "GONE", Right::Read);
  chmod(directory.account("MAIN").c_str(), 0600);
  EXPECT_THAT(verify(directory),
              ElementsAre(HasSubstr("account MAIN: "),
                          HasSubstr("user ann may enter account GONE, which is not there")));
}

TEST_F(BackupTest, VerificationFindsDamagedUsers) {
  writeFile(directory.users(), std::string(20000, 'x'));
  EXPECT_THAT(verify(directory), ElementsAre(HasSubstr("users.db: file is not a database")));
}

}  // namespace
}  // namespace nox::agent
