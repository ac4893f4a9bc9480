#include "nox/auth/credentials.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "nox/auth/authentication.h"
#include "tests/support/bytes.h"
#include "tests/support/contents.h"
#include "tests/support/frames.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording_archive.h"

namespace nox {
namespace {

using noxp::auth::AuthObjectFactory;
using test::bytes;
using test::contentOf;
using test::fieldsOf;
using test::frameOf;
using ::testing::ElementsAre;

template <class Credentials>
std::unique_ptr<Credentials> read(const std::string& frame) {
  AuthObjectFactory factory;
  return test::readAs<Credentials>(frame, factory);
}

void expectCredentialsSurviveDamage(const std::string& frame) {
  AuthObjectFactory factory;
  test::expectSurvivesDamage(frame, factory);
}

/// Credentials of user u with password p and seed s.
LocalUserCredentials seeded() {
  NOXPString user("u");
  NOXPString password("p");
  NOXPString seed("s");
  LocalUserCredentials credentials(user, password);
  credentials.setSeed(&seed);
  return credentials;
}

TEST(LocalUserCredentials, AreEmptyNarrowTextsByDefault) {
  LocalUserCredentials credentials;
  for (NOXPString* text :
       {credentials.getUserName(), credentials.getPassword(), credentials.getSeed()}) {
    ASSERT_TRUE(text);
    EXPECT_EQ(text->getType(), NOXPString::Narrow);
    EXPECT_EQ(contentOf(text), "");
  }
  EXPECT_EQ(credentials.getNumberOfFailedLoginAttempts(), 0);
  const std::string frame = bytes(
      "00 00 00 1F  5B"
      "4C  49 00 00 00 6F  49 00 00 00 00"  // type 111, version 0
      "73 00 00 3B"                         // "userName"
      "73 00 00 3B"                         // "password"
      "73 00 00 3B"                         // "seed"
      "49 00 00 00 00"                      // "failedLoginAttempts" 0
      "3B  5D");
  EXPECT_BYTES(frameOf(credentials), frame);
  expectCredentialsSurviveDamage(frame);
}

TEST(LocalUserCredentials, TravelAsUserNamePasswordSeedAndFailures) {
  LocalUserCredentials credentials = seeded();
  EXPECT_THAT(fieldsOf(credentials), ElementsAre("string userName=u", "string password=p",
                                                 "string seed=s", "int failedLoginAttempts=0"));
  const std::string frame = bytes(
      "00 00 00 22  5B"
      "4C  49 00 00 00 6F  49 00 00 00 00"
      "73 00 01 75 3B"
      "73 00 01 70 3B"
      "73 00 01 73 3B"
      "49 00 00 00 05"
      "3B  5D");
  const auto received = read<LocalUserCredentials>(frame);
  ASSERT_TRUE(received);
  EXPECT_EQ(contentOf(received->getUserName()), "u");
  EXPECT_EQ(contentOf(received->getPassword()), "p");
  EXPECT_EQ(contentOf(received->getSeed()), "s");
  EXPECT_EQ(received->getNumberOfFailedLoginAttempts(), 5);
  EXPECT_BYTES(frameOf(*received), frame);
  expectCredentialsSurviveDamage(frame);
}

TEST(LocalUserCredentials, MadeFromTwoTextsHaveNoSeed) {
  NOXPString user("u");
  NOXPString password("p");
  LocalUserCredentials credentials(user, password);
  user = "changed";
  password = "changed";
  EXPECT_EQ(contentOf(credentials.getUserName()), "u");
  EXPECT_EQ(contentOf(credentials.getPassword()), "p");
  EXPECT_EQ(credentials.getSeed(), nullptr);
  const std::string frame = bytes(
      "00 00 00 24  5B"
      "4C  49 00 00 00 6F  49 00 00 00 00"
      "73 00 01 75 3B"
      "73 00 01 70 3B"
      "4C  49 00 00 00 01  3B"  // "seed" null
      "49 00 00 00 00"
      "3B  5D");
  EXPECT_BYTES(frameOf(credentials), frame);
  const auto received = read<LocalUserCredentials>(frame);
  ASSERT_TRUE(received);
  EXPECT_EQ(contentOf(received->getSeed()), "");
  expectCredentialsSurviveDamage(frame);
}

TEST(LocalUserCredentials, WithoutASeedCanBeReadInto) {
  LocalUserCredentials credentials{NOXPString("u"), NOXPString("p")};
  test::RecordingReader archive;
  credentials.serialize(archive, 0);
  EXPECT_THAT(archive.lines(), ElementsAre("string userName", "string password", "string seed",
                                           "int failedLoginAttempts"));
  EXPECT_EQ(contentOf(credentials.getSeed()), "");
}

TEST(LocalUserCredentials, KeepTheirOwnCopyOfASeed) {
  LocalUserCredentials credentials;
  NOXPString seed("s");
  credentials.setSeed(&seed);
  seed = "changed";
  EXPECT_EQ(contentOf(credentials.getSeed()), "s");
  credentials.setSeed(credentials.getSeed());
  EXPECT_EQ(contentOf(credentials.getSeed()), "s");
  credentials.setSeed(nullptr);
  EXPECT_EQ(credentials.getSeed(), nullptr);
  credentials.setSeed(nullptr);
  EXPECT_EQ(credentials.getSeed(), nullptr);
}

TEST(LocalUserCredentials, AssignAPasswordToTheStringThatIsThere) {
  LocalUserCredentials credentials = seeded();
  NOXPString* const place = credentials.getPassword();
  NOXPString password("new");
  credentials.setPassword(&password);
  EXPECT_EQ(credentials.getPassword(), place);
  EXPECT_EQ(contentOf(place), "new");
  credentials.setPassword(place);
  EXPECT_EQ(contentOf(place), "new");
  credentials.setPassword(nullptr);
  EXPECT_EQ(contentOf(place), "new");
}

TEST(LocalUserCredentials, CopyAllTheirTexts) {
  LocalUserCredentials credentials = seeded();
  LocalUserCredentials copy(credentials);
  LocalUserCredentials assigned;
  assigned = credentials;
  assigned = *&assigned;
  *credentials.getUserName() = "changed";
  *credentials.getPassword() = "changed";
  *credentials.getSeed() = "changed";
  for (const LocalUserCredentials* each : {&copy, &assigned}) {
    EXPECT_EQ(contentOf(each->getUserName()), "u");
    EXPECT_EQ(contentOf(each->getPassword()), "p");
    EXPECT_EQ(contentOf(each->getSeed()), "s");
  }
}

TEST(LocalUserCredentials, CopyAMissingSeedAsMissing) {
  LocalUserCredentials credentials{NOXPString("u"), NOXPString("p")};
  EXPECT_EQ(LocalUserCredentials(credentials).getSeed(), nullptr);
  LocalUserCredentials assigned = seeded();
  assigned = credentials;
  EXPECT_EQ(assigned.getSeed(), nullptr);
}

TEST(AccountUserCredentials, TravelAsUserNameAccountPasswordAlone) {
  AccountUserCredentialsProt credentials("u", "acc", "p");
  EXPECT_THAT(fieldsOf(credentials),
              ElementsAre("string userName=u", "string account=acc", "string password=p"));
  const std::string frame = bytes(
      "00 00 00 1F  5B"
      "4C  49 00 00 00 70  49 00 00 00 00"  // type 112, version 0
      "73 00 01 75 3B"                      // "userName" u
      "73 00 03 61 63 63 3B"                // "account" acc
      "73 00 01 70 3B"                      // "password" p
      "3B  5D");
  EXPECT_BYTES(frameOf(credentials), frame);
  const auto received = read<AccountUserCredentialsProt>(frame);
  ASSERT_TRUE(received);
  EXPECT_EQ(contentOf(received->getUserName()), "u");
  EXPECT_EQ(contentOf(received->getAccount()), "acc");
  EXPECT_EQ(contentOf(received->getPassword()), "p");
  EXPECT_EQ(contentOf(received->getSeed()), "");
  expectCredentialsSurviveDamage(frame);
}

TEST(AccountUserCredentials, WithoutAPasswordCarryANullString) {
  AccountUserCredentialsProt credentials("u", "acc", nullptr);
  EXPECT_EQ(credentials.getPassword(), nullptr);
  const std::string frame = bytes(
      "00 00 00 21  5B"
      "4C  49 00 00 00 70  49 00 00 00 00"
      "73 00 01 75 3B"
      "73 00 03 61 63 63 3B"
      "4C  49 00 00 00 01  3B"  // "password" null
      "3B  5D");
  EXPECT_BYTES(frameOf(credentials), frame);
  const auto received = read<AccountUserCredentialsProt>(frame);
  ASSERT_TRUE(received);
  EXPECT_EQ(contentOf(received->getPassword()), "");
  expectCredentialsSurviveDamage(frame);
}

TEST(AccountUserCredentials, TakeTheirFirstPasswordLater) {
  AccountUserCredentialsProt credentials("u", "acc", nullptr);
  credentials.setPassword(nullptr);
  EXPECT_EQ(credentials.getPassword(), nullptr);
  NOXPString password("p");
  credentials.setPassword(&password);
  password = "changed";
  EXPECT_EQ(contentOf(credentials.getPassword()), "p");
}

TEST(AccountUserCredentials, TakeOtherNullsAsEmptyAndHaveAnEmptySeed) {
  AccountUserCredentialsProt credentials(nullptr, nullptr, "p");
  EXPECT_EQ(contentOf(credentials.getUserName()), "");
  EXPECT_EQ(contentOf(credentials.getAccount()), "");
  EXPECT_EQ(contentOf(credentials.getSeed()), "");
  EXPECT_EQ(credentials.getNumberOfFailedLoginAttempts(), 0);
}

TEST(AccountUserCredentials, AreEmptyByDefault) {
  AccountUserCredentialsProt credentials;
  EXPECT_EQ(contentOf(credentials.getUserName()), "");
  EXPECT_EQ(contentOf(credentials.getAccount()), "");
  EXPECT_EQ(contentOf(credentials.getPassword()), "");
  EXPECT_EQ(credentials.getType(), 112);
}

TEST(AccountUserCredentials, CopyTheirAccountToo) {
  AccountUserCredentialsProt credentials("u", "acc", nullptr);
  NOXPString seed("s");
  credentials.setSeed(&seed);
  AccountUserCredentialsProt copy(credentials);
  AccountUserCredentialsProt assigned("x", "y", "z");
  assigned = credentials;
  assigned = *&assigned;
  *credentials.getAccount() = "changed";
  for (const AccountUserCredentialsProt* each : {&copy, &assigned}) {
    EXPECT_EQ(contentOf(each->getUserName()), "u");
    EXPECT_EQ(contentOf(each->getAccount()), "acc");
    EXPECT_EQ(each->getPassword(), nullptr);
    EXPECT_EQ(contentOf(each->getSeed()), "s");
  }
}

TEST(UserCredentials, LogTheirEnd) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build discards log lines";
  EXPECT_THAT(test::logged([] { AccountUserCredentialsProt credentials("u", "acc", "p"); }),
              ElementsAre("~UserCredentials()"));
}

}  // namespace
}  // namespace nox
