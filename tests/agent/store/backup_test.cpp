// Backups: one state of the account, made while it is used.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "tests/agent/store/store_test.h"

namespace nox::agent::test {
namespace {

using ::testing::ElementsAre;
using ::testing::Eq;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Optional;
using ::testing::SizeIs;

namespace fs = std::filesystem;

class Backup : public StoreTest {
protected:
  Backup() { fs::create_directory(directory.file("copy")); }
  std::string copyFile() const { return directory.file("copy/MAIN.db"); }
  /// The engine over the backup's directory.
  std::unique_ptr<StoreEngine> copy() { return makeSqliteEngine(directory.file("copy"), {}); }
};

TEST_F(Backup, HoldsEveryRecord) {
  newSession()->writeAll({{kFile, "1", "Ann"}, {kDict, "NAME", "D"}});
  engine->backup("MAIN", copyFile());
  const auto copied = copy();
  const auto session = copied->open("MAIN").openSession();
  EXPECT_THAT(read(*session, "1"), Optional(Eq("Ann")));
  EXPECT_THAT(read(*session, "NAME", kDict), Optional(Eq("D")));
  EXPECT_THAT(copied->verify("MAIN"), IsEmpty());
}

TEST_F(Backup, DoesNotHoldWhatIsNotCommitted) {
  const auto session = newSession();
  session->write(kFile, "1", "Ann");
  session->begin(0);
  session->write(kFile, "2", "Bob");
  engine->backup("MAIN", copyFile());
  session->commit();
  const auto copied = copy();
  const auto other = copied->open("MAIN").openSession();
  EXPECT_THAT(read(*other, "1"), Optional(Eq("Ann")));
  EXPECT_EQ(read(*other, "2"), std::nullopt);
}

TEST_F(Backup, HoldsPreparedBranches) {
  const auto session = newSession();
  session->beginBranch();
  session->write(kFile, "1", "Ann");
  session->endBranch({7, "x"})->prepare({});
  engine->backup("MAIN", copyFile());
  const auto copied = copy();
  const auto branches = copied->open("MAIN").takePreparedBranches();
  ASSERT_THAT(branches, SizeIs(1));
  branches[0]->commit(kNotAtAll);
  EXPECT_THAT(read(*copied->open("MAIN").openSession(), "1"), Optional(Eq("Ann")));
}

TEST_F(Backup, DoesNotReplaceAFile) {
  std::ofstream(copyFile()) << "precious";
  EXPECT_EQ(failure([&] { engine->backup("MAIN", copyFile()); }), StoreError::Kind::Failed);
  EXPECT_EQ(fs::file_size(copyFile()), 8u);
}

TEST_F(Backup, LeavesNothingBehindWhenItFails) {
  EXPECT_THAT(reason([&] { engine->backup("MAIN", directory.file("nowhere/MAIN.db")); }),
              HasSubstr("nowhere"));
  EXPECT_THAT(reason([&] { engine->backup("NOWHERE", copyFile()); }), HasSubstr("NOWHERE"));
  EXPECT_TRUE(fs::is_empty(directory.file("copy")));
}

TEST_F(Backup, IsASingleFile) {
  engine->backup("MAIN", copyFile());
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory.file("copy"))) {
    names.push_back(entry.path().filename().string());
  }
  EXPECT_THAT(names, ElementsAre("MAIN.db"));
}

}  // namespace
}  // namespace nox::agent::test
