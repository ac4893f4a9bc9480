// Every subcommand against a real agent: what it prints, and how it ends.
#include <gmock/gmock.h>

#include "tests/client/command/wire/nox_program.h"

namespace nox::command::test {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;

class NoxSubcommands : public NoxTest {
protected:
  static void SetUpTestSuite() {
    NoxTest::SetUpTestSuite();
    done({"create-file", "ORDERS"});
    done({"load", "DICT ORDERS", "--from-format", "jsonl"},
         R"({"id": "NAME", "record": ["D", "1", "", "NAME", "10L", "S"]})"
         "\n"
         R"({"id": "TOTAL", "record": ["D", "2", "MD2", "TOTAL", "8R", "S"]})"
         "\n"
         R"({"id": "LINES", "record": ["D", "3", "", "LINES", "10L", "M"]})"
         "\n");
    done({"load", "ORDERS", "--from-format", "jsonl"},
         R"({"id": "1", "record": ["Ann", "1250", ["nuts", "bolts"]]})"
         "\n"
         R"({"id": "2", "record": ["Bob", "99", [["tea", "green"]]]})"
         "\n");
  }
};

TEST_F(NoxSubcommands, PingTellsHowLongEachEchoTook) {
  EXPECT_THAT(done({"ping", "--count", "2"}),
              MatchesRegex("ECHO\tMS\n1\t[0-9]+\\.[0-9]{3}\n2\t[0-9]+\\.[0-9]{3}\n"));
}

TEST_F(NoxSubcommands, LoginSaysToWhom) {
  const std::string text = done({"login"});
  EXPECT_THAT(text, HasSubstr("\nserver\tnoxd "));
  EXPECT_THAT(text, HasSubstr("\nencrypted\tyes\n"));
  EXPECT_THAT(text, HasSubstr("\nuser\tann\n"));
  EXPECT_THAT(text, HasSubstr("\naccount\tMAIN\n"));
}

TEST_F(NoxSubcommands, FilesAreListedAndCreated) {
  done({"create-file", "MADE"});
  EXPECT_THAT(done({"files"}), HasSubstr("\nMADE\n"));
  const Outcome again = nox({"create-file", "MADE"});
  EXPECT_EQ(again.status, 1);
  EXPECT_THAT(again.err, HasSubstr("IE011"));
  done({"run", "DELETE-FILE", "MADE", "(Y"});
  EXPECT_THAT(done({"files"}), Not(HasSubstr("MADE")));
}

TEST_F(NoxSubcommands, ReadPrintsARecordInTheFormThatWasAskedFor) {
  EXPECT_EQ(done({"read", "ORDERS", "1"}),
            "Ann\xFE"
            "1250\xFEnuts\xFD"
            "bolts");
  EXPECT_EQ(done({"read", "--text", "ORDERS", "1", "2"}),
            "Ann^1250^nuts]bolts\nBob^99^tea\\green\n");
  EXPECT_EQ(done({"read", "ORDERS", "1", "-f", "json"}),
            "[\"Ann\",\"1250\",[\"nuts\",\"bolts\"]]\n");
  EXPECT_EQ(done({"read", "ORDERS", "2", "-f", "csv"}),
            "ID,ATTRIBUTE,NAME,CONTENT\n2,1,NAME,Bob\n2,2,TOTAL,99\n2,3,LINES,tea\\green\n");
  EXPECT_EQ(done({"read", "--tree", "ORDERS", "1"}),
            "1\n├─ 1 NAME  Ann\n├─ 2 TOTAL  1250\n└─ 3 LINES\n   ├─ 3.1  nuts\n   └─ 3.2  bolts\n");
}

TEST_F(NoxSubcommands, ReadGoesOnBehindARecordThatIsNotThere) {
  const Outcome outcome = nox({"read", "--text", "ORDERS", "0", "2"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "Bob^99^tea\\green\n");
  EXPECT_EQ(outcome.err, "nox: there is no record \"0\" in ORDERS\n");
}

TEST_F(NoxSubcommands, WriteTakesTextBytesAndSingleFields) {
  done({"write", "ORDERS", "w", "a^b]c"});
  EXPECT_EQ(done({"read", "ORDERS", "w"}),
            "a\xFE"
            "b\xFD"
            "c");
  done({"write", "ORDERS", "w"}, std::string("\0\xFF\n", 3));
  EXPECT_EQ(done({"read", "ORDERS", "w"}), std::string("\0\xFF\n", 3));
  done({"write", "ORDERS", "w", "--from", write("body", "from a file")});
  EXPECT_EQ(done({"read", "ORDERS", "w"}), "from a file");
  done({"write", "ORDERS", "w", "--set", "3=x", "--set", "3.2=y", "--set", "3.2.2=z"});
  EXPECT_EQ(done({"read", "--text", "ORDERS", "w"}), "from a file^^x]y\\z\n");
  done({"delete", "ORDERS", "w"});
}

TEST_F(NoxSubcommands, WriteSetTakesTheTextAsItIs) {
  done({"write", "ORDERS", "s", "a^b^c"});
  done({"write", "ORDERS", "s", "--set", "2=p]x^y\\z~41"});
  EXPECT_EQ(done({"read", "ORDERS", "s"}),
            "a\xFEp]x^y\\z~41\xFE"
            "c");
  done({"delete", "ORDERS", "s"});
}

TEST_F(NoxSubcommands, WriteSetRefusesARecordThatIsNotThere) {
  const Outcome outcome = nox({"write", "ORDERS", "none", "--set", "2=x"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "nox: there is no record \"none\" in ORDERS\n");
  EXPECT_EQ(nox({"exists", "ORDERS", "none"}).status, 1);
  Terminal terminal({}, environment());
  terminal.waitFor("MAIN=> ");
  terminal.type("\\write ORDERS none --set 2=x\n");
  terminal.waitFor("there is no record \"none\"");
  terminal.waitFor("MAIN=> ");
  EXPECT_THAT(nox({"read", "--lock", "update", "--no-wait", "ORDERS", "none"}).err,
              HasSubstr("there is no record"))
      << "the session keeps no lock on it";
}

TEST_F(NoxSubcommands, WriteNewRefusesARecordThatIsThere) {
  EXPECT_EQ(nox({"write", "--new", "ORDERS", "1", "x"}).status, 1);
  EXPECT_EQ(done({"read", "--text", "ORDERS", "1"}), "Ann^1250^nuts]bolts\n");
  done({"write", "--new", "ORDERS", "n", "x"});
  done({"delete", "ORDERS", "n"});
}

TEST_F(NoxSubcommands, DeleteAndExistsTellByTheirStatus) {
  done({"write", "ORDERS", "d", "x"});
  EXPECT_EQ(nox({"exists", "ORDERS", "d"}).status, 0);
  done({"delete", "ORDERS", "d"});
  EXPECT_EQ(nox({"exists", "ORDERS", "d"}).status, 1);
  const Outcome again = nox({"delete", "ORDERS", "d"});
  EXPECT_EQ(again.status, 1);
  EXPECT_EQ(again.err, "nox: there is no record \"d\" in ORDERS\n");
}

TEST_F(NoxSubcommands, BracketsAndCommasInAnArgumentAreItsOwn) {
  done({"write", "ORDERS", "x", "precious"});
  done({"write", "ORDERS", "[x]", "bracketed"});
  EXPECT_EQ(done({"read", "--text", "ORDERS", "[x]", "x"}), "bracketed\nprecious\n");
  done({"delete", "ORDERS", "[x]"});
  EXPECT_EQ(done({"read", "--text", "ORDERS", "x"}), "precious\n");
  done({"delete", "ORDERS", "x"});
  EXPECT_EQ(done({"sql", "SELECT ? AS A, ? AS B", "[]", "[a,b]", "-f", "csv"}),
            "A,B\n[],\"[a,b]\"\n");
  EXPECT_EQ(done({"conv", "MCU", "[a,b]"}), "DATA\tRESULT\n[a,b]\t[A,B]\n");
}

TEST_F(NoxSubcommands, SelectPrintsIdsPageByPage) {
  EXPECT_EQ(done({"select", "ORDERS", "BY-DSND", "TOTAL"}), "ID\n1\n2\n");
  EXPECT_EQ(done({"select", "ORDERS", "WITH", "NAME", "=", "\"Bob\"", "--records", "-f", "csv"}),
            "ID,RECORD\n2,Bob^99^tea\\green\n");
  EXPECT_EQ(done({"select", "--sorted", "--page-size", "1", "ORDERS"}), "ID\n1\n2\n");
}

TEST_F(NoxSubcommands, SqlPrintsRowsAndCountsChanges) {
  EXPECT_EQ(done({"sql", "SELECT ID, NAME FROM ORDERS WHERE NAME = ?", "Ann", "-f", "csv"}),
            "ID,NAME\n1,Ann\n");
  EXPECT_EQ(done({"sql", "SELECT ?, ?", "\\N", "", "-f", "jsonl"}).substr(0, 6), "{\"?\":n");
  const Outcome made = nox({"sql", "CREATE TABLE t (a INTEGER PRIMARY KEY, b TEXT)"});
  EXPECT_EQ(made.status, 0);
  EXPECT_EQ(made.out, "");
  const Outcome inserted = nox({"sql", "INSERT INTO t VALUES (1, 'x'), (2, NULL)"});
  EXPECT_EQ(inserted.err, "nox: 2 rows\n");
  EXPECT_EQ(done({"sql", "-", "-f", "tsv"}, "SELECT a, b\nFROM t ORDER BY a"),
            "a\tb\n1\tx\n2\t\\N\n");
  const Outcome wrong = nox({"sql", "SELECT nonsense FROM t"});
  EXPECT_EQ(wrong.status, 1);
  EXPECT_THAT(wrong.err, StartsWith("nox: 42S22"));
  done({"sql", "DROP TABLE t"});
}

TEST_F(NoxSubcommands, SqlNumbersAreNumbers) {
  done({"sql", "CREATE TABLE u (i INTEGER, r REAL, n DECIMAL(10,2), c VARCHAR(9))"});
  done({"sql", "INSERT INTO u VALUES (42, 1.5, 7, '42'), (NULL, -2.25, 'soon', '007')"});
  EXPECT_EQ(done({"sql", "SELECT * FROM u ORDER BY c DESC", "-f", "jsonl"}),
            "{\"i\":42,\"r\":1.5,\"n\":7,\"c\":\"42\"}\n"
            "{\"i\":null,\"r\":-2.25,\"n\":\"soon\",\"c\":\"007\"}\n");
  EXPECT_EQ(done({"sql", "SELECT i, c, r FROM u ORDER BY c DESC", "-f", "table"}),
            " i  c        r\n"
            "--  ---  -----\n"
            "42  42     1.5\n"
            "    007  -2.25\n");
  done({"sql", "DROP TABLE u"});
}

TEST_F(NoxSubcommands, RunPrintsWhatACommandPrints) {
  EXPECT_EQ(done({"run", "COUNT", "ORDERS", "WITH", "TOTAL", ">", "1.00"}), "1 records counted\n");
  EXPECT_EQ(done({"run", "--rows", "-f", "csv", "SORT", "ORDERS", "NAME", "TOTAL"}),
            "@ID,NAME,TOTAL\n1,Ann,12.50\n2,Bob,0.99\n");
  const Outcome wrong = nox({"run", "NONSENSE"});
  EXPECT_EQ(wrong.status, 1);
  EXPECT_THAT(wrong.err, HasSubstr("NONSENSE"));
}

TEST_F(NoxSubcommands, RunAnswersQuestionsAndRefusesToGuess) {
  done({"create-file", "ASKED"});
  done({"write", "ASKED", "1", "x"});
  const Outcome unanswered = nox({"run", "CLEAR-FILE", "ASKED"});
  EXPECT_EQ(unanswered.status, 1);
  EXPECT_THAT(unanswered.err, HasSubstr("nobody to answer"));
  EXPECT_EQ(done({"run", "COUNT", "ASKED"}), "1 records counted\n");
  EXPECT_THAT(done({"run", "CLEAR-FILE", "ASKED", "--answer", "Y"}), HasSubstr("Y\n"));
  EXPECT_EQ(done({"run", "COUNT", "ASKED"}), "0 records counted\n");
  done({"run", "DELETE-FILE ASKED (Y"});
}

TEST_F(NoxSubcommands, CallPrintsTheParametersAsTheyWereLeft) {
  done({"create-file", "NOX.SUBS"});
  done({"write", "NOX.SUBS", "ADD"}, "args[3] = args[1] + args[2]");
  EXPECT_EQ(done({"call", "ADD", "2", "3", "\\N", "-f", "csv"}),
            "PARAMETER,VALUE\n1,2\n2,3\n3,5\n");
  done({"write", "NOX.SUBS", "STOP"}, "nox.abort()");
  const Outcome aborted = nox({"call", "STOP"});
  EXPECT_EQ(aborted.status, 1);
  EXPECT_EQ(aborted.err, "nox: the subroutine ended itself\n");
  EXPECT_THAT(nox({"call", "MISSING"}).err, StartsWith("nox: IE004"));
}

TEST_F(NoxSubcommands, ConvConvertsBothWays) {
  EXPECT_EQ(done({"conv", "MD2", "--", "-150", "7"}), "DATA\tRESULT\n-150\t-1.50\n7\t0.07\n");
  EXPECT_EQ(done({"conv", "--input", "MD2", "1.5", "-f", "raw"}), "150\n");
  EXPECT_EQ(nox({"conv", "NONSENSE", "1"}).status, 1);
}

TEST_F(NoxSubcommands, ExportGivesWhatLoadTakes) {
  const std::string lines = done({"export", "ORDERS"});
  EXPECT_EQ(lines,
            "{\"id\":\"1\",\"record\":[\"Ann\",\"1250\",[\"nuts\",\"bolts\"]]}\n"
            "{\"id\":\"2\",\"record\":[\"Bob\",\"99\",[[\"tea\",\"green\"]]]}\n");
  done({"load", "--create", "COPY", "--from-format", "jsonl"}, lines);
  EXPECT_EQ(done({"export", "COPY"}), lines);
  const std::string csv = done({"export", "ORDERS", "-f", "csv"});
  EXPECT_EQ(csv, "ID,NAME,TOTAL,LINES\n1,Ann,1250,nuts]bolts\n2,Bob,99,tea\\green\n");
  done({"run", "CLEAR-FILE COPY (Y"});
  done({"load", "DICT COPY", "--from-format", "jsonl"}, done({"export", "DICT ORDERS"}));
  done({"load", "COPY", "--from-format", "csv"}, csv);
  EXPECT_EQ(done({"export", "COPY"}), lines);
  EXPECT_EQ(
      done({"export", "ORDERS", "-f", "tsv", "--items", "LINES", "WITH", "NAME", "=", "\"Ann\""}),
      "ID\tLINES\n1\tnuts]bolts\n");
  done({"run", "DELETE-FILE COPY (Y"});
}

TEST_F(NoxSubcommands, ExportSaysHowManyRecordsHoldMoreThanItsColumns) {
  done({"create-file", "WIDE"});
  done({"write", "WIDE", "1", "a^b^c"});
  done({"write", "WIDE", "2", "a^^"});
  done({"write", "WIDE", "3", "^b"});
  const Outcome bare = nox({"export", "WIDE", "-f", "csv"});
  EXPECT_EQ(bare.status, 0);
  EXPECT_EQ(bare.out, "ID\n1\n2\n3\n");
  EXPECT_EQ(bare.err,
            "nox: 3 records hold attributes that no column shows; with -f jsonl none is lost\n");
  done({"write", "DICT WIDE", "NAME", "D^1^^^10L^S"});
  done({"write", "DICT WIDE", "THIRD", "D^3^^^10L^S"});
  const Outcome some = nox({"export", "WIDE", "-f", "csv"});
  EXPECT_EQ(some.out, "ID,NAME,THIRD\n1,a,c\n2,a,\"\"\n3,\"\",\"\"\n");
  EXPECT_THAT(some.err, StartsWith("nox: 2 records hold attributes"));
  EXPECT_THAT(nox({"export", "WIDE", "-f", "csv", "WITH", "@ID", "=", "\"1\""}).err,
              StartsWith("nox: 1 record holds attributes"));
  for (const Words& words :
       {Words{"export", "WIDE", "-f", "csv", "--items", "NAME"}, Words{"export", "WIDE"}}) {
    EXPECT_EQ(nox(words).err, "");
  }
  done({"run", "DELETE-FILE WIDE (Y"});
}

TEST_F(NoxSubcommands, ExportOfADictionaryHasNumberedColumns) {
  const Outcome csv = nox({"export", "DICT ORDERS", "-f", "csv"});
  EXPECT_EQ(csv.out,
            "ID,1,2,3,4,5,6\n"
            "LINES,D,3,\"\",LINES,10L,M\n"
            "NAME,D,1,\"\",NAME,10L,S\n"
            "TOTAL,D,2,MD2,TOTAL,8R,S\n");
  EXPECT_EQ(csv.err, "");
  done({"create-file", "NUMBERED"});
  done({"load", "DICT NUMBERED", "--from-format", "csv"}, csv.out);
  EXPECT_EQ(done({"export", "DICT NUMBERED"}), done({"export", "DICT ORDERS"}));
  done({"run", "DELETE-FILE NUMBERED (Y"});
}

TEST_F(NoxSubcommands, ItemsOfAllKindsLeadThroughExportAndLoad) {
  done({"create-file", "KINDS"});
  done({"write", "DICT KINDS", "@ID", "D^0^^^10L^S"});
  done({"write", "DICT KINDS", "KEY", "D^0^^^10L^S"});
  done({"write", "DICT KINDS", "NAME", "D what it is called^1^^^10L^S"});
  done({"write", "DICT KINDS", "TITLE", "D^1^^^10L^S"});
  done({"write", "DICT KINDS", "DATE", "Dull^2^^^10L^S"});
  done({"write", "KINDS", "7", "x"});
  EXPECT_THAT(done({"read", "--tree", "KINDS", "7"}), HasSubstr("1 NAME  x"));
  const std::string csv = done({"export", "KINDS", "-f", "csv"});
  EXPECT_EQ(csv, "ID,NAME\n7,x\n");
  const std::string named = done({"export", "KINDS", "-f", "csv", "--items", "@ID,KEY,NAME"});
  EXPECT_EQ(named, "ID,@ID,KEY,NAME\n7,7,7,x\n");
  for (const std::string& text : {csv, named}) {
    done({"run", "CLEAR-FILE KINDS (Y"});
    done({"load", "KINDS", "--from-format", "csv"}, text);
    EXPECT_EQ(done({"read", "--text", "KINDS", "7"}), "x\n");
  }
  EXPECT_EQ(done({"export", "KINDS", "-f", "csv", "--items", "TITLE"}), "ID,TITLE\n7,x\n");
  done({"run", "DELETE-FILE KINDS (Y"});
}

TEST_F(NoxSubcommands, ExportGoesThroughAllPagesInOrder) {
  std::string lines;
  for (int i = 100; i < 350; ++i) {
    const std::string number = std::to_string(i);
    lines += R"({"id":")" + number + R"(","record":["record )" + number + "\"]}\n";
  }
  done({"load", "--create", "MANY", "--from-format", "jsonl"}, lines);
  for (const char* const size : {"1", "7", "250", "1000"}) {
    EXPECT_EQ(done({"export", "MANY", "--page-size", size}), lines) << size;
  }
  EXPECT_EQ(done({"export", "MANY", "WITH", "@ID", "=", "\"999\""}), "");
  done({"run", "DELETE-FILE MANY (Y"});
}

TEST_F(NoxSubcommands, ExportOfAFileThatIsNotThereIsRefused) {
  const auto result = nox({"export", "NOWHERE"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
}

TEST_F(NoxSubcommands, XaShowsAndEndsPreparedBranches) {
  const std::string script =
      "\\xa start 1:one\n\\write ORDERS xa1 a\n\\xa end 1:one\n\\xa prepare 1:one\n"
      "\\xa start 1:two\n\\write ORDERS xa2 b\n\\xa end 1:two\n\\xa prepare 1:two\n";
  done({"--script", "-"}, script);
  EXPECT_EQ(done({"xa", "list"}), "BRANCH\tSTATE\n1:one\tprepared\n1:two\tprepared\n");
  done({"xa", "commit", "1:one"});
  done({"xa", "rollback", "1:two"});
  EXPECT_EQ(done({"xa", "list"}), "BRANCH\tSTATE\n");
  EXPECT_EQ(done({"read", "--text", "ORDERS", "xa1"}), "a\n");
  EXPECT_EQ(nox({"exists", "ORDERS", "xa2"}).status, 1);
  EXPECT_THAT(nox({"xa", "commit", "1:two"}).err, HasSubstr("(Status = 0xfffffffc)"));
  EXPECT_EQ(nox({"xa", "commit", "nonsense"}).status, 2);
  EXPECT_EQ(nox({"xa", "commit"}).status, 2);
  done({"delete", "ORDERS", "xa1"});
}

TEST_F(NoxSubcommands, MonitorPrintsRows) {
  EXPECT_THAT(done({"monitor", "version", "-f", "csv"}), HasSubstr("noxd"));
  EXPECT_THAT(done({"monitor", "sessions", "-f", "json"}), HasSubstr("\"user\":\"ann\""));
  const Outcome wrong = nox({"monitor", "nonsense"});
  EXPECT_EQ(wrong.status, 1);
}

TEST_F(NoxSubcommands, DumpAndEncodeNeedNoServer) {
  const Environment nothing;
  const Outcome encoded =
      runNox({"encode", "--hex"}, nothing, R"({"type": "BeginTransactionRequest"})");
  EXPECT_EQ(encoded.status, 0) << encoded.err;
  EXPECT_EQ(encoded.out, "00 00 00 0E 5B 4C 49 00 00 00 D3 49 00 00 00 00 3B 5D\n");
  EXPECT_EQ(runNox({"dump"}, nothing, encoded.out).out, "BeginTransactionRequest (211)\n");
  EXPECT_EQ(runNox({"dump", "--as", "json"}, nothing, encoded.out).out,
            "{\"type\":\"BeginTransactionRequest\",\"fields\":[]}\n");
  const Outcome broken = runNox({"dump"}, nothing, "no frame at all");
  EXPECT_EQ(broken.status, 1);
  EXPECT_EQ(broken.err, "nox: byte 0: no frame begins here\n");
  EXPECT_EQ(runNox({"encode"}, nothing, "{}").status, 1);
}

TEST_F(NoxSubcommands, BenchReadsRecordsOfTheSizeThatWasAsked) {
  Environment traced = environment();
  traced["NOX_TRACE"] = file("bench-trace");
  const Outcome outcome = runNox({"bench", "read", "--seconds", "1", "--size", "50000"}, traced);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  const std::string trace = contentOf("bench-trace");
  const std::size_t read = trace.find(" > ReadRecord ");
  ASSERT_NE(read, std::string::npos);
  EXPECT_EQ(trace.find(" > WriteRecord ", read), std::string::npos) << "all were written";
  const std::size_t answer = trace.find(" bytes=", trace.find(" < ", read));
  ASSERT_NE(answer, std::string::npos);
  EXPECT_EQ(trace.substr(answer, 9), " bytes=50") << "the body, and less than 1000 bytes around it";
}

TEST_F(NoxSubcommands, BenchMeasuresAndCleansUp) {
  for (const char* operation : {"ping", "read", "write"}) {
    EXPECT_THAT(done({"bench", operation, "--seconds", "1", "--connections", "2", "-f", "csv"}),
                HasSubstr(std::string("\n") + operation + ",2,"));
  }
  EXPECT_THAT(done({"files"}), Not(HasSubstr("NOX.BENCH")));
}

}  // namespace
}  // namespace nox::command::test
