// Users: what is stored of them, who may enter what, and what happens beside other processes.
#include "agent/users/users.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sodium.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "agent/store/store.h"
#include "tests/agent/support/files.h"
#include "tests/agent/support/temp_directory.h"

namespace nox::agent {

bool operator==(const Grant& a, const Grant& b) {
  return a.account == b.account && a.right == b.right;
}

namespace {

using test::contentOfFile;
using test::TempDirectory;
using test::writeFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class UsersTest : public testing::Test {
protected:
  /// Changes the file behind the back of the class.
  void run(const std::string& sql) const {
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(file.c_str(), &database), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(database);
    sqlite3_close(database);
  }

  /// A user with the password "one", hashed with the least effort: most tests are about other
  /// things, and should not take the time that makes guessing slow.
  void given(const std::string& user) const {
    static const std::string hash = [] {
      std::array<char, crypto_pwhash_STRBYTES> text{};
      EXPECT_EQ(crypto_pwhash_str(text.data(), "one", 3, crypto_pwhash_OPSLIMIT_MIN,
                                  crypto_pwhash_MEMLIMIT_MIN),
                0);
      return std::string(text.data());
    }();
    run("INSERT INTO users VALUES('" + user + "', '" + hash + "')");
  }

  std::string storedHash(const std::string& user) const {
    sqlite3* database = nullptr;
    sqlite3_stmt* statement = nullptr;
    sqlite3_open(file.c_str(), &database);
    sqlite3_prepare_v2(database, "SELECT password FROM users WHERE name = ?", -1, &statement,
                       nullptr);
    sqlite3_bind_text(statement, 1, user.c_str(), -1, SQLITE_STATIC);
    std::string hash;
    if (sqlite3_step(statement) == SQLITE_ROW) {
      hash = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
    }
    sqlite3_finalize(statement);
    sqlite3_close(database);
    return hash;
  }

  TempDirectory directory;
  std::string file = directory.file("users.db");
  Users users{file, true};
};

TEST_F(UsersTest, TheRightPasswordIsRight) {
  EXPECT_TRUE(users.add("ann", "open sesame"));
  EXPECT_TRUE(users.verify("ann", "open sesame"));
}

TEST_F(UsersTest, AnotherPasswordIsWrong) {
  users.add("ann", "open sesame");
  EXPECT_FALSE(users.verify("ann", "open sesam"));
  EXPECT_FALSE(users.verify("ann", ""));
  EXPECT_FALSE(users.verify("ann", std::string("open sesame\0", 12)));
}

TEST_F(UsersTest, AUserWhoIsNotThereHasNoRightPassword) {
  EXPECT_FALSE(users.verify("nobody", ""));
  EXPECT_FALSE(users.verify("nobody", "open sesame"));
}

TEST_F(UsersTest, APasswordMayBeAnyBytes) {
  const std::string password("\x01\0\xFFz", 4);
  users.add("ann", password);
  EXPECT_TRUE(users.verify("ann", password));
  EXPECT_FALSE(users.verify("ann", password.substr(0, 1)));
}

TEST_F(UsersTest, AnUnknownUserCostsWhatAKnownOneCosts) {
  users.add("ann", "open sesame");
  const auto took = [&](const char* user) {
    // The best of a few, since other programs run as well.
    auto best = std::chrono::nanoseconds::max();
    for (int i = 0; i < 3; ++i) {
      const auto start = std::chrono::steady_clock::now();
      EXPECT_FALSE(users.verify(user, "wrong"));
      best = std::min<std::chrono::nanoseconds>(best, std::chrono::steady_clock::now() - start);
    }
    return best;
  };
  const auto known = took("ann");
  const auto unknown = took("nobody");
  EXPECT_LT(known, 3 * unknown);
  EXPECT_LT(unknown, 3 * known);
}

TEST_F(UsersTest, ThePasswordIsStoredHashed) {
  users.add("ann", "open sesame");
  EXPECT_THAT(storedHash("ann"), testing::StartsWith("$argon2id$v=19$"));
  EXPECT_THAT(contentOfFile(file), Not(HasSubstr("open sesame")));
}

TEST_F(UsersTest, EqualPasswordsAreStoredDifferently) {
  users.add("ann", "open sesame");
  users.add("ben", "open sesame");
  EXPECT_NE(storedHash("ann"), storedHash("ben"));
}

TEST_F(UsersTest, AWeakerHashIsRenewedAtTheNextLogin) {
  users.add("ann", "open sesame");
  std::array<char, crypto_pwhash_STRBYTES> weak{};
  ASSERT_EQ(crypto_pwhash_str(weak.data(), "open sesame", 11, crypto_pwhash_OPSLIMIT_MIN,
                              crypto_pwhash_MEMLIMIT_MIN),
            0);
  run(std::string("UPDATE users SET password = '") + weak.data() + "'");

  EXPECT_FALSE(users.verify("ann", "wrong"));
  EXPECT_EQ(storedHash("ann"), weak.data());
  EXPECT_TRUE(users.verify("ann", "open sesame"));
  EXPECT_EQ(
      crypto_pwhash_str_needs_rehash(storedHash("ann").c_str(), crypto_pwhash_OPSLIMIT_INTERACTIVE,
                                     crypto_pwhash_MEMLIMIT_INTERACTIVE),
      0);
  EXPECT_TRUE(users.verify("ann", "open sesame"));
}

TEST_F(UsersTest, ANameIsTakenOnce) {
  EXPECT_TRUE(users.add("ann", "one"));
  EXPECT_FALSE(users.add("ann", "two"));
  EXPECT_TRUE(users.verify("ann", "one"));
}

TEST_F(UsersTest, NamesAreToldApartByCase) {
  given("ann");
  EXPECT_FALSE(users.verify("Ann", "one"));
}

TEST_F(UsersTest, WhatIsNoNameIsRefused) {
  EXPECT_THROW(users.add("", "one"), std::invalid_argument);
  EXPECT_THROW(users.add("a b", "one"), std::invalid_argument);
  EXPECT_THROW(users.add("ann\n", "one"), std::invalid_argument);
  EXPECT_THROW(users.add(std::string(65, 'a'), "one"), std::invalid_argument);
}

TEST_F(UsersTest, APasswordHasALengthBetweenOneByteAndOneKiB) {
  EXPECT_THROW(users.add("ann", ""), std::invalid_argument);
  EXPECT_THROW(users.add("ann", std::string(1025, 'x')), std::invalid_argument);
  EXPECT_TRUE(users.add("ann", std::string(1024, 'x')));
  EXPECT_THROW(users.setPassword("ann", ""), std::invalid_argument);
  EXPECT_TRUE(users.verify("ann", std::string(1024, 'x')));
}

TEST_F(UsersTest, ANewPasswordReplacesTheOld) {
  users.add("ann", "one");
  EXPECT_TRUE(users.setPassword("ann", "two"));
  EXPECT_TRUE(users.verify("ann", "two"));
  EXPECT_FALSE(users.verify("ann", "one"));
}

TEST_F(UsersTest, OnlyAUserHasAPassword) { EXPECT_FALSE(users.setPassword("ann", "one")); }

TEST_F(UsersTest, WithoutAGrantAUserMayEnterNothing) {
  given("ann");
  EXPECT_EQ(users.right("ann", "MAIN"), std::nullopt);
}

TEST_F(UsersTest, AGrantHoldsForOneUserInOneAccount) {
  given("ann");
  given("ben");
  EXPECT_TRUE(users.grant("ann", "MAIN", Right::Write));
  EXPECT_EQ(users.right("ann", "MAIN"), Right::Write);
  EXPECT_EQ(users.right("ann", "OTHER"), std::nullopt);
  EXPECT_EQ(users.right("ben", "MAIN"), std::nullopt);
}

TEST_F(UsersTest, AGrantReplacesTheOneBefore) {
  given("ann");
  users.grant("ann", "MAIN", Right::Admin);
  EXPECT_TRUE(users.grant("ann", "MAIN", Right::Read));
  EXPECT_EQ(users.right("ann", "MAIN"), Right::Read);
}

TEST_F(UsersTest, NothingIsGrantedToNobody) {
  EXPECT_FALSE(users.grant("ann", "MAIN", Right::Read));
}

TEST_F(UsersTest, WhatIsNoAccountIsNotGranted) {
  given("ann");
  EXPECT_THROW(users.grant("ann", "../MAIN", Right::Read), std::invalid_argument);
}

TEST_F(UsersTest, ARevokedGrantIsGone) {
  given("ann");
  users.grant("ann", "MAIN", Right::Read);
  EXPECT_TRUE(users.revoke("ann", "MAIN"));
  EXPECT_EQ(users.right("ann", "MAIN"), std::nullopt);
  EXPECT_FALSE(users.revoke("ann", "MAIN"));
}

TEST_F(UsersTest, ARemovedUserTakesTheGrantsAlong) {
  given("ann");
  users.grant("ann", "MAIN", Right::Admin);
  EXPECT_TRUE(users.remove("ann"));
  EXPECT_FALSE(users.verify("ann", "one"));
  EXPECT_FALSE(users.remove("ann"));

  given("ann");
  EXPECT_EQ(users.right("ann", "MAIN"), std::nullopt);
}

TEST_F(UsersTest, AreListedByNameWithTheirGrants) {
  given("ben");
  given("ann");
  users.grant("ann", "SALES", Right::Read);
  users.grant("ann", "MAIN", Right::Admin);
  const std::vector<UserInfo> list = users.list();
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0].name, "ann");
  EXPECT_THAT(list[0].grants,
              ElementsAre(Grant{"MAIN", Right::Admin}, Grant{"SALES", Right::Read}));
  EXPECT_EQ(list[1].name, "ben");
  EXPECT_THAT(list[1].grants, IsEmpty());
}

TEST_F(UsersTest, AreStillThereWhenTheFileIsOpenedAgain) {
  given("ann");
  users.grant("ann", "MAIN", Right::Write);
  const Users again(file);
  EXPECT_TRUE(again.verify("ann", "one"));
  EXPECT_EQ(again.right("ann", "MAIN"), Right::Write);
}

TEST_F(UsersTest, ChangesOfAnotherProcessAreSeenAtOnce) {
  Users other(file);
  other.add("ann", "one");
  EXPECT_TRUE(users.verify("ann", "one"));
  users.grant("ann", "MAIN", Right::Read);
  EXPECT_EQ(other.right("ann", "MAIN"), Right::Read);
  other.remove("ann");
  EXPECT_FALSE(users.verify("ann", "one"));
}

TEST_F(UsersTest, TheFileIsForItsOwnerAlone) {
  struct stat status {};
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(UsersTest, OpeningWhatIsNotThereIsAnError) {
  EXPECT_THROW(Users(directory.file("none.db")), StoreError);
  EXPECT_FALSE(std::filesystem::exists(directory.file("none.db")));
}

TEST_F(UsersTest, WhatIsNoDatabaseIsDamaged) {
  const std::string other = directory.file("other.db");
  writeFile(other, std::string(4096, 'x'));
  try {
    const Users broken(other);
    FAIL();
  } catch (const StoreError& error) {
    EXPECT_EQ(error.kind(), StoreError::Kind::Damaged);
    EXPECT_THAT(error.what(), HasSubstr(other));
  }
}

TEST_F(UsersTest, AnotherDatabaseIsNotTakenForTheUsers) {
  run("PRAGMA application_id=7");
  try {
    const Users broken(file);
    FAIL();
  } catch (const StoreError& error) {
    EXPECT_EQ(error.kind(), StoreError::Kind::Damaged);
  }
}

TEST_F(UsersTest, AFileOfALaterVersionIsLeftAlone) {
  run("PRAGMA user_version=2");
  EXPECT_THROW(Users{file}, StoreError);
}

TEST_F(UsersTest, ABackupHoldsWhatWasThere) {
  given("ann");
  users.grant("ann", "MAIN", Right::Write);
  const std::string copy = directory.file("copy.db");
  users.backup(copy);
  users.remove("ann");
  const Users copied(copy);
  EXPECT_TRUE(copied.verify("ann", "one"));
  EXPECT_EQ(copied.right("ann", "MAIN"), Right::Write);
  EXPECT_THAT(copied.check(), IsEmpty());
  struct stat status {};
  ASSERT_EQ(stat(copy.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(UsersTest, ASoundFileHasNoMistakes) {
  given("ann");
  users.grant("ann", "MAIN", Right::Write);
  EXPECT_THAT(users.check(), IsEmpty());
}

TEST_F(UsersTest, AGrantToNobodyIsAMistake) {
  given("ann");
  run("PRAGMA foreign_keys=OFF; INSERT INTO grants VALUES('gone', 'MAIN', 1)");
  EXPECT_THAT(users.check(), ElementsAre(HasSubstr("a user who is not there")));
}

TEST_F(UsersTest, APasswordThatIsNotHashedIsAMistake) {
  given("ann");
  run("UPDATE users SET password = 'one'");
  EXPECT_FALSE(users.verify("ann", "one"));
  EXPECT_THAT(users.check(), ElementsAre(HasSubstr("the password of ann")));
}

TEST_F(UsersTest, ADamagedPageIsAMistake) {
  given("ann");
  std::string content = contentOfFile(file);
  const std::size_t page = 4096;
  ASSERT_GE(content.size(), 2 * page);
  content.replace(page, 64, std::string(64, '\xA5'));
  writeFile(file, content);
  // Not by those who have read the page before.
  EXPECT_THAT(Users(file).check(), Not(IsEmpty()));
}

TEST_F(UsersTest, ThreadsMayUseThemTogether) {
  given("ann");
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&, i] {
      const std::string account = "A" + std::to_string(i);
      for (int round = 0; round < 3; ++round) {
        EXPECT_TRUE(users.grant("ann", account, Right::Read));
        EXPECT_EQ(users.right("ann", account), Right::Read);
        EXPECT_TRUE(users.revoke("ann", account));
      }
      EXPECT_TRUE(users.verify("ann", "one"));
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(users.list().size(), 1U);
}

TEST(Rights, AreReadByTheirNames) {
  EXPECT_EQ(parseRight("read"), Right::Read);
  EXPECT_EQ(parseRight("write"), Right::Write);
  EXPECT_EQ(parseRight("admin"), Right::Admin);
  EXPECT_EQ(parseRight("READ"), std::nullopt);
  EXPECT_EQ(parseRight(""), std::nullopt);
  for (const Right right : {Right::Read, Right::Write, Right::Admin}) {
    EXPECT_EQ(parseRight(nameOf(right)), right);
  }
}

}  // namespace
}  // namespace nox::agent
