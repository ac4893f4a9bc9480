#include "client/command/command_line.h"

#include <gtest/gtest.h>

#include <set>

#include "client/command/context.h"

namespace nox::command {
namespace {

using Words = std::vector<std::string>;

TEST(CommandLine, IsASubcommandWithArgumentsAndOptions) {
  const Invocation invocation = parseCommandLine(
      {"--user", "ann", "read", "--lock", "update", "ORDERS", "1", "2", "-f", "csv"});
  EXPECT_EQ(invocation.kind, Invocation::Kind::Run);
  EXPECT_STREQ(invocation.command->name, "read");
  EXPECT_EQ(invocation.common.get("--user"), "ann");
  EXPECT_EQ(invocation.common.get("--format"), "csv");
  EXPECT_EQ(invocation.arguments.get("--lock"), "update");
  EXPECT_EQ(invocation.arguments.get("FILE"), "ORDERS");
  EXPECT_EQ(invocation.arguments.all("ID"), (Words{"1", "2"}));
}

TEST(CommandLine, WithoutASubcommandIsThePrompt) {
  EXPECT_EQ(parseCommandLine({}).kind, Invocation::Kind::Prompt);
  const Invocation script = parseCommandLine({"--script", "x.nox"});
  EXPECT_EQ(script.kind, Invocation::Kind::Prompt);
  EXPECT_EQ(script.script, "x.nox");
}

TEST(CommandLine, TakesWordsThatLookLikeOptionsBehindADoubleDash) {
  const Invocation invocation = parseCommandLine({"conv", "MD2", "--", "-150"});
  EXPECT_EQ(invocation.arguments.all("DATA"), (Words{"-150"}));
}

TEST(CommandLine, TakesEachWordBehindADoubleDashOnceAndAsItIs) {
  EXPECT_EQ(parseCommandLine({"run", "LIST", "P", "--", "--help"}).arguments.all("COMMAND"),
            (Words{"LIST", "P", "--help"}));
  EXPECT_EQ(parseCommandLine({"sql", "SELECT ?,?", "a", "--", "-x"}).arguments.all("VALUE"),
            (Words{"a", "-x"}));
  EXPECT_EQ(parseCommandLine({"read", "T", "n", "--", "-x", "--", "-f"}).arguments.all("ID"),
            (Words{"n", "-x", "--", "-f"}));
}

TEST(CommandLine, TakesNoArgumentApart) {
  for (const char* word : {"[x]", "[]", "[a,b]", "[", "]", "", "-", "a,b", "\"x\"", "{}", "%%"}) {
    const std::string given = word;
    EXPECT_EQ(parseCommandLine({"delete", "T", given}).arguments.all("ID"), Words{given});
    EXPECT_EQ(parseCommandLine({"sql", "S", "1", given}).arguments.all("VALUE"),
              (Words{"1", given}));
    EXPECT_EQ(parsePromptCommand({"read", "T", given, "n"}).arguments.all("ID"),
              (Words{given, "n"}));
    EXPECT_EQ(parseCommandLine({"write", given, given, given}).arguments.get("TEXT", "none"),
              given);
    EXPECT_EQ(parseCommandLine({"run", "X", "-a", given, "-a", "y"}).arguments.all("--answer"),
              (Words{given, "y"}));
  }
}

TEST(CommandLine, TakesTheValueOfAnOptionBehindItOrBesideIt) {
  for (const Words& words :
       {Words{"read", "T", "1", "--format", "csv", "-t"},
        Words{"read", "T", "1", "--format=csv", "-t"}, Words{"read", "-tf", "csv", "T", "1"},
        Words{"-fcsv", "read", "-t", "T", "1"}}) {
    const Invocation invocation = parseCommandLine(words);
    EXPECT_EQ(invocation.common.get("--format"), "csv") << words[1];
    EXPECT_TRUE(invocation.arguments.has("--tree")) << words[1];
    EXPECT_EQ(invocation.arguments.all("ID"), Words{"1"}) << words[1];
  }
  EXPECT_EQ(parseCommandLine({"run", "X", "-a", "--help"}).arguments.get("--answer"), "--help");
}

TEST(CommandLine, KeepsTheWordsOfACommandApart) {
  const Invocation invocation = parseCommandLine({"run", "LIST", "ORDERS", "WITH", "X", "=", "1"});
  EXPECT_EQ(invocation.arguments.all("COMMAND"), (Words{"LIST", "ORDERS", "WITH", "X", "=", "1"}));
}

TEST(CommandLine, ThatIsWrongSaysSo) {
  for (const Words& words :
       {Words{"nonsense"}, Words{"read"}, Words{"read", "F"}, Words{"read", "F", "1", "--nonsense"},
        Words{"read", "F", "1", "--lock", "exclusive"}, Words{"ping", "--format", "yaml"},
        Words{"--user"}, Words{"files", "extra"}, Words{"begin"}, Words{"ping", "--script", "x"},
        Words{"ping", "-f", "csv", "-f", "tsv"}, Words{"read", "--tree=yes", "F", "1"}}) {
    EXPECT_THROW(parseCommandLine(words), UsageError) << (words.empty() ? "" : words[0]);
  }
}

/// What whoever wrote these words is told.
std::string complaintOf(const Words& words) {
  try {
    parseCommandLine(words);
  } catch (const UsageError& error) {
    return error.what();
  }
  return "";
}

TEST(CommandLine, SaysWhatIsWrongInTheWordsOfTheHelp) {
  EXPECT_EQ(complaintOf({"fils"}), "there is no subcommand \"fils\"");
  EXPECT_EQ(complaintOf({"begin"}), "begin is for the prompt and for scripts alone");
  EXPECT_EQ(complaintOf({"write", "F"}), "write needs ID");
  EXPECT_EQ(complaintOf({"files", "extra"}), "\"extra\" is more than files takes");
  EXPECT_EQ(complaintOf({"bench", "nope"}),
            "OPERATION: ping, read or write was expected, not \"nope\"");
  EXPECT_EQ(complaintOf({"read", "F", "1", "--lock", "exclusive"}),
            "--lock: shared or update was expected, not \"exclusive\"");
  EXPECT_EQ(complaintOf({"conv", "MD2", "-150"}),
            "there is no option -150; behind -- words are no options");
  EXPECT_EQ(complaintOf({"files", "--use", "x"}),
            "there is no option --use; behind -- words are no options");
  EXPECT_EQ(complaintOf({"files", "--user"}), "--user needs USER");
  EXPECT_EQ(complaintOf({"ping", "-n", "1", "--count", "2"}), "--count is given twice");
  EXPECT_EQ(complaintOf({"read", "--tree=yes", "F", "1"}), "--tree takes no value");
}

TEST(CommandLine, AsksForHelpWhateverIsMissing) {
  EXPECT_EQ(parseCommandLine({"--help"}).kind, Invocation::Kind::Help);
  const Invocation help = parseCommandLine({"read", "--help"});
  EXPECT_EQ(help.kind, Invocation::Kind::Help);
  EXPECT_STREQ(help.command->name, "read");
  EXPECT_EQ(parseCommandLine({"read", "--nonsense", "--help"}).kind, Invocation::Kind::Help);
  EXPECT_STREQ(parseCommandLine({"-U", "files", "-h", "read"}).command->name, "read");
  EXPECT_EQ(parseCommandLine({"--version"}).kind, Invocation::Kind::Version);
}

TEST(CommandLine, HasNoPlaceForAPassword) {
  std::set<std::string> names;
  for (const OptionSpec& option : commonOptions()) names.insert(option.name);
  for (const CommandSpec& command : commands()) {
    for (const OptionSpec& option : command.options) names.insert(option.name);
  }
  EXPECT_EQ(names.count("--password"), 0u);
  EXPECT_EQ(names.count("--password-file"), 1u);
}

TEST(PromptCommands, AreSubcommandsInTheSession) {
  const PromptInvocation begin = parsePromptCommand({"begin"});
  EXPECT_STREQ(begin.command->name, "begin");
  const PromptInvocation read = parsePromptCommand({"read", "--lock", "shared", "F", "1"});
  EXPECT_EQ(read.arguments.get("FILE"), "F");
  EXPECT_THROW(parsePromptCommand({"nonsense"}), UsageError);
  EXPECT_THROW(parsePromptCommand({"read", "F"}), UsageError);
}

TEST(Help, NamesEverySubcommandAndOption) {
  const std::string text = helpText(nullptr);
  for (const OptionSpec& option : commonOptions()) {
    EXPECT_NE(text.find(option.name), std::string::npos) << option.name;
  }
  for (const CommandSpec& command : commands()) {
    if (command.promptOnly) continue;
    EXPECT_NE(text.find(std::string("\n  ") + command.name + " "), std::string::npos)
        << command.name;
    const std::string own = helpText(&command);
    for (const OptionSpec& option : command.options) {
      EXPECT_NE(own.find(option.name), std::string::npos) << command.name << " " << option.name;
    }
    for (const ArgumentSpec& argument : command.arguments) {
      EXPECT_NE(own.find(argument.name), std::string::npos) << command.name;
    }
  }
}

TEST(Help, FitsATerminal) {
  for (const CommandSpec* command : {static_cast<const CommandSpec*>(nullptr), findCommand("load"),
                                     findCommand("read"), findCommand("bench")}) {
    const std::string text = helpText(command);
    std::size_t begin = 0;
    while (begin < text.size()) {
      const std::size_t end = std::min(text.find('\n', begin), text.size());
      EXPECT_LE(end - begin, 100u) << text.substr(begin, end - begin);
      begin = end + 1;
    }
  }
}

TEST(Arguments, OfASubcommandAreUniqueByName) {
  for (const CommandSpec& command : commands()) {
    std::set<std::string> names;
    for (const OptionSpec& option : commonOptions()) names.insert(option.name);
    for (const OptionSpec& option : command.options) {
      EXPECT_TRUE(names.insert(option.name).second) << command.name << " " << option.name;
    }
    for (const ArgumentSpec& argument : command.arguments) {
      EXPECT_TRUE(names.insert(argument.name).second) << command.name << " " << argument.name;
    }
  }
}

}  // namespace
}  // namespace nox::command
