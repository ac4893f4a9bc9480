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
                             "[ \"$(try nox xa com)\" = commit ] || exit 6\n"
                             "[ \"$(try nox -f exp)\" = expanded ] || exit 7\n"
                             "[ \"$(try nox files -f exp)\" = expanded ] || exit 8\n"
                             "[ \"$(try nox -f csv pi)\" = ping ] || exit 9\n";
  EXPECT_EQ(statusOf("bash", script), 0);
}

TEST(BashCompletion, TreatsNamesAsFilesOnlyWhereFilesAreMeant) {
  const std::string script = bashCompletion() +
                             "compopt() { told=\"$*\"; }\n"
                             "try() {\n"
                             "  COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); COMPREPLY=(); told=\n"
                             "  _nox\n"
                             "}\n"
                             "cd \"$(mktemp -d)\" && trap 'rm -r \"$PWD\"' EXIT && mkdir bench\n"
                             "try nox ben; [ \"$COMPREPLY\" = bench ] || exit 1\n"
                             "[ -z \"$told\" ] || exit 2\n"
                             "for option in -o --output --script; do\n"
                             "  try nox $option ben; [ \"$COMPREPLY\" = bench ] || exit 3\n"
                             "  [ \"$told\" = '-o filenames' ] || exit 4\n"
                             "done\n"
                             "try nox -o fil; [ -z \"$COMPREPLY\" ] || exit 5\n"
                             "try nox load F ben; [ \"$told\" = '-o filenames' ] || exit 6\n"
                             "[ \"$(complete -p nox)\" = 'complete -F _nox nox' ] || exit 7\n";
  EXPECT_EQ(statusOf("bash", script), 0);
}

TEST(ZshCompletion, OffersTheSameBehindALetter) {
  const std::string text = zshCompletion();
  for (const char* name : {"    '--format[", "    '-f["}) {
    const std::size_t at = text.find(name);
    ASSERT_NE(at, std::string::npos) << name;
    EXPECT_NE(text.substr(at, text.find('\n', at) - at).find(":FORMAT:(table expanded csv"),
              std::string::npos);
  }
  for (const char* name : {"    '--output[", "    '-o["}) {
    const std::size_t at = text.find(name);
    ASSERT_NE(at, std::string::npos) << name;
    EXPECT_NE(text.substr(at, text.find('\n', at) - at).find(":FILE:_files'"), std::string::npos);
  }
}

TEST(FishCompletion, OffersTheSameBehindALetter) {
  const std::string text = fishCompletion();
  EXPECT_NE(text.find("complete -c nox -l format -s f -x -a 'table expanded csv"),
            std::string::npos);
  EXPECT_NE(text.find("complete -c nox -l output -s o -r -F "), std::string::npos);
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
