// Exit statuses, where output goes, and what never appears there.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

#include "tests/client/command/wire/nox_program.h"

namespace nox::command::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class NoxStatuses : public NoxTest {};

TEST_F(NoxStatuses, WrongUsageIs2) {
  for (const Words& words :
       {Words{"nonsense"}, Words{"read"}, Words{"ping", "--nonsense"},
        Words{"ping", "--count", "none"}, Words{"begin"}, Words{"ping", "--uri", "http://x"},
        Words{"ping", "--timeout", "soon"}}) {
    const Outcome outcome = nox(words);
    EXPECT_EQ(outcome.status, 2) << words.back() << outcome.err;
    EXPECT_THAT(outcome.err, StartsWith("nox: "));
    EXPECT_EQ(outcome.out, "");
  }
}

TEST_F(NoxStatuses, NoConnectionIs3) {
  Environment refused = environment();
  // A port that was free a moment ago, and on which nobody listens.
  refused["NOX_URI"] = "nox://ann@127.0.0.1:1/MAIN?tls=off&connect_timeout=5s";
  const Outcome outcome = runNox({"ping"}, refused);
  EXPECT_EQ(outcome.status, 3);
  EXPECT_THAT(outcome.err, HasSubstr("08001"));
}

TEST_F(NoxStatuses, NoLoginIs3) {
  Environment wrong = environment();
  wrong["NOX_PASSWORD_FILE"] = write("wrong-password", "wrong\n");
  chmod(file("wrong-password").c_str(), S_IRUSR | S_IWUSR);
  const Outcome outcome = runNox({"ping"}, wrong);
  EXPECT_EQ(outcome.status, 3);
  EXPECT_THAT(outcome.err, HasSubstr("28000"));
}

TEST_F(NoxStatuses, ACertificateThatNobodyVouchesForIs3) {
  Environment untrusted = environment();
  untrusted["NOX_URI"] = "nox://ann@localhost:" + std::to_string(noxd().tlsPort()) + "/MAIN";
  const Outcome outcome = runNox({"ping"}, untrusted);
  EXPECT_EQ(outcome.status, 3);
  EXPECT_THAT(outcome.err, HasSubstr("certificate"));
}

TEST_F(NoxStatuses, APasswordFileThatOthersMayReadIsRefused) {
  Environment open = environment();
  open["NOX_PASSWORD_FILE"] = write("open-password", "correct horse\n");
  chmod(file("open-password").c_str(), 0644);
  const Outcome outcome = runNox({"ping"}, open);
  EXPECT_NE(outcome.status, 0);
  EXPECT_THAT(outcome.err, HasSubstr("open-password"));
}

TEST_F(NoxStatuses, WithoutAPasswordAndATerminalIs3) {
  Environment none = environment();
  none.erase("NOX_PASSWORD_FILE");
  const Outcome outcome = runNox({"ping"}, none);
  EXPECT_EQ(outcome.status, 3);
  EXPECT_THAT(outcome.err, HasSubstr("no password"));
}

TEST_F(NoxStatuses, ARefusedRequestIs1) {
  const Outcome outcome = nox({"read", "MISSING", "1"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, StartsWith("nox: IE005"));
  EXPECT_EQ(outcome.out, "");
}

TEST_F(NoxStatuses, HelpAndVersionAre0) {
  const Outcome help = runNox({"--help"}, {});
  EXPECT_EQ(help.status, 0);
  EXPECT_THAT(help.out, HasSubstr("Subcommands"));
  EXPECT_EQ(help.err, "");
  EXPECT_THAT(runNox({"read", "--help"}, {}).out, StartsWith("Usage: nox read "));
  EXPECT_THAT(runNox({"--version"}, {}).out, StartsWith("nox 1."));
}

TEST_F(NoxStatuses, TheFirstErrorEndsAScript) {
  const Outcome outcome = nox({}, "WHO\nNONSENSE\nWHO\n");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, outcome.out.substr(0, outcome.out.find('\n') + 1)) << "one WHO";
  EXPECT_THAT(outcome.err, HasSubstr("line 2"));
}

TEST_F(NoxStatuses, AScriptSharesOneSession) {
  done({"create-file", "SHARED"});
  const std::string script =
      "\\begin\n"
      "\\write SHARED a 1\n"
      "\\exists SHARED a\n"
      "COUNT SHARED\n"
      "\\rollback\n"
      "COUNT SHARED\n"
      "# a comment\n"
      "SELECT COUNT(*) AS N\n"
      "FROM SHARED;\n"
      "\\q\n"
      "NONSENSE\n";
  EXPECT_EQ(done({"--script", write("script", script)}),
            "1 records counted\n0 records counted\nN\n0\n");
  EXPECT_THAT(done({"--script", file("script"), "--echo"}), StartsWith("=> \\begin\n"));
}

TEST_F(NoxStatuses, AScriptMayBeginWithWhatIsACommandOrSql) {
  done({"create-file", "EITHER"});
  EXPECT_THAT(nox({}, "SELECT EITHER\nNONSENSE\n").err, HasSubstr("line 2"));
  EXPECT_EQ(nox({}, "SELECT ID\nFROM EITHER;\n").out, "ID\n");
  EXPECT_EQ(nox({"-H", "127.0.0.1:1"}, "SELECT EITHER\n").status, 3);
}

TEST_F(NoxStatuses, WhatAScriptFromStandardInputRunsDoesNotReadItToo) {
  done({"create-file", "SCRIPTED"});
  done({"write", "SCRIPTED", "a", "kept"});
  for (const char* statement : {"\\write SCRIPTED a", "\\load SCRIPTED - --from-format jsonl",
                                "\\load SCRIPTED --from-format jsonl", "\\sql -"}) {
    const Outcome outcome = nox({}, statement + std::string("\nCOUNT SCRIPTED\n"));
    EXPECT_EQ(outcome.status, 2) << statement;
    EXPECT_EQ(outcome.out, "") << statement;
    EXPECT_THAT(outcome.err, HasSubstr("standard input is the script")) << statement;
  }
  EXPECT_EQ(done({"read", "SCRIPTED", "a", "--text"}), "kept\n");
}

TEST_F(NoxStatuses, WhatAScriptInAFileRunsReadsStandardInput) {
  done({"create-file", "PIPED"});
  done({"--script", write("script", "\\write PIPED a\n")}, "x");
  EXPECT_EQ(done({"read", "PIPED", "a", "--text"}), "x\n");
}

TEST_F(NoxStatuses, DataGoesToTheFileThatWasNamed) {
  const Outcome outcome = nox({"login", "--output", file("printed")});
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(contentOf("printed"), HasSubstr("user\tann\n"));
  EXPECT_EQ(nox({"login", "--output", "/nonexistent/file"}).status, 1);
}

TEST_F(NoxStatuses, WhatFailsPrintsNothing) {
  Environment refused = environment();
  refused["NOX_URI"] = "nox://ann@127.0.0.1:1/MAIN?tls=off&connect_timeout=5s";
  for (const Words& words : {Words{"files"}, Words{"xa", "list"}, Words{"files", "-f", "json"}}) {
    const Outcome outcome = runNox(words, refused);
    EXPECT_EQ(outcome.status, 3) << words[0];
    EXPECT_EQ(outcome.out, "") << words[0];
  }
  const Outcome wrong = nox({"conv", "D4-", "0", "abc", "-f", "json"});
  EXPECT_EQ(wrong.status, 1);
  EXPECT_EQ(wrong.out, "");
  done({"create-file", "CHOSEN"});
  const Outcome unselected = nox({"export", "CHOSEN", "-f", "csv", "WITH", "NOTHING", "=", "1"});
  EXPECT_EQ(unselected.status, 1);
  EXPECT_EQ(unselected.out, "");
}

TEST_F(NoxStatuses, WhatFailsLeavesTheOutputFileAsItWas) {
  Environment refused = environment();
  refused["NOX_URI"] = "nox://ann@127.0.0.1:1/MAIN?tls=off&connect_timeout=5s";
  const std::string kept = write("kept", "precious\n");
  EXPECT_EQ(runNox({"files", "-o", kept}, refused).status, 3);
  EXPECT_EQ(nox({"read", "MISSING", "1", "-o", kept}).status, 1);
  EXPECT_EQ(nox({"-o", kept}, "NONSENSE\n").status, 1);
  done({"create-file", "OFFERED"});
  EXPECT_EQ(nox({"export", "OFFERED", "-f", "csv", "-o", kept, "WITH", "NOTHING", "=", "1"}).status,
            1);
  EXPECT_EQ(contentOf("kept"), "precious\n");
  EXPECT_EQ(nox({"read", "MISSING", "1", "-o", file("unmade")}).status, 1);
  EXPECT_NE(access(file("unmade").c_str(), F_OK), 0);
}

TEST_F(NoxStatuses, WhatSucceedsWithoutDataEmptiesTheOutputFile) {
  done({"create-file", "HOLLOW", "-o", write("hollow", "old\n")});
  EXPECT_EQ(contentOf("hollow"), "");
  done({"-o", write("hollow-too", "old\n")}, "# nothing\n");
  EXPECT_EQ(contentOf("hollow-too"), "");
}

TEST_F(NoxStatuses, NothingIsDoneForAnOutputFileThatCannotBe) {
  const Outcome outcome = nox({"create-file", "UNPRINTED", "-o", "/nonexistent/file"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "nox: cannot write /nonexistent/file: No such file or directory\n");
  EXPECT_THAT(done({"files"}), Not(HasSubstr("UNPRINTED")));
}

TEST_F(NoxStatuses, AFullDiskIsReported) {
  const Outcome outcome = nox({"login", "--output", "/dev/full"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("No space left on device"));
}

TEST_F(NoxStatuses, AClosedStandardOutputIsReportedAndNoPlaceForData) {
  std::string command = "exec env -i";
  for (const auto& [name, value] : environment()) {
    command.append(" ").append(name).append("='").append(value).append("'");
  }
  command += std::string(" ") + NOX_BINARY;
  const int login = std::system((command + " login >&- 2>'" + file("complaint") + "'").c_str());
  EXPECT_EQ(WEXITSTATUS(login), 1);
  EXPECT_THAT(contentOf("complaint"), HasSubstr("cannot write the output"));
  const int help = std::system((command + " --help >/dev/full 2>&1").c_str());
  EXPECT_EQ(WEXITSTATUS(help), 1);
}

TEST_F(NoxStatuses, ColourIsForTerminalsUnlessAsked) {
  EXPECT_THAT(done({"login", "-f", "table"}), Not(HasSubstr("\x1b[")));
  EXPECT_THAT(done({"login", "-f", "table", "--color", "always"}), HasSubstr("\x1b[1m"));
}

TEST_F(NoxStatuses, TheTraceShowsNoPayloadUnlessAsked) {
  Environment traced = environment();
  traced["NOX_TRACE"] = file("trace");
  done({"create-file", "TRACED"});
  EXPECT_EQ(runNox({"write", "TRACED", "1", "sensitive"}, traced).status, 0);
  const std::string trace = contentOf("trace");
  EXPECT_THAT(trace, HasSubstr("WriteRecord"));
  EXPECT_THAT(trace, Not(HasSubstr("sensitive")));
  EXPECT_THAT(trace, Not(HasSubstr("correct horse")));
}

TEST_F(NoxStatuses, ProgressGoesToStandardError) {
  std::string lines;
  for (int i = 0; i < 2000; ++i) {
    lines += "{\"id\": \"" + std::to_string(i) + "\", \"record\": [\"x\"]}\n";
  }
  const Outcome outcome =
      nox({"load", "--create", "MANY", "--from-format", "jsonl", "--progress", "plain"}, lines);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, HasSubstr("nox: 2000 loaded\n"));
}

TEST_F(NoxStatuses, NumbersAndCaseDoNotFollowTheLocale) {
  done({"create-file", "LOCALE"});
  done({"write", "LOCALE", "i", "ISI"});
  for (const char* locale : {"C", "C.UTF-8", "de_DE.UTF-8", "tr_TR.UTF-8"}) {
    Environment abroad = environment();
    abroad["LC_ALL"] = locale;
    const Outcome outcome =
        runNox({}, abroad, "\\format csv\nselect 1.5 as n, id from locale;\ncount LOCALE\n");
    EXPECT_EQ(outcome.status, 0) << locale << ": " << outcome.err;
    EXPECT_EQ(outcome.out, "n,ID\n1.5,i\n1 records counted\n") << locale;
  }
}

}  // namespace
}  // namespace nox::command::test
