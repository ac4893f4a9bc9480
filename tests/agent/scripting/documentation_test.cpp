// docs/subroutines.md shows programs and what they print. Here they run.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "tests/agent/support/agent_in_process.h"
#include "tests/agent/support/command_calls.h"

namespace nox::agent {
namespace {

using test::CommandReply;

/// A block of the page between fences.
struct Block {
  std::string kind;
  std::size_t line = 0;  // where its text begins
  std::vector<std::string> lines;
};

std::vector<Block> blocksOf(const std::string& file) {
  std::ifstream page(file);
  EXPECT_TRUE(page) << file;
  std::vector<Block> blocks;
  bool inside = false;
  std::size_t number = 0;
  for (std::string line; std::getline(page, line);) {
    ++number;
    if (line.compare(0, 3, "```") == 0) {
      inside = !inside;
      if (inside) blocks.push_back({line.substr(3), number + 1, {}});
    } else if (inside) {
      blocks.back().lines.push_back(line);
    }
  }
  EXPECT_FALSE(inside) << "a block has no end";
  return blocks;
}

/// A line of it that was typed.
constexpr char kTyped[] = "> ";

class Documentation : public testing::Test {
protected:
  Documentation() : client_(agent_) { test::execute(client_, "CREATE-FILE NOX.SUBS"); }

  /// A program; its first line is a comment with its name.
  void store(const Block& block) {
    constexpr std::size_t kComment = 3;
    ASSERT_EQ(block.lines.at(0).compare(0, kComment, "-- "), 0) << "line " << block.line;
    std::string source;
    for (const std::string& line : block.lines) source += line + "\n";
    const std::string name = block.lines[0].substr(kComment);
    ASSERT_EQ(client_.write("NOX.SUBS", name.c_str(), source), "0");
  }

  /// Types what is typed, and compares the rest with what is answered.
  void play(const Block& block) {
    std::vector<std::string> seen;
    bool asked = false;
    for (const std::string& line : block.lines) {
      if (line.compare(0, 2, kTyped) != 0) continue;
      seen.push_back(line);
      const std::string typed = line.substr(2);
      const CommandReply reply =
          asked ? test::answer(client_, typed) : test::execute(client_, typed);
      asked = reply.prompt != 0;
      std::string text = reply.text();
      while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string& answered = seen.emplace_back(text.substr(0, end));
        answered.erase(answered.find_last_not_of(' ') + 1);  // the page has no blanks there
        text.erase(0, end + 1);
      }
    }
    EXPECT_EQ(seen, block.lines) << "docs/subroutines.md, line " << block.line;
  }

private:
  test::AgentInProcess agent_;
  test::ClientInProcess client_;
};

TEST_F(Documentation, ShowsWhatItsProgramsDo) {
  const std::vector<Block> blocks = blocksOf(NOX_SOURCE_DIR "/docs/subroutines.md");
  EXPECT_GT(blocks.size(), 15U);
  for (const Block& block : blocks) {
    if (block.kind == "lua") {
      store(block);
    } else {
      ASSERT_EQ(block.kind, "console") << "line " << block.line;
      play(block);
    }
  }
}

}  // namespace
}  // namespace nox::agent
