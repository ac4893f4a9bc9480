#include "nox/core/out_stream.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "nox/text/blob.h"
#include "nox/text/pstring.h"
#include "tests/support/bytes.h"

namespace nox {
namespace {

using test::bytes;

// What an application writes: the one primitive and `flush`. Notes each call on its own.
class Sink : public OutStream {
public:
  using OutStream::send;
  void send(const char* data, std::size_t n) override { sent_.emplace_back(data, n); }
  void flush() override {}
  std::vector<std::string> sent_;
};

using Calls = std::vector<std::string>;

TEST(OutStream, SendsABlobsBytesAlone) {
  Sink sink;
  NOXPBlob blob("a\0b", 3);
  sink.send(blob);
  sink.send(&blob);
  EXPECT_EQ(sink.sent_, (Calls{std::string("a\0b", 3), std::string("a\0b", 3)}));
}

TEST(OutStream, SendsNothingForEmptyAndAbsentBlobs) {
  Sink sink;
  NOXPBlob empty;
  sink.send(empty);
  sink.send(&empty);
  sink.send(static_cast<NOXPBlob*>(nullptr));
  EXPECT_TRUE(sink.sent_.empty());
}

TEST(OutStream, SendsAStringsBytesAloneAndConvertsItInPlace) {
  Sink sink;
  NOXPString text("ab");
  sink.send(text);
  sink.send(&text);
  EXPECT_EQ(sink.sent_, (Calls{"ab", "ab"}));
  EXPECT_EQ(text.getType(), NOXPString::Utf8);
}

TEST(OutStream, SendsTheLengthOfTheConvertedText) {
  // The wide text has 2 elements, its UTF-8 form 5 bytes.
  Sink sink;
  NOXPString text(std::wstring(L"\u20AC\u00E9"));
  sink.send(text);
  ASSERT_EQ(sink.sent_.size(), 1u);
  EXPECT_BYTES(sink.sent_[0], bytes("E2 82 AC C3 A9"));
}

TEST(OutStream, TextStopsAtItsFirstNul) {
  Sink sink;
  NOXPString text("ab\0cd", 5, false);
  ASSERT_EQ(text.length(), 5u);
  sink.send(text);
  EXPECT_EQ(sink.sent_, Calls{"ab"});
}

TEST(OutStream, SendsNothingForEmptyAndAbsentStrings) {
  Sink sink;
  NOXPString never;
  NOXPString empty("");
  NOXPString nul("\0", 1, false);
  sink.send(never);
  sink.send(empty);
  sink.send(nul);
  sink.send(static_cast<NOXPString*>(nullptr));
  EXPECT_TRUE(sink.sent_.empty());
}

TEST(OutStream, SendsNothingForAStringWithoutPayload) {
  Sink sink;
  NOXPString text("ab");
  NOXPString source("x", true);
  ASSERT_FALSE(text.ExtractFrom(&source, 9, 0, 0));
  sink.send(text);
  EXPECT_TRUE(sink.sent_.empty());
}

TEST(OutStream, BlobSendTakesACount) {
  Sink sink;
  char data[] = "abc";
  sink.blobSend(data, 2);
  sink.blobSend(data, 0);
  sink.blobSend(data, -1);
  EXPECT_EQ(sink.sent_, Calls{"ab"});
}

// A stream that frames the values it is handed, each by the form it came in.
class NotingSink : public Sink {
public:
  using Sink::send;
  void send(NOXPBlob& blob) override {
    note("blob&");
    OutStream::send(blob);
  }
  void send(NOXPBlob* blob) override {
    note("blob*");
    OutStream::send(blob);
  }
  void send(NOXPString& text) override {
    note("text&");
    OutStream::send(text);
  }
  void send(NOXPString* text) override {
    note("text*");
    OutStream::send(text);
  }

private:
  void note(const char* form) { sent_.emplace_back(form); }
};

TEST(OutStream, CallsNoOtherFormThanThePrimitiveForAValue) {
  NotingSink sink;
  NOXPBlob blob("b");
  NOXPString text("t");
  sink.send(blob);
  sink.send(&blob);
  sink.send(text);
  sink.send(&text);
  EXPECT_EQ(sink.sent_, (Calls{"blob&", "b", "blob*", "b", "text&", "t", "text*", "t"}));
}

}  // namespace
}  // namespace nox
