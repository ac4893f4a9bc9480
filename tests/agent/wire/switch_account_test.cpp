// Going to another account: 224.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/agent/support/client.h"
#include "tests/agent/support/noxd_process.h"

namespace nox::agent::test {
namespace {

using namespace noxp::remote;

constexpr const char* kUser = NoxdProcess::kUser;
constexpr const char* kPassword = NoxdProcess::kPassword;

class SwitchAccount : public testing::Test {
protected:
  static void SetUpTestSuite() {
    noxd = std::make_unique<NoxdProcess>();
    const auto run = [](const std::vector<std::string>& arguments) {
      const Finished finished = noxd->run(arguments);
      ASSERT_EQ(finished.status, 0) << finished.output;
    };
    run({"account", "add", "OTHER", "--data-dir", noxd->dataDirectory()});
    run({"user", "grant", kUser, "OTHER", "write", "--data-dir", noxd->dataDirectory()});
    noxd->addUser("reader", "just looking", {"OTHER=read"});
    noxd->start();
  }
  static void TearDownTestSuite() { noxd.reset(); }

  SwitchAccount() : client(noxd->plainPort()) { client.logIn(); }

  /// The status, or the error.
  std::string go(const char* user, const char* account, const char* password) {
    SwitchAccountRequestProt request(user, account, password);
    const auto reply = client.ask(request);
    const auto* const answer = dynamic_cast<SwitchAccountResponseProt*>(reply.get());
    return answer ? std::to_string(answer->getStatus()) : errorOf(*reply);
  }

  static std::unique_ptr<NoxdProcess> noxd;
  Client client;
};
std::unique_ptr<NoxdProcess> SwitchAccount::noxd;

TEST_F(SwitchAccount, GoesWhereTheUserMayGo) {
  EXPECT_EQ(go(kUser, "OTHER", kPassword), "0");
  EXPECT_EQ(client.common("@ACCOUNT"), "OTHER");
  EXPECT_EQ(client.common("@USER"), kUser);
}

TEST_F(SwitchAccount, MayChangeTheUserAndHisRight) {
  EXPECT_EQ(go("reader", "OTHER", "just looking"), "0");
  EXPECT_EQ(client.common("@USER"), "reader");
  EXPECT_EQ(client.run("CREATE-FILE X"), "42/000");
}

TEST_F(SwitchAccount, IsRefusedWithTheSessionUnchanged) {
  EXPECT_EQ(go(kUser, "OTHER", "wrong"), "1");
  EXPECT_EQ(go(kUser, "NOWHERE", kPassword), "1");
  EXPECT_EQ(go("reader", "MAIN", "just looking"), "1");
  EXPECT_EQ(client.common("@ACCOUNT"), "MAIN");
  EXPECT_EQ(client.common("@USER"), kUser);
}

TEST_F(SwitchAccount, IsImpossibleInATransaction) {
  ASSERT_EQ(client.begin(), "OK");
  EXPECT_EQ(go(kUser, "OTHER", kPassword), "25/000");
  EXPECT_EQ(client.rollback(), "OK");
  EXPECT_EQ(go(kUser, "OTHER", kPassword), "0");
}

TEST_F(SwitchAccount, IsSeenByAdministrators) {
  Client watcher(noxd->plainPort());
  watcher.logIn();
  ASSERT_EQ(go(kUser, "OTHER", kPassword), "0");
  EXPECT_EQ(client.monitor("sessions").substr(0, 6), "error:");  // no administrator there
  const std::string sessions = watcher.monitor("sessions");
  EXPECT_EQ(sessions.find("OTHER"), std::string::npos) << sessions;
}

TEST_F(SwitchAccount, LeavesNoPasswordInTheLog) {
  go(kUser, "OTHER", "a wrong secret");
  noxd->waitForLog("a switch of the account was refused");
  EXPECT_EQ(noxd->log().find("secret"), std::string::npos);
}

}  // namespace
}  // namespace nox::agent::test
