// The examples of docs/agent-sql.md, run from top to bottom.
#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/agent/sql/sql_fixture.h"

namespace nox::agent::test {
namespace {

constexpr std::string_view kPrompt = "sql> ";

class Page {
public:
  Page() {
    std::ifstream document(NOX_SQL_DOCUMENT);
    for (std::string line; std::getline(document, line);) lines_.push_back(line);
    ann_.run("CREATE-FILE BOOKS");
  }

  /// How many statements there were.
  int follow() {
    int statements = 0;
    for (at_ = 0; at_ < lines_.size(); ++at_) {
      if (lines_[at_].rfind("```records ", 0) == 0) {
        writeRecords(lines_[at_].substr(11));
      } else if (lines_[at_] == "```console") {
        ++at_;
        while (lines_.at(at_) != "```") {
          runStatement();
          ++statements;
        }
      }
    }
    return statements;
  }

private:
  void writeRecords(const std::string& file) {
    while (lines_.at(++at_) != "```") {
      const std::string& line = lines_[at_];
      const std::size_t middle = line.find(" = ");
      std::string body = line.substr(middle + 3);
      std::replace(body.begin(), body.end(), '^', '\xFE');
      std::replace(body.begin(), body.end(), ']', '\xFD');
      EXPECT_EQ(ann_.write(file.c_str(), line.substr(0, middle).c_str(), body), "0");
    }
  }

  void runStatement() {
    const std::string line = lines_[at_++];
    ASSERT_EQ(line.compare(0, kPrompt.size(), kPrompt), 0) << line;
    std::string expected;
    for (; lines_.at(at_) != "```" && lines_[at_].rfind(kPrompt, 0) != 0; ++at_) {
      expected += lines_[at_] + "\n";
    }
    EXPECT_EQ(answerTo(line.substr(kPrompt.size())), expected) << line;
  }

  std::string answerTo(const std::string& statement) {
    std::string text;
    noxp::sql::CompileAndExecuteRequestProt request(
        new NOXPString(statement.data(), statement.size(), true));
    const std::unique_ptr<Serializable> reply = ann_.ask(request);
    if (const auto* const rows = dynamic_cast<noxp::sql::SQLResultResponseProt*>(reply.get())) {
      while (noxp::sql::RowProt* const row = rows->getResultSet()->next()) {
        for (int i = 0; i < row->getNumberOfFields(); ++i) {
          if (i > 0) text += " | ";
          const std::string_view value = row->getColumnView(i);
          text += value == "\x80" ? "null" : value;
        }
        text += "\n";
      }
      return text;
    }
    if (const auto* const count = dynamic_cast<noxp::sql::SQLUpdateResponseProt*>(reply.get())) {
      return "changed " + std::to_string(count->getUpdateCount()) + "\n";
    }
    return errorOf(*reply).substr(0, 6) + " " + messageOf(*reply) + "\n";
  }

  AgentInProcess agent_;
  ClientInProcess ann_{agent_};
  std::vector<std::string> lines_;
  std::size_t at_ = 0;
};

TEST(SqlDocument, ShowsWhatStatementsAnswer) { EXPECT_GE(Page().follow(), 11); }

}  // namespace
}  // namespace nox::agent::test
