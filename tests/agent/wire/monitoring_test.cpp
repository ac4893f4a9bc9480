// Monitoring as noxd answers it: 228.
#include <gmock/gmock.h>

#include <chrono>
#include <memory>
#include <string>

#include "tests/agent/support/command_calls.h"
#include "tests/agent/wire/shared_noxd.h"

namespace nox::agent::test {
namespace {

using namespace noxp::remote;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class WireMonitoring : public SharedNoxd {
protected:
  static std::string ask(Client& client, const std::string& command) {
    MonitoringRequestProt request(command);
    const auto reply = client.askFor<MonitoringResponseProt>(request);
    return reply ? reply->getResponse() : std::string();
  }
  static std::string ask(const std::string& command) { return ask(ann(), command); }
  static std::string idOf(Client& client) { return client.common("@SESSION"); }
};

TEST_F(WireMonitoring, AnswersHaveAHeadingAndALineForEachItem) {
  EXPECT_THAT(ask("version"), StartsWith("name\tversion\nnoxd\t"));
  EXPECT_THAT(ask("status"), StartsWith("name\tvalue\n"));
  EXPECT_THAT(ask("sessions"), HasSubstr("\n" + idOf(ann()) + "\tann\tMAIN\t127.0.0.1:"));
  EXPECT_THAT(ask("sessions"), HasSubstr("\trunning\tMonitoring\t"));
}

TEST_F(WireMonitoring, AnUnknownCommandIsAnsweredAndNoError) {
  EXPECT_EQ(ask("format c:"), "error: unknown command: \"format c:\"");
}

TEST_F(WireMonitoring, NobodyButAnAdministratorIsAnswered) {
  noxd().addUser("writer", "a password", {"MAIN=write"});
  Client writer(noxd().plainPort());
  ASSERT_EQ(writer.logIn("writer", "a password"), "OK");
  EXPECT_EQ(ask(writer, "sessions"), "error: not allowed");
  EXPECT_EQ(ask(writer, "kill " + idOf(ann())), "error: not allowed");
}

TEST_F(WireMonitoring, ClientsAreKnownByTheirNames) {
  EXPECT_EQ(bob().set("CLIENT_NAME", "night batch"), "OK");
  EXPECT_THAT(ask("sessions"), HasSubstr("\tnight batch\t"));
}

TEST_F(WireMonitoring, AnotherSessionsLockIsShownAndReleased) {
  bob().read(file(), "A", kUpdate);
  EXPECT_EQ(ask(std::string("locks ") + file()), std::string("file\tid\tkind\towner\twaiting\n") +
                                                     file() + "\tA\tupdate\tsession " +
                                                     idOf(bob()) + "\t0");
  EXPECT_EQ(ann().write(file(), "A", "x"), "2");
  EXPECT_THAT(ask(std::string("unlock ") + file() + " A"), HasSubstr("\tA\t1"));
  EXPECT_EQ(ann().write(file(), "A", "x"), "0");
}

TEST_F(WireMonitoring, OpenListsAreShown) {
  ann().write(file(), "A", "x");
  const auto client = newClient();
  client->select(file());
  EXPECT_THAT(ask("lists"), HasSubstr("\n" + idOf(*client) + "\tann\t1"));
}

TEST_F(WireMonitoring, AKilledSessionIsClosedAndLeavesNothing) {
  const auto client = newClient();
  const std::string id = idOf(*client);
  client->begin();
  client->write(file(), "A", "uncommitted");
  EXPECT_THAT(ask("kill " + id), HasSubstr(id + "\tending"));
  EXPECT_TRUE(client->isClosed());
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (ask("sessions").find("\n" + id + "\t") != std::string::npos) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
  }
  EXPECT_EQ(ann().read(file(), "A", kUpdate), "1");
}

TEST_F(WireMonitoring, ASessionIsKilledInTheMiddleOfASubroutine) {
  execute(ann(), "CREATE-FILE NOX.SUBS");
  ann().write("NOX.SUBS", "LOOP", "while true do end");
  const auto client = newClient();
  const std::string id = idOf(*client);
  const NOXPString name("LOOP");
  RemoteSubroutineRequestProt request(&name, nullptr);
  client->send(request);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (ask("sessions").find("\trunning\tSubroutine\t") == std::string::npos) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
  }
  EXPECT_THAT(ask("kill " + id), HasSubstr("ending"));
  while (ask("sessions").find("\n" + id + "\t") != std::string::npos) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
  }
}

TEST_F(WireMonitoring, AForgottenBranchIsListedAndSettledByAnyAdministrator) {
  auto client = newClient();
  EXPECT_EQ(client->xaStart("6774:01"), "OK");
  client->write(file(), "A", "of the branch");
  EXPECT_EQ(client->xaEnd("6774:01"), "OK");
  EXPECT_EQ(client->xaPrepare("6774:01"), "OK");
  client.reset();
  EXPECT_THAT(ask("xa list"), HasSubstr("\n1:6774:01\tprepared\t1\t"));
  EXPECT_EQ(ann().read(file(), "A", kUpdate | kDoNotWait), "2");
  EXPECT_THAT(ask("xa commit 1:6774:01"), HasSubstr("committed"));
  EXPECT_EQ(ann().read(file(), "A"), "0 'of the branch'");
  EXPECT_THAT(ask("xa list"), Not(HasSubstr("6774:01")));
  EXPECT_THAT(ask("xa commit 1:6774:01"), StartsWith("error: there is no branch"));
}

}  // namespace
}  // namespace nox::agent::test
