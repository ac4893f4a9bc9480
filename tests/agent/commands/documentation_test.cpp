// The examples of docs/commands.md: every command is run, every conversion made.
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/agent/support/agent_in_process.h"
#include "tests/agent/support/command_calls.h"

namespace nox::agent::test {
namespace {

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::vector<std::string> documentLines() {
  std::ifstream document(NOX_COMMANDS_DOCUMENT);
  EXPECT_TRUE(document) << NOX_COMMANDS_DOCUMENT;
  std::ostringstream text;
  text << document.rdbuf();
  return linesOf(text.str());
}

bool startsWith(const std::string& text, std::string_view start) {
  return text.compare(0, start.size(), start) == 0;
}

/// Follows the page from top to bottom.
class Page {
public:
  Page() : lines_(documentLines()) {}

  void follow() {
    for (at_ = 0; at_ < lines_.size(); ++at_) {
      const std::string& line = lines_[at_];
      if (startsWith(line, "```records ")) {
        writeRecords(line.substr(line.find(' ') + 1));
      } else if (startsWith(line, "```lua ")) {
        writeSubroutine(line.substr(line.rfind(' ') + 1));
      } else if (line == "```console") {
        talk();
      }
    }
  }

  int commands() const { return commands_; }

private:
  const std::string& next() { return lines_.at(++at_); }

  void writeSubroutine(const std::string& name) {
    EXPECT_EQ(execute(ann_, "CREATE-FILE NOX.SUBS").error, "");
    std::string source;
    while (next() != "```") source += lines_[at_] + "\n";
    EXPECT_EQ(ann_.write("NOX.SUBS", name.c_str(), source), "0");
  }

  /// "id = record", up to the end of the block.
  void writeRecords(const std::string& file) {
    while (next() != "```") {
      const std::string& line = lines_[at_];
      const std::size_t middle = line.find(" = ");
      ASSERT_NE(middle, std::string::npos) << line;
      EXPECT_EQ(
          ann_.write(file.c_str(), line.substr(0, middle).c_str(), marked(line.substr(middle + 3))),
          "0");
    }
  }

  /// Commands behind "> ", each with what comes back.
  void talk() {
    ++at_;
    while (lines_.at(at_) != "```") {
      const std::string command = lines_[at_];
      ASSERT_TRUE(startsWith(command, "> ")) << command;
      std::string expected;
      while (next() != "```" && !startsWith(lines_[at_], "> ")) {
        if (!expected.empty()) expected += '\n';
        expected += lines_[at_];
      }
      ++commands_;
      SCOPED_TRACE(command);
      EXPECT_EQ(transcript(command.substr(2), expected), expected);
    }
  }

  /// What a session shows: prompts are answered with what the expected lines have behind them.
  std::string transcript(const std::string& command, const std::string& expected) {
    CommandReply reply = execute(ann_, command);
    std::string shown;
    while (reply.prompt != 0) {
      shown += reply.output;
      if (!startsWith(expected, shown)) return shown;
      const std::string input =
          expected.substr(shown.size(), expected.find('\n', shown.size()) - shown.size());
      shown += input + "\n";
      reply = answer(ann_, input);
    }
    return shown + reply.text();
  }

  std::vector<std::string> lines_;
  std::size_t at_ = 0;
  int commands_ = 0;
  AgentInProcess agent_;
  ClientInProcess ann_{agent_};
};

TEST(CommandsDocument, ShowsWhatCommandsReallyPrint) {
  Page page;
  page.follow();
  EXPECT_GT(page.commands(), 30);
}

/// The cells of a row "| a | b | c |", without the code marks.
std::vector<std::string> cellsOf(const std::string& row) {
  std::vector<std::string> cells;
  std::size_t begin = 2;
  while (begin < row.size()) {
    const std::size_t end = row.find(" |", begin);
    if (end == std::string::npos) break;
    std::string cell = row.substr(begin, end - begin);
    if (cell.size() >= 2 && cell.front() == '`') cell = cell.substr(1, cell.size() - 2);
    cells.push_back(cell);
    begin = end + 3;
  }
  return cells;
}

TEST(CommandsDocument, ShowsWhatConversionsReallyGive) {
  AgentInProcess agent;
  ClientInProcess ann(agent);
  int direction = -1;
  int rows = 0;
  for (const std::string& line : documentLines()) {
    if (line == "| Code | Stored | Shown |") {
      direction = 0;
    } else if (line == "| Code | Typed | Stored |") {
      direction = 1;
    } else if (!startsWith(line, "|")) {
      direction = -1;
    } else if (direction >= 0 && !startsWith(line, "|---")) {
      const std::vector<std::string> cells = cellsOf(line);
      ASSERT_EQ(cells.size(), 3u) << line;
      const std::string result = convertAt(ann, direction, marked(cells[1]), marked(cells[0]));
      EXPECT_EQ(result.substr(0, result.find(": ")), cells[2]) << line;
      ++rows;
    }
  }
  EXPECT_GT(rows, 40);
}

}  // namespace
}  // namespace nox::agent::test
