// Commands, their prompts and subroutines, asked of noxd itself.
#include <gmock/gmock.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/agent/support/client.h"
#include "tests/agent/support/command_calls.h"
#include "tests/agent/support/noxd_process.h"

namespace nox::agent::test {
namespace {

using namespace noxp;
using namespace noxp::common;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

/// One noxd for all tests of a process; each test has a file of its own name.
class WireCommands : public testing::Test {
protected:
  static void SetUpTestSuite() {
    noxd = std::make_unique<NoxdProcess>();
    noxd->set("session.prompt_timeout", "2");
    noxd->addUser("reader", "just looking", {"MAIN=read"});
    noxd->start();
    Client client(noxd->plainPort());
    execute(client.logIn(), "CREATE-FILE NOX.SUBS");
  }
  static void TearDownTestSuite() { noxd.reset(); }

  WireCommands() : ann(noxd->plainPort()), bob(noxd->plainPort()) {
    ann.logIn();
    bob.logIn();
    file = std::string("F.") + testing::UnitTest::GetInstance()->current_test_info()->name();
    EXPECT_EQ(execute(ann, "CREATE-FILE " + file).text(), "File " + file + " created");
    for (const char* const id : {"1", "2", "3"}) write(id, std::string("record ") + id);
    EXPECT_EQ(ann.write(("DICT " + file).c_str(), "TEXT", marked("D^1^MCU^Text^10L")), "0");
  }

  void write(const char* id, const std::string& body) {
    EXPECT_EQ(ann.write(file.c_str(), id, body), "0");
  }
  void subroutine(const char* name, const std::string& lua) {
    EXPECT_EQ(ann.write("NOX.SUBS", name, lua), "0");
  }
  std::string run(const std::string& command) { return execute(ann, command).text(); }

  static std::unique_ptr<NoxdProcess> noxd;
  Client ann;
  Client bob;
  std::string file;
};
std::unique_ptr<NoxdProcess> WireCommands::noxd;

// 220.

TEST_F(WireCommands, ACommandAnswersWithItsOutputAndItsSetting) {
  const CommandReply reply = execute(ann, "LIST " + file + " TEXT WITH @ID > 1");
  EXPECT_EQ(reply.output,
            "@ID Text\n"
            "2   RECORD 2\n"
            "3   RECORD 3\n"
            "\n"
            "2 records listed");
  EXPECT_EQ(reply.setting, "0^2");
  EXPECT_EQ(reply.list, "none");
}

TEST_F(WireCommands, ACommandAnswersWithTheListThatItLeaves) {
  const CommandReply reply = execute(ann, "SELECT " + file + " BY-DSND @ID");
  EXPECT_EQ(reply.output, "3 records selected");
  EXPECT_EQ(reply.setting, "0^3");
  EXPECT_EQ(reply.list, "1: 3 2 1");
  EXPECT_EQ(ann.fetch(1, 2, 2, true), "1: 3=record 3 2=record 2");
  EXPECT_EQ(ann.closeList(1), "OK");
  EXPECT_EQ(run("COUNT " + file + " WITH @ID # 2"), "2 records counted");
}

TEST_F(WireCommands, ACommandTakesTheListThatComesWithIt) {
  remote::SelectListProt list = listOf({"3", "9", "1"});
  EXPECT_EQ(execute(ann, "LIST " + file + " HDR-SUPP", &list).output, "3\n1\n\n2 records listed");
  EXPECT_EQ(execute(ann, "COUNT " + file, &list, 0).output, "3 records counted")
      << "in version 0 it stays behind";
}

TEST_F(WireCommands, AListOfOneSessionIsNotAnothers) {
  execute(ann, "SELECT " + file + " '1'");
  EXPECT_EQ(execute(bob, "COUNT " + file).output, "3 records counted");
  EXPECT_EQ(run("COUNT " + file), "1 records counted");
}

TEST_F(WireCommands, ACommandThatIsWrongIsAnErrorThatNamesTheWord) {
  EXPECT_EQ(run("LIST " + file + " NONE"), "IE/011: \"NONE\" at character " +
                                               std::to_string(file.size() + 7) +
                                               ": there is no such item in the dictionary");
  EXPECT_EQ(run("LOST"), "IE/011: \"LOST\" at character 1: there is no such command");
  EXPECT_EQ(run(""), "IE/011: the command is empty");
  EXPECT_EQ(ann.common("@LAST"), "1");
}

TEST_F(WireCommands, WhatNeedsTheRightToWriteIsRefusedWithoutIt) {
  Client reader(noxd->plainPort());
  ASSERT_EQ(reader.logIn("reader", "just looking"), "OK");
  EXPECT_EQ(execute(reader, "COUNT " + file).output, "3 records counted");
  EXPECT_THAT(execute(reader, "DELETE-FILE " + file + " (Y").error, StartsWith("42/000"));
  EXPECT_THAT(execute(reader, "CREATE-FILE X").error, StartsWith("42/000"));
}

TEST_F(WireCommands, WhatAnotherSessionLocksIsNotDeleted) {
  Properties properties;
  properties.setProperty("LOCK_WAIT", "0");
  SetPropertiesRequestProt doNotWait(properties);
  EXPECT_TRUE(ann.askFor<SetPropertiesResponseProt>(doNotWait));
  EXPECT_EQ(bob.read(file.c_str(), "1", 2), "0 'record 1'");
  EXPECT_THAT(run("CLEAR-FILE " + file + " (Y"), StartsWith("IE/024"));
  EXPECT_THAT(run("DELETE-FILE " + file + " (Y"), StartsWith("IE/024"));
  bob.close();
}

// Prompts: 305 and 210.

TEST_F(WireCommands, ACommandThatAsksGoesOnWithTheAnswer) {
  const CommandReply asked = execute(ann, "DELETE-FILE " + file);
  EXPECT_EQ(asked.prompt, 1);
  EXPECT_EQ(asked.output, "Delete file " + file + " with all its records (Y/N)? ");
  const CommandReply done = answer(ann, "y");
  EXPECT_EQ(done.output, "File " + file + " deleted");
  EXPECT_EQ(done.setting, "0^0");
  EXPECT_EQ(ann.open(file.c_str()), "IE/005");
}

TEST_F(WireCommands, EchoesLogLinesAndMonitoringLeaveThePromptWaiting) {
  execute(ann, "DELETE-FILE " + file);
  EchoRequestProt echo(64);
  EXPECT_TRUE(ann.askFor<EchoResponseProt>(echo));
  const NOXPString line("while it waits");
  EXPECT_EQ(ann.say(LoggingRequestProt(&line, 1)), "OK");
  remote::MonitoringRequestProt monitoring(std::string("status"));
  EXPECT_TRUE(ann.askFor<remote::MonitoringResponseProt>(monitoring));
  EXPECT_EQ(answer(ann, "N").output, "Nothing done");
}

TEST_F(WireCommands, AnyOtherRequestAbandonsTheCommandAndIsAnswered) {
  execute(ann, "DELETE-FILE " + file);
  EXPECT_EQ(ann.exists(file.c_str(), "1"), "0");
  EXPECT_THAT(answer(ann, "Y").error, StartsWith("IE/011: "));
  EXPECT_EQ(ann.open(file.c_str()), "OK");
}

TEST_F(WireCommands, AbandonedWorkIsUndoneAndTheTransactionStaysOpen) {
  subroutine("CHANGES", "nox.open('" + file + "'):write('1', 'changed') nox.input()");
  EXPECT_EQ(ann.begin(), "OK");
  EXPECT_EQ(ann.write(file.c_str(), "2", "mine"), "0");
  EXPECT_EQ(execute(ann, "RUN CHANGES").prompt, 1);
  EXPECT_EQ(ann.read(file.c_str(), "1"), "0 'record 1'");
  EXPECT_EQ(ann.read(file.c_str(), "2"), "0 'mine'");
  EXPECT_EQ(ann.commit(), "OK");
  EXPECT_EQ(bob.read(file.c_str(), "2"), "0 'mine'");
}

TEST_F(WireCommands, AnAnswerThatNobodyWaitsForIsAnError) {
  EXPECT_THAT(answer(ann, "Y").error, StartsWith("IE/011: "));
}

TEST_F(WireCommands, APromptThatIsNotAnsweredInTimeIsAbandoned) {
  const std::string who = run("WHO");
  const std::string session = "\n" + who.substr(0, who.find(' ')) + "\t";
  ASSERT_EQ(execute(ann, "DELETE-FILE " + file).prompt, 1);
  // First it runs, then it waits for an answer, then it is idle.
  const auto isIdle = [&] {
    remote::MonitoringRequestProt request(std::string("sessions"));
    const auto reply = bob.askFor<remote::MonitoringResponseProt>(request);
    if (!reply) return false;
    const std::string& text = reply->getResponse();
    const std::size_t begin = text.find(session);
    return begin != std::string::npos &&
           text.substr(begin + 1, text.find('\n', begin + 1) - begin).find("\tidle\t") !=
               std::string::npos;
  };
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!isIdle() && std::chrono::steady_clock::now() < deadline) {
  }
  EXPECT_TRUE(isIdle());
  EXPECT_THAT(answer(ann, "Y").error, StartsWith("IE/011: "));
  EXPECT_EQ(ann.open(file.c_str()), "OK");
}

TEST_F(WireCommands, AClientThatGoesLeavesNothingUndoneBehind) {
  execute(bob, "DELETE-FILE " + file);
  bob.close();
  EXPECT_EQ(ann.open(file.c_str()), "OK");
  EXPECT_EQ(run("DELETE-FILE " + file + " (Y"), "File " + file + " deleted");
}

// 209.

TEST_F(WireCommands, ASubroutineGivesItsParametersBackWithTheirTypesAndNulls) {
  subroutine("MIX",
             "args[1] = args[1] .. '!' args[2] = args[3] args[3] = nil args[4] = args[4] + 1");
  const SubroutineReply reply =
      call(ann, "MIX",
           std::vector<Parameter>{{"Ann", 12}, {"x", 7}, {std::nullopt, 4}, {"41", -3}, {"", 0}});
  EXPECT_EQ(reply.error, "");
  EXPECT_EQ(reply.status, 0);
  EXPECT_THAT(reply.parameters,
              ElementsAre(Parameter{"Ann!", 12}, Parameter{std::nullopt, 7},
                          Parameter{std::nullopt, 4}, Parameter{"42", -3}, Parameter{"", 0}));
}

TEST_F(WireCommands, ASubroutineTakesAnyBytes) {
  subroutine("SAME", "");
  const std::string bytes("\0\xFE\xFD\xFF\x80", 5);
  EXPECT_THAT(call(ann, "SAME", std::vector<Parameter>{{bytes, 1}}).parameters,
              ElementsAre(Parameter{bytes, 1}));
}

TEST_F(WireCommands, ASubroutineNeedsNoParameters) {
  subroutine("SAME", "");
  const SubroutineReply none = call(ann, "SAME", std::vector<Parameter>{});
  EXPECT_EQ(none.status, 0);
  EXPECT_TRUE(none.parameters.empty());
  EXPECT_EQ(call(ann, "SAME", std::nullopt).status, 0);
}

TEST_F(WireCommands, ASubroutineThatAbortsItselfSaysSo) {
  subroutine("STOP", "args[1] = 'so far' nox.abort()");
  const SubroutineReply reply = call(ann, "STOP", std::vector<Parameter>{{"", 1}});
  EXPECT_EQ(reply.status, 1);
  EXPECT_THAT(reply.parameters, ElementsAre(Parameter{"so far", 1}));
}

TEST_F(WireCommands, ASubroutineThatIsNotThereIsAnError) {
  EXPECT_THAT(call(ann, "NONE", std::nullopt).error, StartsWith("IE/004: "));
  EXPECT_THAT(call(ann, "", std::nullopt).error, StartsWith("IE/004: "));
}

TEST_F(WireCommands, ASubroutineThatFailsIsAnErrorWithItsText) {
  subroutine("FAIL", "error('out of luck')");
  const SubroutineReply reply = call(ann, "FAIL", std::nullopt);
  EXPECT_THAT(reply.error, StartsWith("IE/003: "));
  EXPECT_THAT(reply.error, HasSubstr("out of luck"));
  EXPECT_EQ(ann.open(file.c_str()), "OK") << "the session goes on";
}

TEST_F(WireCommands, ASubroutineAsksAndAnswersWithItsParameters) {
  subroutine("ASK", "nox.print('Password?') args[1] = nox.input(true)");
  const SubroutineReply asked = call(ann, "ASK", std::vector<Parameter>{{"", 12}});
  EXPECT_EQ(asked.prompt, 2);
  EXPECT_EQ(asked.output, "Password?");
  const SubroutineReply done = answerSubroutine(ann, "secret ø");
  EXPECT_EQ(done.status, 0);
  EXPECT_THAT(done.parameters, ElementsAre(Parameter{"secret ø", 12}));
}

TEST_F(WireCommands, ASubroutineWorksInTheCallersTransaction) {
  subroutine("WRITES", "nox.open('" + file + "'):write('9', 'nine')");
  EXPECT_EQ(ann.begin(), "OK");
  EXPECT_EQ(call(ann, "WRITES", std::nullopt).status, 0);
  EXPECT_EQ(ann.exists(file.c_str(), "9"), "0");
  EXPECT_EQ(bob.exists(file.c_str(), "9"), "1");
  EXPECT_EQ(ann.rollback(), "OK");
  EXPECT_EQ(ann.exists(file.c_str(), "9"), "1");
}

}  // namespace
}  // namespace nox::agent::test
