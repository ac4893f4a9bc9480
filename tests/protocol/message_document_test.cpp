#include "tests/protocol/message_document.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "tests/protocol/message_table.h"
#include "tests/support/bytes.h"
#include "tests/support/frames.h"

namespace nox::test {
namespace {

std::string document() {
  std::ifstream file(NOX_MESSAGE_DOCUMENT, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << NOX_MESSAGE_DOCUMENT;
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

/// The bytes that the document shows for each class, by heading ("201 ReadRecordRequestProt").
std::map<std::string, std::string> framesInDocument() {
  std::map<std::string, std::string> frames;
  std::istringstream lines(document());
  std::string heading;
  bool inFrame = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("### ", 0) == 0) heading = line.substr(4);
    if (line.rfind("```", 0) == 0) {
      inFrame = !inFrame;
    } else if (inFrame) {
      frames[heading] += bytes(line.substr(0, line.find('#')));
    }
  }
  return frames;
}

TEST(MessageDocument, ShowsTheWholeFrameOfEveryMessage) {
  std::map<std::string, std::string> frames = framesInDocument();
  for (const MessageRow* row : allRows()) {
    const std::string heading = std::to_string(row->code) + " " + row->shortName();
    SCOPED_TRACE(heading);
    EXPECT_BYTES(frames[heading], frameOf(*row->example().message));
  }
  EXPECT_EQ(frames.size(), allRows().size());
}

TEST(MessageDocument, SaysWhatTheCodeDoes) {
  std::istringstream found(document());
  std::istringstream expected(messageDocument());
  std::string foundLine;
  std::string expectedLine;
  for (int line = 1; std::getline(expected, expectedLine); ++line) {
    ASSERT_TRUE(std::getline(found, foundLine)) << "the document ends before line " << line;
    ASSERT_EQ(foundLine, expectedLine)
        << "docs/messages.md, line " << line << ", is not what the code does (the second one is). "
        << "If the code is right: cmake --build build/dev --target messages_doc";
  }
  EXPECT_FALSE(std::getline(found, foundLine)) << "the document goes on with: " << foundLine;
}

}  // namespace
}  // namespace nox::test
