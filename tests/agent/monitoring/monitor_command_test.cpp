// The language of the monitoring commands.
#include "agent/monitoring/monitor_command.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace nox::agent {
namespace {

using Verb = MonitorCommand::Verb;

/// What is wrong with a line; empty where nothing is.
std::string mistake(std::string_view line) {
  try {
    parseMonitorCommand(line);
    return {};
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
}

TEST(MonitorCommand, HasVerbsOfOneWord) {
  EXPECT_EQ(parseMonitorCommand("status").verb, Verb::Status);
  EXPECT_EQ(parseMonitorCommand("sessions").verb, Verb::Sessions);
  EXPECT_EQ(parseMonitorCommand("lists").verb, Verb::Lists);
  EXPECT_EQ(parseMonitorCommand("version").verb, Verb::Version);
}

TEST(MonitorCommand, MayHaveBlanksAroundItsWords) {
  // A client joins a command and an empty argument with a blank.
  EXPECT_EQ(parseMonitorCommand("status ").verb, Verb::Status);
  EXPECT_EQ(parseMonitorCommand("\t xa \t list \n").verb, Verb::XaList);
}

TEST(MonitorCommand, NamesAFileOrNone) {
  EXPECT_FALSE(parseMonitorCommand("locks").hasFile);
  const MonitorCommand data = parseMonitorCommand("locks ORDERS");
  EXPECT_TRUE(data.hasFile);
  EXPECT_EQ(data.file.text(), "ORDERS");
  EXPECT_EQ(parseMonitorCommand("locks DICT ORDERS").file.text(), "DICT ORDERS");
  EXPECT_EQ(parseMonitorCommand("locks DICT").file.text(), "DICT");
}

TEST(MonitorCommand, TakesARecordsIdToTheEndOfTheLine) {
  const MonitorCommand plain = parseMonitorCommand("unlock ORDERS 4711");
  EXPECT_EQ(plain.verb, Verb::Unlock);
  EXPECT_EQ(plain.file.text(), "ORDERS");
  EXPECT_EQ(plain.id, "4711");
  EXPECT_EQ(parseMonitorCommand("unlock ORDERS an id  with blanks ").id, "an id  with blanks");
}

TEST(MonitorCommand, TellsADictionaryFromAFileThatIsCalledDict) {
  const MonitorCommand dictionary = parseMonitorCommand("unlock DICT ORDERS NAME");
  EXPECT_EQ(dictionary.file.text(), "DICT ORDERS");
  EXPECT_EQ(dictionary.id, "NAME");
  const MonitorCommand file = parseMonitorCommand("unlock DICT 4711");
  EXPECT_EQ(file.file.text(), "DICT");
  EXPECT_EQ(file.id, "4711");
}

TEST(MonitorCommand, NamesABranch) {
  const MonitorCommand commit = parseMonitorCommand("xa commit 1:6774:6271");
  EXPECT_EQ(commit.verb, Verb::XaCommit);
  EXPECT_EQ(commit.id, "1:6774:6271");
  EXPECT_EQ(parseMonitorCommand("xa rollback -5:with a blank").verb, Verb::XaRollback);
  EXPECT_EQ(parseMonitorCommand("xa rollback -5:with a blank").id, "-5:with a blank");
}

TEST(MonitorCommand, NamesASession) {
  EXPECT_EQ(parseMonitorCommand("kill 17").session, 17U);
  EXPECT_EQ(parseMonitorCommand("kill 18446744073709551615").session, 18446744073709551615U);
}

TEST(MonitorCommand, SaysWhatIsWrong) {
  EXPECT_EQ(mistake(""), "unknown command: \"\"");
  EXPECT_EQ(mistake("shutdown now"), "unknown command: \"shutdown now\"");
  EXPECT_EQ(mistake("status please"), "too much: \"please\"");
  EXPECT_EQ(mistake("xa"), "xa takes list, commit or rollback: \"\"");
  EXPECT_EQ(mistake("xa recover"), "xa takes list, commit or rollback: \"recover\"");
  EXPECT_EQ(mistake("xa list all"), "too much: \"all\"");
  EXPECT_EQ(mistake("xa commit"), "a branch is missing: FORMAT:ID");
  for (const char* line : {"kill", "kill x", "kill 1x", "kill -1", "kill 18446744073709551616"}) {
    EXPECT_NE(mistake(line).find("kill takes the number of a session"), std::string::npos) << line;
  }
  EXPECT_EQ(mistake("kill 1 2"), "too much: \"2\"");
  EXPECT_EQ(mistake("unlock"), "unlock takes a file and a record's id");
  EXPECT_EQ(mistake("unlock ORDERS"), "unlock takes a file and a record's id");
  EXPECT_EQ(mistake("unlock DICT"), "unlock takes a file and a record's id");
  EXPECT_EQ(mistake("unlock ../x 1"), "no file name: \"../x\"");
  EXPECT_EQ(mistake("locks a b"), "too much: \"b\"");
  EXPECT_EQ(mistake("locks DICT DICT x"), "too much: \"x\"");
}

TEST(MonitorCommand, ShowsLittleOfWhatWasTypedAndNothingThatATerminalObeys) {
  EXPECT_EQ(mistake("\x1B[2J"), "unknown command: \"\\x1B[2J\"");
  EXPECT_LT(mistake(std::string(60'000, 'x')).size(), 200U);
}

}  // namespace
}  // namespace nox::agent
