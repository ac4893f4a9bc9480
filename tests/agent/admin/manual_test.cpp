// The manual page and the manual say what the program does.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "agent/admin/exit_status.h"
#include "command.h"
#include "tests/agent/support/files.h"

namespace nox::agent {
namespace {

using test::contentOfFile;
using test::runNoxd;
using testing::HasSubstr;
using testing::IsEmpty;

/// The page as it is read: without requests and escapes.
std::string pageText() {
  std::string text = contentOfFile(NOXD_MANUAL_PAGE);
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size() && text[i + 1] == '-') continue;
    plain += text[i];
  }
  return plain;
}

std::set<std::string> matchesIn(const std::string& text, const std::string& pattern) {
  const std::regex expression(pattern);
  std::set<std::string> found;
  for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end;
       ++match) {
    found.insert((*match)[1]);
  }
  return found;
}

/// The subcommands that a help page lists.
std::set<std::string> subcommandsOf(const std::string& help) {
  const std::size_t begin = help.find("Subcommands:\n");
  return begin == std::string::npos ? std::set<std::string>{}
                                    : matchesIn(help.substr(begin), "\n  ([a-z]+) ");
}

/// Walks through all help pages, each with the words that lead to it.
template <class Visit>
void visitHelp(const std::vector<std::string>& words, const Visit& visit) {
  std::vector<std::string> arguments = words;
  arguments.emplace_back("--help");
  const std::string help = runNoxd(arguments).out;
  visit(words, help);
  for (const std::string& subcommand : subcommandsOf(help)) {
    std::vector<std::string> deeper = words;
    deeper.push_back(subcommand);
    visitHelp(deeper, visit);
  }
}

TEST(ManualPage, NamesEveryOptionAndSubcommand) {
  const std::string page = pageText();
  std::size_t options = 0;
  std::size_t subcommands = 0;
  visitHelp({}, [&](const std::vector<std::string>& words, const std::string& help) {
    for (const std::string& option : matchesIn(help, "\\W(--[a-z-]+)")) {
      EXPECT_THAT(page, HasSubstr(option));
      ++options;
    }
    if (words.empty() || !subcommandsOf(help).empty()) return;
    std::string command;
    for (const std::string& word : words) command += (command.empty() ? "" : " ") + word;
    EXPECT_THAT(page, HasSubstr("\n.B " + command + "\n"));
    ++subcommands;
  });
  EXPECT_GE(options, 10U);
  EXPECT_GE(subcommands, 13U);
}

TEST(ManualPage, NamesNoOptionThatIsNotThere) {
  std::string help;
  visitHelp({}, [&](const std::vector<std::string>&, const std::string& text) { help += text; });
  for (const std::string& option : matchesIn(pageText(), "\\W(--[a-z-]+)")) {
    EXPECT_THAT(help, HasSubstr(option));
  }
}

TEST(ManualPage, HasNothingThatManWarnsOf) {
  if (std::system("command -v man >/dev/null && command -v groff >/dev/null") != 0) {
    GTEST_SKIP() << "there is no man here";
  }
  FILE* pipe =
      popen("man --warnings -E UTF-8 -l -Tutf8 -Z " NOXD_MANUAL_PAGE " 2>&1 >/dev/null", "r");
  ASSERT_NE(pipe, nullptr);
  std::string warnings;
  std::array<char, 256> line{};
  while (fgets(line.data(), line.size(), pipe)) warnings += line.data();
  pclose(pipe);
  EXPECT_THAT(warnings, IsEmpty());
}

TEST(ManualPage, AndTheManualNameEveryExitStatus) {
  const std::string page = contentOfFile(NOXD_MANUAL_PAGE);
  const std::string manual = contentOfFile(NOXD_MANUAL);
  for (const ExitStatus status :
       {ExitStatus::Ok, ExitStatus::Failed, ExitStatus::Usage, ExitStatus::Damaged,
        ExitStatus::NoAddress, ExitStatus::CannotWrite, ExitStatus::DiskFull, ExitStatus::InUse,
        ExitStatus::Configuration}) {
    const std::string number = std::to_string(static_cast<int>(status));
    EXPECT_THAT(page, HasSubstr("\n.B " + number + "\n"));
    EXPECT_THAT(manual, HasSubstr("\n| " + number + " | "));
  }
}

TEST(Manual, ShowsCommandsThatAreThere) {
  std::set<std::string> there;
  visitHelp({}, [&](const std::vector<std::string>& words, const std::string&) {
    if (!words.empty()) there.insert(words.front());
  });
  for (const std::string& shown :
       matchesIn(contentOfFile(NOXD_MANUAL), "\n[$#][^\n]* ?noxd ([a-z]+)[ \n]")) {
    EXPECT_EQ(there.count(shown), 1U) << shown;
  }
}

}  // namespace
}  // namespace nox::agent
