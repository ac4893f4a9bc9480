// What an administrator sees of an account, and what he ends.
#include "agent/monitoring/monitor.h"

#include <gmock/gmock.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "agent/session/agent.h"
#include "agent/session/data_access.h"
#include "agent/session/session_registry.h"
#include "agent/session/transactions.h"
#include "agent/version.h"
#include "tests/agent/support/agent_in_process.h"

namespace nox::agent {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class Monitor : public testing::Test {
protected:
  Monitor() : admin_(agent_.newSession(Right::Admin)) {
    admin().store().createFile("F");
    admin().store().createFile("G");
  }

  test::AgentInProcess& agent() { return agent_; }
  Session& admin() { return *admin_; }
  std::string ask(std::string_view command) { return monitor(admin(), command); }
  /// The lines of an answer, without its heading.
  std::vector<std::string> items(std::string_view command) {
    std::istringstream text(ask(command));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    EXPECT_FALSE(lines.empty());
    if (!lines.empty()) lines.erase(lines.begin());
    return lines;
  }
  /// As a connection does it.
  void add(Session& session, bool& killed) {
    SessionInfo info;
    info.id = session.id();
    info.lockOwner = session.lockOwner();
    info.user = session.user();
    info.account = session.account();
    info.peer = "127.0.0.1:5000";
    info.clientName = "a\tclient";
    info.state = "idle";
    info.lastRequest = "ReadRecord";
    info.openLists = 2;
    info.requests = 3;
    info.bytesIn = 40;
    info.bytesOut = 50;
    agent().agent().sessions.add(
        session.id(), [info] { return info; }, [&killed] { killed = true; });
  }
  void lock(Session& session, const char* file, const char* id, int mode) {
    NOXPBlob body;
    session.data().read(file, id, mode, body);
  }
  void prepareBranch(const char* id, const char* record) {
    const auto session = agent().newSession();
    session->transactions().startBranch({1, id});
    session->data().write("F", record, "of the branch", DataAccess::kWriteAndRelease);
    session->transactions().endBranch({1, id});
    session->transactions().prepareBranch({1, id});
  }

private:
  test::AgentInProcess agent_;
  std::unique_ptr<Session> admin_;
};

TEST_F(Monitor, AnswersAdministratorsAlone) {
  for (const Right right : {Right::Read, Right::Write}) {
    const auto session = agent().newSession(right);
    for (const char* command : {"status", "sessions", "version", "no command"}) {
      EXPECT_EQ(monitor(*session, command), "error: not allowed") << command;
    }
  }
}

TEST_F(Monitor, AnswersAnUnknownCommandWithAnError) {
  EXPECT_EQ(ask("reboot"), "error: unknown command: \"reboot\"");
  EXPECT_EQ(ask(""), "error: unknown command: \"\"");
}

TEST_F(Monitor, ShowsTheVersion) {
  EXPECT_EQ(ask("version"), std::string("name\tversion\nnoxd\t") + version());
}

TEST_F(Monitor, ShowsTheStatus) {
  lock(admin(), "F", "A", 2);
  EXPECT_THAT(ask("status"), StartsWith("name\tvalue\n"));
  const auto lines = items("status");
  EXPECT_THAT(lines, testing::Contains("account\tMAIN"));
  EXPECT_THAT(lines, testing::Contains("locks\t1"));
  EXPECT_THAT(lines, testing::Contains("account locks\t1"));
  EXPECT_THAT(lines, testing::Contains("account branches\t0"));
}

TEST_F(Monitor, ShowsTheSessionsOfTheAccount) {
  bool killed = false;
  const auto session = agent().newSession(Right::Read, "bob");
  add(*session, killed);
  agent().agent().stores.createAccount("OTHER");
  const auto elsewhere = agent().newSession(Right::Admin, "eve", "OTHER");
  add(*elsewhere, killed);
  EXPECT_THAT(ask("sessions"),
              StartsWith("session\tuser\taccount\tpeer\ttls\tclient\tstate\trequest\ttransaction\t"
                         "lists\trequests\tbytes in\tbytes out\tsince\n"));
  EXPECT_THAT(items("sessions"),
              ElementsAre(StartsWith(std::to_string(session->id()) +
                                     "\tbob\tMAIN\t127.0.0.1:5000\tno\ta\\x09client\tidle\t"
                                     "ReadRecord\tno\t2\t3\t40\t50\t")));
  EXPECT_THAT(items("lists"), ElementsAre(std::to_string(session->id()) + "\tbob\t2"));
  EXPECT_EQ(monitor(*elsewhere, "lists").find("bob"), std::string::npos);
}

TEST_F(Monitor, EndsASessionOfTheAccount) {
  bool killed = false;
  const auto session = agent().newSession(Right::Read, "bob");
  add(*session, killed);
  EXPECT_EQ(ask("kill " + std::to_string(session->id())),
            "session\tstate\n" + std::to_string(session->id()) + "\tending");
  EXPECT_TRUE(killed);
}

TEST_F(Monitor, EndsNoOtherSession) {
  EXPECT_EQ(ask("kill 999"), "error: there is no session 999");
  EXPECT_EQ(ask("kill " + std::to_string(admin().id())), "error: that is this session itself");
  bool killed = false;
  agent().agent().stores.createAccount("OTHER");
  const auto elsewhere = agent().newSession(Right::Admin, "eve", "OTHER");
  add(*elsewhere, killed);
  EXPECT_THAT(ask("kill " + std::to_string(elsewhere->id())), StartsWith("error: there is no"));
  EXPECT_FALSE(killed);
}

TEST_F(Monitor, ShowsWhoKeepsWhichLocks) {
  bool killed = false;
  const auto session = agent().newSession(Right::Read, "bob");
  add(*session, killed);
  lock(admin(), "F", "A", 2);
  lock(*session, "F", "B b", 1);
  lock(*session, "DICT F", "NAME", 1);
  lock(*session, "G", "A", 1);
  const std::string mine = "session " + std::to_string(admin().id());
  const std::string bobs = "session " + std::to_string(session->id());
  EXPECT_THAT(ask("locks"), StartsWith("file\tid\tkind\towner\twaiting\n"));
  EXPECT_THAT(items("locks F"),
              ElementsAre("F\tA\tupdate\t" + mine + "\t0", "F\tB b\tshared\t" + bobs + "\t0",
                          "DICT F\tNAME\tshared\t" + bobs + "\t0"));
  EXPECT_THAT(items("locks DICT F"), ElementsAre("DICT F\tNAME\tshared\t" + bobs + "\t0"));
  EXPECT_EQ(items("locks").size(), 4U);
  EXPECT_THAT(items("locks NO.SUCH"), IsEmpty());
}

TEST_F(Monitor, ReleasesALockOfAnotherSession) {
  const auto session = agent().newSession();
  lock(*session, "F", "an id", 2);
  EXPECT_EQ(admin().data().write("F", "an id", "x", 0), DataAccess::Locked);
  EXPECT_EQ(ask("unlock F an id"), "file\tid\treleased\nF\tan id\t1");
  EXPECT_EQ(admin().data().write("F", "an id", "x", 0), DataAccess::Done);
  EXPECT_EQ(ask("unlock F an id"), "file\tid\treleased\nF\tan id\t0");
}

TEST_F(Monitor, ReleasesAllWhoShareALock) {
  const auto one = agent().newSession();
  const auto two = agent().newSession();
  lock(*one, "F", "A", 1);
  lock(*two, "F", "A", 1);
  EXPECT_EQ(ask("unlock F A"), "file\tid\treleased\nF\tA\t2");
}

TEST_F(Monitor, LeavesAPreparedBranchItsLocks) {
  prepareBranch("6774:6271", "A");
  EXPECT_THAT(items("locks F"), ElementsAre("F\tA\tupdate\tbranch 1:6774:6271\t0"));
  EXPECT_THAT(ask("unlock F A"), StartsWith("error: branch 1:6774:6271 keeps this lock"));
  EXPECT_EQ(items("locks F").size(), 1U);
}

TEST_F(Monitor, ListsAndSettlesForgottenBranches) {
  prepareBranch("6774:01", "A");
  prepareBranch("6774:02", "B");
  EXPECT_THAT(ask("xa list"), StartsWith("branch\tstate\tlocks\tsince\n"));
  EXPECT_THAT(items("xa list"), ElementsAre(StartsWith("1:6774:01\tprepared\t1\t"),
                                            StartsWith("1:6774:02\tprepared\t1\t")));
  EXPECT_EQ(ask("xa commit 1:6774:01"), "branch\tstate\n1:6774:01\tcommitted");
  EXPECT_EQ(ask("xa rollback 1:6774:02"), "branch\tstate\n1:6774:02\trolled back");
  EXPECT_THAT(items("xa list"), IsEmpty());
  EXPECT_EQ(admin().data().exists("F", "A"), DataAccess::Done);
  EXPECT_EQ(admin().data().exists("F", "B"), DataAccess::NotDone);
  EXPECT_THAT(items("locks"), IsEmpty());
}

TEST_F(Monitor, SettlesABranchThatHasToBeTypedAsItIsShown) {
  prepareBranch("a\\b", "A");
  prepareBranch("a\\c", "B");
  EXPECT_THAT(items("xa list"),
              ElementsAre(StartsWith("1:a\\\\b\tprepared"), StartsWith("1:a\\\\c\tprepared")));
  EXPECT_THAT(ask("xa commit 1:a\\\\b"), HasSubstr("committed"));
  EXPECT_THAT(ask("xa commit 1:a\\c"), HasSubstr("committed")) << "or as it is";
}

TEST_F(Monitor, KnowsNoBranchThatIsNotListed) {
  EXPECT_EQ(ask("xa commit 1:none"), "error: there is no branch 1:none");
  EXPECT_EQ(ask("xa rollback none"), "error: there is no branch none");
}

TEST_F(Monitor, DoesNotSettleABranchThatStillRuns) {
  const auto session = agent().newSession();
  session->transactions().startBranch({7, "runs"});
  EXPECT_THAT(items("xa list"), ElementsAre(StartsWith("7:runs\tstarted")));
  EXPECT_THAT(ask("xa commit 7:runs"), StartsWith("error: "));
  EXPECT_TRUE(session->transactions().isOpen());
}

TEST_F(Monitor, CutsLongAnswersAtTheEndOfALine) {
  const std::string end(200, 'x');
  for (int i = 1000; i < 1400; ++i) lock(admin(), "F", (std::to_string(i) + end).c_str(), 1);
  const std::string text = ask("locks");
  EXPECT_LE(text.size(), kMostMonitoringBytes);
  EXPECT_GT(text.size(), kMostMonitoringBytes - 300);
  EXPECT_EQ(text.substr(text.rfind('\t')), "\t0") << "the last line is whole";
}

}  // namespace
}  // namespace nox::agent
