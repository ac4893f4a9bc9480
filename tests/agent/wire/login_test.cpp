// Who may log in, with what, and what it costs to guess.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tests/agent/support/client.h"
#include "tests/agent/support/noxd_process.h"
#include "tests/support/frames.h"

namespace nox::agent::test {
namespace {

using namespace noxp;
using nox::test::frameOf;

constexpr const char* kUser = NoxdProcess::kUser;
constexpr const char* kPassword = NoxdProcess::kPassword;

/// One noxd for all tests that leave it as it was.
class Login : public testing::Test {
protected:
  static void SetUpTestSuite() {
    noxd = std::make_unique<NoxdProcess>();
    noxd->addUser("reader", "just looking", {"MAIN=read"});
    noxd->addUser("nobody", "nowhere", {});
    noxd->start();
  }
  static void TearDownTestSuite() { noxd.reset(); }

  static std::unique_ptr<NoxdProcess> noxd;
};
std::unique_ptr<NoxdProcess> Login::noxd;

TEST_F(Login, TakesTheRightPassword) {
  Client client(noxd->plainPort());
  EXPECT_EQ(client.logIn(kUser, kPassword, "MAIN"), "OK");
  EXPECT_EQ(client.common("@USER"), kUser);
  EXPECT_EQ(client.common("@ACCOUNT"), "MAIN");
}

TEST_F(Login, TakesTheDefaultAccountWhereNoneIsNamed) {
  Client client(noxd->plainPort());
  EXPECT_EQ(client.logIn(kUser, kPassword, ""), "OK");
  EXPECT_EQ(client.common("@ACCOUNT"), "MAIN");
}

TEST_F(Login, TakesCredentialsThatHaveNoAccount) {
  Client client(noxd->plainPort());
  AuthenticationRequestProt request(
      new LocalUserCredentials(NOXPString(kUser), NOXPString(kPassword)));
  EXPECT_EQ(client.say(request), "OK");
  EXPECT_EQ(client.common("@ACCOUNT"), "MAIN");
}

TEST_F(Login, GivesTheRightThatTheUserHas) {
  Client client(noxd->plainPort());
  EXPECT_EQ(client.logIn("reader", "just looking"), "OK");
  EXPECT_EQ(client.write("F", "1", "x"), "42/000");
}

TEST_F(Login, RefusesAWrongPasswordAnUnknownUserAndAForeignAccountAlike) {
  const std::vector<std::vector<std::string>> attempts = {
      {kUser, "wrong", "MAIN"}, {"stranger", kPassword, "MAIN"}, {kUser, "", "MAIN"}};
  for (const auto& attempt : attempts) {
    Client client(noxd->plainPort());
    EXPECT_EQ(client.logIn(attempt[0], attempt[1], attempt[2]), "28/000") << attempt[0];
  }
  for (const char* account : {"OTHER", "MAIN/../MAIN", "."}) {
    Client client(noxd->plainPort());
    EXPECT_EQ(client.logIn(kUser, kPassword, account), "28/000") << account;
  }
  Client client(noxd->plainPort());
  EXPECT_EQ(client.logIn("nobody", "nowhere", "MAIN"), "28/000");
}

TEST_F(Login, SaysNothingInTheErrorThatTellsUsersFromStrangers) {
  Client client(noxd->plainPort());
  AuthenticationRequestProt wrong(new AccountUserCredentialsProt(kUser, "", "wrong"));
  AuthenticationRequestProt stranger(new AccountUserCredentialsProt("stranger", "", "wrong"));
  const std::string first = messageOf(*client.ask(wrong));
  const std::string second = messageOf(*client.ask(stranger));
  EXPECT_EQ(first, second);
  EXPECT_EQ(first.find("wrong\""), std::string::npos);
}

TEST_F(Login, MayBeTriedAgainOnTheSameConnection) {
  Client client(noxd->plainPort());
  EXPECT_EQ(client.logIn(kUser, "wrong"), "28/000");
  EXPECT_EQ(client.logIn(kUser, "wrong again"), "28/000");
  EXPECT_EQ(client.logIn(kUser, kPassword), "OK");
}

TEST_F(Login, ClosesAfterTheThirdFailure) {
  Client client(noxd->plainPort());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(client.logIn(kUser, "wrong"), "28/000");
  EXPECT_TRUE(client.isClosed());
}

TEST_F(Login, ComesBeforeEverythingElse) {
  Client client(noxd->plainPort());
  EXPECT_EQ(client.read("F", "1"), "0A/000");
  EXPECT_EQ(errorOf(*client.ask(common::EchoRequestProt())), "0A/000");
  EXPECT_EQ(client.say(AuthenticationRequestProt()), "28/000");  // without credentials
  EXPECT_TRUE(client.isClosed());
}

TEST_F(Login, IsNoRequestOnceItIsDone) {
  Client client(noxd->plainPort());
  client.logIn();
  EXPECT_EQ(client.logIn(kUser, kPassword), "0A/000");
  EXPECT_EQ(client.common("@USER"), kUser);
}

TEST_F(Login, LeavesNoPasswordInTheLog) {
  Client client(noxd->plainPort());
  client.logIn(kUser, "a wrong secret");
  client.logIn("a secret in the wrong place", "x");
  client.logIn(kUser, kPassword);
  noxd->waitForLog("logged in");
  const std::string log = noxd->log();
  EXPECT_NE(log.find("login refused"), std::string::npos);
  EXPECT_EQ(log.find("secret"), std::string::npos);
  EXPECT_EQ(log.find(kPassword), std::string::npos);
}

TEST_F(Login, ReadsACompressedRequest) {
  Client client(noxd->plainPort());
  Serializable::properties_t compressed;
  compressed.compress = true;
  AuthenticationRequestProt request(new AccountUserCredentialsProt(kUser, "", kPassword));
  request.setProperties(&compressed);
  EXPECT_EQ(client.say(request), "OK");
}

TEST(LoginThrottle, MakesEachFailureOfAPeerSlower) {
  NoxdProcess noxd;
  noxd.start();
  using Clock = std::chrono::steady_clock;
  std::vector<Clock::duration> took;
  for (int i = 0; i < 3; ++i) {  // on connections of their own
    Client client(noxd.plainPort());
    const Clock::time_point begin = Clock::now();
    EXPECT_EQ(client.logIn(kUser, "wrong"), "28/000");
    took.push_back(Clock::now() - begin);
  }
  EXPECT_GE(took[0], std::chrono::milliseconds(200));
  EXPECT_GE(took[1], std::chrono::milliseconds(400));
  EXPECT_GE(took[2], std::chrono::milliseconds(800));
}

TEST(LoginThrottle, LetsGuessersWaitForOneAnother) {
  NoxdProcess noxd;
  noxd.start();
  EXPECT_EQ(Client(noxd.plainPort()).logIn(kUser, "wrong"), "28/000");
  const auto begin = std::chrono::steady_clock::now();
  std::vector<std::thread> guessers;
  for (int i = 0; i < 3; ++i) {
    guessers.emplace_back([&] {
      Client client(noxd.plainPort());
      EXPECT_EQ(client.logIn(kUser, "wrong"), "28/000");
    });
  }
  for (std::thread& guesser : guessers) guesser.join();
  // 400, 800 and 1600 ms, one after the other.
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(2800));
}

TEST(LoginDeadline, CutsAPeerThatSaysNothing) {
  NoxdProcess noxd;
  noxd.set("server.login_timeout", "1").start();
  Client client(noxd.plainPort());
  EXPECT_TRUE(client.isClosed());
}

TEST(LoginDeadline, CutsAPeerThatTrickles) {
  NoxdProcess noxd;
  noxd.set("server.login_timeout", "1").start();
  Client client(noxd.plainPort());
  AuthenticationRequestProt request(new AccountUserCredentialsProt(kUser, "", kPassword));
  const std::string frame = frameOf(request);
  std::size_t sent = 0;
  // A byte is due every 100 ms; the agent must lose its patience long before the frame is whole.
  while (sent < frame.size() - 1 && !client.hasInput(std::chrono::milliseconds(100))) {
    if (!client.sendBytes(frame.substr(sent, 1))) break;
    ++sent;
  }
  EXPECT_LT(sent, frame.size() - 1);
  EXPECT_TRUE(client.isClosed());
}

TEST(LoginDeadline, HoldsForAllAttemptsTogether) {
  NoxdProcess noxd;
  noxd.set("server.login_timeout", "1").start();
  Client client(noxd.plainPort());
  client.logIn(kUser, "wrong");
  EXPECT_TRUE(client.isClosed());
}

TEST(LoginDeadline, DoesNotHoldAfterLogin) {
  NoxdProcess noxd;
  noxd.set("server.login_timeout", "1").start();
  Client client(noxd.plainPort());
  client.logIn();
  EXPECT_FALSE(client.hasInput(std::chrono::milliseconds(1500)));
  EXPECT_EQ(client.common("@USER"), kUser);
}

}  // namespace
}  // namespace nox::agent::test
