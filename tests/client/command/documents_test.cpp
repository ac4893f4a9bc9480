// The documents are checked against the table, and by the programs that read them where those are
// installed.
#include "client/command/documents.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "client/command/commands.h"

namespace nox::command {
namespace {

/// The exit status of `program` for a file with this text; nothing where there is no such program.
std::optional<int> statusOf(const std::string& program, const std::string& text) {
  const std::string name = program.substr(0, program.find(' '));
  if (std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) != 0) return std::nullopt;
  char path[] = "/tmp/documents_test.XXXXXX";
  const int file = mkstemp(path);
  EXPECT_GE(file, 0);
  close(file);
  std::ofstream(path) << text;
  const int status = std::system((program + " " + path + " >/dev/null").c_str());
  unlink(path);
  return status;
}

void expectNamesAll(const std::string& text, const char* dashes) {
  for (const OptionSpec& option : commonOptions()) {
    EXPECT_NE(text.find(dashes + std::string(option.name + 2)), std::string::npos) << option.name;
  }
  for (const CommandSpec& command : commands()) {
    if (command.promptOnly) continue;
    EXPECT_NE(text.find(command.name), std::string::npos) << command.name;
    for (const OptionSpec& option : command.options) {
      EXPECT_NE(text.find(dashes + std::string(option.name + 2)), std::string::npos)
          << command.name << " " << option.name;
    }
  }
}

TEST(BashCompletion, KnowsEverySubcommandAndOption) { expectNamesAll(bashCompletion(), "--"); }

TEST(BashCompletion, IsBash) { EXPECT_EQ(statusOf("bash -n", bashCompletion()), 0); }

TEST(BashCompletion, CompletesSubcommandsOptionsAndChoices) {
  const std::string script = bashCompletion() +
                             "try() {\n"
                             "  COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); COMPREPLY=()\n"
                             "  _nox; echo \"${COMPREPLY[*]}\"\n"
                             "}\n"
                             "[ \"$(try nox crea)\" = create-file ] || exit 1\n"
                             "[ \"$(try nox read --lo)\" = --lock ] || exit 2\n"
                             "[ \"$(try nox read --lock sh)\" = shared ] || exit 3\n"
                             "[ \"$(try nox --user ann pi)\" = ping ] || exit 4\n"
                             "[ \"$(try nox ping --format exp)\" = expanded ] || exit 5\n"
                             "[ \"$(try nox xa com)\" = commit ] || exit 6\n";
  EXPECT_EQ(statusOf("bash", script), 0);
}

TEST(ZshCompletion, KnowsEverySubcommandAndOption) {
  expectNamesAll(zshCompletion(), "--");
  const auto status = statusOf("zsh -n", zshCompletion());
  if (status) {
    EXPECT_EQ(*status, 0);
  }
}

TEST(FishCompletion, KnowsEverySubcommandAndOption) {
  expectNamesAll(fishCompletion(), "-l ");
  const auto status = statusOf("fish --no-execute", fishCompletion());
  if (status) {
    EXPECT_EQ(*status, 0);
  }
}

TEST(ManPage, DescribesEverySubcommandAndOption) {
  std::string text = manPage();
  for (std::size_t at = 0; (at = text.find("\\-", at)) != std::string::npos;) text.erase(at, 1);
  expectNamesAll(text, "--");
}

TEST(ManPage, IsWellFormed) {
  const auto status = statusOf("groff -man -Tutf8 -wall -z", manPage());
  if (status) {
    EXPECT_EQ(*status, 0);
  }
}

}  // namespace
}  // namespace nox::command
