// The prompt, on a pseudo-terminal.
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

#include "tests/client/command/wire/nox_program.h"

namespace nox::command::test {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr const char* kCtrlC = "\x03";
constexpr const char* kCtrlD = "\x04";

class NoxPrompt : public NoxTest {
protected:
  static void SetUpTestSuite() {
    NoxTest::SetUpTestSuite();
    done({"create-file", "PROMPTED"});
    done({"write", "PROMPTED", "1", "a^b]c"});
  }

  /// SQL without an end, in the terminal of the client of that name, which the agent lists: it may
  /// still run what other clients have cancelled.
  static void startEndlessSql(Terminal& terminal, const std::string& client) {
    terminal.type(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT COUNT(*) FROM "
        "n;\n");
    for (bool runs = false; !runs;) {
      std::istringstream sessions(done({"monitor", "sessions", "-f", "tsv"}));
      for (std::string line; std::getline(sessions, line);) {
        runs = runs || (line.find("\t" + client + "\t") != std::string::npos &&
                        line.find("CompileAndExecute") != std::string::npos);
      }
    }
  }

  static Environment environmentOf(const std::string& client) {
    Environment named = environment();
    named["NOX_CLIENT_NAME"] = client;
    return named;
  }
};

TEST_F(NoxPrompt, RunsStatementsAndLeaves) {
  Terminal terminal({}, environment());
  terminal.waitFor("=> ");
  terminal.type("COUNT PROMPTED\n");
  terminal.waitFor("1 records counted");
  terminal.waitFor("=> ");
  terminal.type("SELECT ID\n");
  terminal.waitFor("-> ");
  terminal.type("FROM PROMPTED;\n");
  terminal.waitFor("ID\r\n--\r\n1\r\n");
  terminal.type("\\read PROMPTED 1\n");
  terminal.waitFor("└─ 2");
  terminal.type("SELECT PROMPTED\n");
  terminal.waitFor("a list of 1 ids is active");
  terminal.type("NONSENSE\n");
  terminal.waitFor("IE011");
  terminal.type("\\q\n");
  EXPECT_EQ(terminal.wait(), 0) << terminal.shown();
}

TEST_F(NoxPrompt, LeavesAtTheEndOfInput) {
  Terminal terminal({}, environment());
  terminal.waitFor("=> ");
  terminal.type("WHO\n");
  terminal.waitFor("=> ");
  terminal.type(kCtrlD);
  EXPECT_EQ(terminal.wait(), 0) << terminal.shown();
}

TEST_F(NoxPrompt, LeavesAtAnEndOfInputThatWasTypedAhead) {
  done({"create-file", "CLEARED"});
  Terminal terminal({}, environment());
  terminal.waitFor("=> ");
  terminal.type("CLEAR-FILE CLEARED\n");
  terminal.waitFor("?");
  terminal.type(std::string("Y\n") + kCtrlD);
  EXPECT_EQ(terminal.wait(), 0) << terminal.shown();
}

TEST_F(NoxPrompt, TakesLettersOfAnyScriptInAnyLocale) {
  Environment plain = environment();
  plain["LC_ALL"] = "C";
  Terminal terminal({}, plain);
  terminal.waitFor("=> ");
  terminal.type("SELECT '東é' AS a;\n");
  terminal.waitFor("---\r\n東é\r\n");
  terminal.type("\\q\n");
  EXPECT_EQ(terminal.wait(), 0) << terminal.shown();
}

TEST_F(NoxPrompt, BeepsAtBytesThatAreNoLetters) {
  Terminal terminal({}, environment());
  terminal.waitFor("=> ");
  terminal.type("\xE9");
  terminal.type("!");
  terminal.waitFor("\a");
  terminal.type("\x15WHO\n");  // instead of the line
  terminal.waitFor("ann\r\n");
  terminal.type("\\q\n");
  EXPECT_EQ(terminal.wait(), 0) << terminal.shown();
}

TEST_F(NoxPrompt, SwitchesFormsAndTiming) {
  Terminal terminal({}, environment());
  terminal.waitFor("=> ");
  terminal.type("\\x\n");
  terminal.waitFor("=> ");
  terminal.type("SELECT ID FROM PROMPTED;\n");
  terminal.waitFor("-- 1\r\nID  1\r\n");
  terminal.type("\\timing\n");
  terminal.waitFor("=> ");
  terminal.type("WHO\n");
  terminal.waitFor("Time: ");
  terminal.type("\\?\n");
  terminal.waitFor("\\rollback");
  terminal.type("\\q\n");
  EXPECT_EQ(terminal.wait(), 0) << terminal.shown();
}

TEST_F(NoxPrompt, ComesBackFromTheExpandedFormToTheOneBefore) {
  Terminal terminal({"-f", "csv"}, environment());
  terminal.waitFor("=> ");
  terminal.type("\\x\n");
  terminal.waitFor("=> ");
  terminal.type("\\x\n");
  terminal.waitFor("=> ");
  terminal.type("SELECT ID, 2 AS B FROM PROMPTED;\n");
  terminal.waitFor("ID,B\r\n1,2\r\n");
  terminal.type("\\format expanded\n");
  terminal.waitFor("=> ");
  terminal.type("\\x\n");
  terminal.waitFor("=> ");
  terminal.type("SELECT ID, 3 AS C FROM PROMPTED;\n");
  terminal.waitFor("ID,C\r\n1,3\r\n");
  terminal.type("\\q\n");
  EXPECT_EQ(terminal.wait(), 0) << terminal.shown();
}

TEST_F(NoxPrompt, ShowsAnOpenTransaction) {
  Terminal terminal({}, environment());
  terminal.waitFor("=> ");
  terminal.type("\\begin\n");
  terminal.waitFor("*=> ");
  terminal.type("\\rollback\n");
  terminal.waitFor("MAIN=> ");
  terminal.type("\\q\n");
  EXPECT_EQ(terminal.wait(), 0) << terminal.shown();
}

TEST_F(NoxPrompt, CompletesWhatTheServerKnows) {
  done({"create-file", "MAILED"});
  done({"write", "DICT MAILED", "ZIP", "D^1^^Zip^5L^S"});
  done({"write", "MAILED", "1", "0150"});
  Terminal terminal({}, environment());
  terminal.waitFor("=> ");
  terminal.type("COUNT PROM\t\n");
  terminal.waitFor("1 records counted");
  terminal.waitFor("=> ");
  // Home, and forward to behind the z.
  terminal.type("SELECT z FROM mailed;\x01" + std::string(8, '\x06') + "\t\n");
  terminal.waitFor("ZIP\r\n----\r\n0150\r\n");
  terminal.type("\\q\n");
  EXPECT_EQ(terminal.wait(), 0) << terminal.shown();
}

TEST_F(NoxPrompt, AsksWhatACommandAsks) {
  done({"create-file", "ASKED"});
  Terminal terminal({}, environment());
  terminal.waitFor("=> ");
  terminal.type("DELETE-FILE ASKED\n");
  terminal.waitFor("? ");
  terminal.type("Y\n");
  terminal.waitFor("=> ");
  terminal.type("\\q\n");
  EXPECT_EQ(terminal.wait(), 0) << terminal.shown();
  EXPECT_THAT(done({"files"}), Not(HasSubstr("ASKED")));
}

TEST_F(NoxPrompt, AsksForThePasswordWithoutShowingIt) {
  Environment asked = environment();
  asked.erase("NOX_PASSWORD_FILE");
  Terminal terminal({}, asked);
  terminal.waitFor("Password of ann: ");
  terminal.type(std::string(agent::test::NoxdProcess::kPassword) + "\n");
  terminal.waitFor("=> ");
  terminal.type("WHO\n");
  terminal.waitFor("ann\r\n");
  terminal.type("\\q\n");
  EXPECT_EQ(terminal.wait(), 0) << terminal.shown();
  EXPECT_THAT(terminal.shown(), Not(HasSubstr(agent::test::NoxdProcess::kPassword)));
  EXPECT_THAT(contentOf(".local/state/nox/history"),
              Not(HasSubstr(agent::test::NoxdProcess::kPassword)));
}

TEST_F(NoxPrompt, KeepsItsHistoryForItsUserAlone) {
  {
    Terminal terminal({}, environment());
    terminal.waitFor("=> ");
    terminal.type("COUNT PROMPTED\n");
    terminal.waitFor("counted");
    terminal.waitFor("=> ");
    terminal.type("SELECT '\\ 東' AS LONG_NAME;\n");
    terminal.waitFor("-\r\n\\ 東");
    terminal.waitFor("=> ");
    terminal.type("\\q\n");
    EXPECT_EQ(terminal.wait(), 0) << terminal.shown();
  }
  struct stat status {};
  ASSERT_EQ(stat(file(".local/state/nox/history").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  Terminal terminal({}, environment());
  terminal.waitFor("=> ");
  terminal.type("\x10\x10\n");  // up, up: \q came last
  terminal.waitFor("-\r\n\\ 東");
  terminal.waitFor("=> ");
  terminal.type("\x10\x10\x10\x10\n");
  terminal.waitFor("1 records counted");
  terminal.type("\\q\n");
  EXPECT_EQ(terminal.wait(), 0) << terminal.shown();
}

TEST_F(NoxPrompt, KeepsTheHistoryOfATerminalThatIsClosedAndOfTwoAtATime) {
  Environment apart = environment();
  apart["XDG_STATE_HOME"] = file("apart");
  Terminal one({}, apart);
  one.waitFor("=> ");
  Terminal other({}, apart);
  other.waitFor("=> ");
  one.type("COUNT  PROMPTED\n");
  one.waitFor("counted");
  other.type("SELECT ID\n");
  other.waitFor("-> ");
  other.type("FROM PROMPTED;\n");
  other.waitFor("-\r\n");
  one.type("LIST PROMPTED\n");
  one.waitFor("listed");
  // As the editor writes them: what would divide words or lines is escaped.
  EXPECT_EQ(contentOf("apart/nox/history"),
            "_HiStOrY_V2_\n"
            "COUNT\\040\\040PROMPTED\n"
            "SELECT\\040ID\\012FROM\\040PROMPTED;\n"
            "LIST\\040PROMPTED\n");
}

TEST_F(NoxPrompt, KeepsTheLatestThousandOfALongHistory) {
  Environment longOne = environment();
  longOne["XDG_STATE_HOME"] = file("long");
  std::string history = "_HiStOrY_V2_\n";
  for (int i = 1; i <= 2001; ++i) history += "WHO\\040" + std::to_string(i) + "\n";
  mkdir(file("long").c_str(), 0700);
  mkdir(file("long/nox").c_str(), 0700);
  write("long/nox/history", history);
  Terminal terminal({}, longOne);
  terminal.waitFor("=> ");
  terminal.type("\\q\n");
  EXPECT_EQ(terminal.wait(), 0) << terminal.shown();
  const std::string kept = contentOf("long/nox/history");
  EXPECT_EQ(std::count(kept.begin(), kept.end(), '\n'), 1002) << "a heading, 1000, and \\q";
  EXPECT_THAT(kept, StartsWith("_HiStOrY_V2_\nWHO\\0401002\n"));
  EXPECT_THAT(kept, EndsWith("WHO\\0402001\n\\134q\n"));
}

TEST_F(NoxPrompt, TheFirstCtrlCCancelsTheSecondLeaves) {
  Terminal terminal({}, environmentOf("cancels"));
  terminal.waitFor("=> ");
  startEndlessSql(terminal, "cancels");
  terminal.type(kCtrlC);
  terminal.waitFor("interrupted");
  terminal.waitFor("=> ");
  terminal.type("WHO\n");  // on a new connection
  terminal.waitFor("ann\r\n");
  terminal.waitFor("=> ");
  terminal.type("half a line");
  terminal.type(kCtrlC);
  terminal.waitFor("=> ");
  terminal.type(kCtrlC);
  EXPECT_EQ(terminal.wait(), 4) << terminal.shown();
}

TEST_F(NoxPrompt, CtrlCLeavesBehindAStatementThatItInterrupted) {
  Terminal terminal({}, environmentOf("leaves"));
  terminal.waitFor("=> ");
  startEndlessSql(terminal, "leaves");
  terminal.type(kCtrlC);
  terminal.waitFor("interrupted");
  terminal.waitFor("=> ");
  terminal.type(kCtrlC);
  EXPECT_EQ(terminal.wait(), 4) << terminal.shown();
}

TEST_F(NoxPrompt, CtrlCDropsTheLineAndKeepsTheTransaction) {
  Terminal terminal({}, environment());
  terminal.waitFor("=> ");
  terminal.type("\\begin\n");
  terminal.waitFor("*=> ");
  terminal.type("\\write PROMPTED kept written\n");
  terminal.waitFor("*=> ");
  terminal.type("half a line");
  terminal.type(kCtrlC);
  terminal.waitFor("*=> ");
  terminal.type("\\commit\n");
  terminal.waitFor("MAIN=> ");
  terminal.type("\\q\n");
  EXPECT_EQ(terminal.wait(), 0) << terminal.shown();
  EXPECT_EQ(done({"read", "PROMPTED", "kept", "--text"}), "written\n") << terminal.shown();
  done({"delete", "PROMPTED", "kept"});
}

TEST_F(NoxPrompt, CtrlCEndsWaitingForInput) {
  done({"create-file", "AWAITED"});
  Terminal terminal({"load", "AWAITED", "--from-format", "jsonl", "--batch", "1"}, environment());
  terminal.type("{\"id\": \"1\", \"record\": []}\n");
  while (nox({"exists", "AWAITED", "1"}).status != 0) {
  }
  terminal.type(kCtrlC);
  EXPECT_EQ(terminal.wait(), 4) << terminal.shown();
}

TEST_F(NoxPrompt, CtrlCEndsWaitingForAServerThatSaysNothing) {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  ASSERT_EQ(bind(listener, generic, size), 0);
  ASSERT_EQ(listen(listener, 1), 0);
  ASSERT_EQ(getsockname(listener, generic, &size), 0);
  Environment silent = environment();
  silent["NOX_URI"] = "nox://ann@127.0.0.1:" + std::to_string(ntohs(address.sin_port)) +
                      "/MAIN?tls=off&connect_timeout=10m";
  Terminal terminal({"ping"}, silent);
  const int connection = accept(listener, nullptr, nullptr);
  terminal.type(kCtrlC);
  EXPECT_EQ(terminal.wait(), 4) << terminal.shown();
  close(connection);
  close(listener);
}

}  // namespace
}  // namespace nox::command::test
