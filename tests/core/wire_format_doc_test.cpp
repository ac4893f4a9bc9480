// docs/wire-format.md says what the library does: its examples are read from the document, written
// and read by the library, and compared.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>

#include "nox/protocol/common_messages.h"
#include "nox/protocol/http_request.h"
#include "nox/protocol/remote/statement_requests.h"
#include "nox/protocol/status_replies.h"
#include "tests/core/samples.h"
#include "tests/support/bytes.h"
#include "tests/support/contents.h"
#include "tests/support/frames.h"

namespace nox::test {
namespace {

using noxp::common::EchoRequestProt;
using noxp::remote::StatementExecuteQueryRequestProt;

std::string withoutComment(const std::string& line) { return line.substr(0, line.find('#')); }

std::string trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

/// What stands between "```" + `kind` and the closing fence, without comments: block name and text.
std::map<std::string, std::string> blocks(const std::string& kind) {
  std::ifstream document(NOX_WIRE_FORMAT_DOCUMENT);
  EXPECT_TRUE(document.is_open()) << NOX_WIRE_FORMAT_DOCUMENT;
  std::map<std::string, std::string> found;
  const std::string fence = "```" + kind;
  std::string* open = nullptr;
  for (std::string line; std::getline(document, line);) {
    const std::string text = trimmed(line);
    if (open && text == "```") {
      open = nullptr;
    } else if (open) {
      *open += withoutComment(line) + "\n";
    } else if (text == fence || text.rfind(fence + " ", 0) == 0) {
      const auto [block, isNew] = found.emplace(trimmed(text.substr(fence.size())), "");
      EXPECT_TRUE(isNew) << "twice: " << block->first;
      open = &block->second;
    }
  }
  return found;
}

std::string example(const std::string& name) {
  const auto all = blocks("hex");
  const auto found = all.find(name);
  if (found == all.end()) {
    ADD_FAILURE() << "the document has no example " << name;
    return "";
  }
  return bytes(found->second);
}

/// What a writer makes of one field: the frame without what stands around the field.
std::string fieldOf(Serializable&& holder) {
  constexpr std::size_t kBefore = 4 + 1 + 11;  // length, '[', the object's head
  constexpr std::size_t kBehind = 2;           // ';', ']'
  const std::string frame = frameOf(holder);
  return frame.substr(kBefore, frame.size() - kBefore - kBehind);
}

/// One field of any kind.
template <class Field>
class With : public Serializable {
public:
  explicit With(Field field) : field_(field) {}
  Serializable* create() override { return nullptr; }
  int getType() override { return 3; }
  Archive& serialize(Archive& ar, unsigned int /*version*/) override { return ar & field_; }

private:
  Field field_;
};

std::string nullFrame() {
  MemoryBufferOutStream out;
  BinaryWriter(&out).writeRoot(static_cast<Serializable*>(nullptr));
  return out.str();
}

EchoRequestProt hello() {
  EchoRequestProt request;
  request.getBuffer()->append("hello");
  return request;
}

std::string queryInVersion(int version) {
  StatementExecuteQueryRequestProt request("LIST", Borrowed<noxp::remote::SelectListProt>(nullptr));
  request.setClassVersion(version);
  return frameOf(request);
}

TEST(WireFormatDocument, ShowsWhatIsWritten) {
  const std::map<std::string, std::function<std::string()>> written = {
      {"integer", [] { return fieldOf(With<int>(5)); }},
      {"integer-negative", [] { return fieldOf(With<int>(-2)); }},
      {"string", [] { return fieldOf(With<std::string>("ab")); }},
      {"string-empty", [] { return fieldOf(Text("")); }},
      {"string-utf8", [] { return fieldOf(Text(NOXPString("\xC3\xA9", true))); }},
      {"string-null", [] { return fieldOf(With<NOXPString*>(nullptr)); }},
      {"string-wrapped-begin", [] { return fieldOf(Text(std::string(65536, 'a'))).substr(0, 6); }},
      {"blob", [] { return fieldOf(Bytes("AB")); }},
      {"blob-empty", [] { return fieldOf(Bytes("")); }},
      {"blob-null", [] { return fieldOf(With<NOXPBlob*>(nullptr)); }},
      {"null-object", [] { return fieldOf(With<Serializable*>(nullptr)); }},
      {"frame", [] { return frameOf(Pair(5, "ab")); }},
      {"frame-null", nullFrame},
      {"frame-echo", [] { return frameOf(hello()); }},
      {"frame-error", [] { return frameOf(ErrorResponseProt(SQLExtError("IE", "000", "Full"))); }},
      {"version-0", [] { return queryInVersion(0); }},
      {"version-1", [] { return queryInVersion(1); }},
  };
  for (const auto& [name, bytesWritten] : written) {
    SCOPED_TRACE(name);
    EXPECT_BYTES(bytesWritten(), example(name));
  }

  std::set<std::string> tested = {"frame-compressed", "http"};  // by the tests below
  for (const auto& entry : written) tested.insert(entry.first);
  for (const auto& block : blocks("hex")) EXPECT_EQ(tested.count(block.first), 1u) << block.first;
}

TEST(WireFormatDocument, ShowsWhatIsRead) {
  Classes<Pair, EchoRequestProt, ErrorResponseProt, StatementExecuteQueryRequestProt> factory;
  for (const char* name : {"frame", "frame-echo", "frame-error", "version-0"}) {
    SCOPED_TRACE(name);
    const std::string frame = example(name);
    const std::unique_ptr<Serializable> read = readFrame(frame, factory);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->getPacketSize(), frame.size() - 4);
    EXPECT_BYTES(frameOf(*read), frame);
    EXPECT_EQ(read->getPacketSize(), frame.size());
  }
  EXPECT_EQ(readFrame(example("frame-null"), factory), nullptr);

  const auto pair = readAs<Pair>(example("frame"), factory);
  ASSERT_NE(pair, nullptr);
  EXPECT_EQ(pair->number_, 5);
  EXPECT_EQ(pair->text_, "ab");

  const auto query = readAs<StatementExecuteQueryRequestProt>(example("version-1"), factory);
  ASSERT_NE(query, nullptr);
  EXPECT_EQ(query->getClassVersion(), 1);
  EXPECT_EQ(contentOf(query->getQuery()), "LIST");
}

TEST(WireFormatDocument, ShowsACompressedFrame) {
  const std::string shown = example("frame-compressed");
  Classes<EchoRequestProt> factory;
  const auto read = readAs<EchoRequestProt>(shown, factory);
  ASSERT_NE(read, nullptr);
  EXPECT_BYTES(frameOf(*read), example("frame-echo"));

  EchoRequestProt request = hello();
  Serializable::properties_t always{true, 0};
  request.setProperties(&always);
  const std::string written = frameOf(request);
  // The deflate data is the compressor's affair; what stands around it is not, but for the length.
  constexpr std::size_t kBegin = 4;
  constexpr std::size_t kHead = 1 + 4 + 10;  // '[', "GZIP", the gzip header
  constexpr std::size_t kTail = 4 + 4 + 1;   // checksum, size, ']'
  EXPECT_BYTES(written.substr(kBegin, kHead), shown.substr(kBegin, kHead));
  EXPECT_BYTES(written.substr(written.size() - kTail), shown.substr(shown.size() - kTail));
}

/// Keeps the text of the request.
class Http : public noxp::HTTPRequestProt {
public:
  Serializable* create() override { return new Http; }
  Archive& serialize(Archive& ar, unsigned int /*version*/) override { return ar & text_; }
  bool isServiceEnabled(int /*service*/) override { return true; }
  int getMaxRequestSize() override { return 0; }
  void setError(int status, const char* /*message*/) override { status_ = status; }

  std::string text_;
  int status_ = 200;
};

TEST(WireFormatDocument, ShowsAnHttpRequest) {
  Classes<Http> factory;
  const auto read = readAs<Http>(example("http"), factory);
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(read->text_, "GET / HTTP/1.0\r\n\r\n");
  EXPECT_EQ(read->status_, 200);
}

TEST(WireFormatDocument, SaysHowOtherBytesEnd) {
  const auto tables = blocks("outcomes");
  ASSERT_EQ(tables.size(), 1u);
  Classes<Pair, Text, Bytes, ErrorResponseProt, SQLExtError> factory;
  std::istringstream lines(tables.begin()->second);
  std::string frame;
  int outcomes = 0;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t arrow = line.find("->");
    frame += line.substr(0, arrow);  // a long frame stands on a line before its outcome
    if (arrow == std::string::npos) continue;
    SCOPED_TRACE(frame);
    EXPECT_EQ(outcomeOf(bytes(frame), factory), trimmed(line.substr(arrow + 2)));
    frame.clear();
    ++outcomes;
  }
  EXPECT_GT(outcomes, 20);
}

}  // namespace
}  // namespace nox::test
