#include "nox/encodings/http_reader.h"

#include <gmock/gmock.h>

#include <climits>

#include "nox/core/binary_reader.h"
#include "nox/core/exceptions.h"
#include "nox/protocol/http_request.h"
#include "nox/text/blob.h"
#include "nox/text/pstring.h"
#include "tests/encodings/samples.h"
#include "tests/encodings/scripted_stream.h"
#include "tests/support/caught.h"

namespace nox::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Read = ScriptedInput::Read;

/// What the requests of one test have in common.
struct Service {
  bool enabled = true;
  int maxRequestSize = 0;
  std::string textBefore;  // what a request holds before it reads
  std::vector<int> asked;
  int alive = 0;
};

class PageRequest : public noxp::HTTPRequestProt {
public:
  explicit PageRequest(Service& service) : text(service.textBefore), service_(service) {
    ++service_.alive;
  }
  ~PageRequest() override { --service_.alive; }

  Serializable* create() override {
    auto* request = new PageRequest(service_);
    request->setClassVersion(5);
    request->setPacketSize(6);
    return request;
  }
  Archive& serialize(Archive& ar, unsigned int version) override {
    serializedVersion = version;
    return ar.process(text, "text");
  }
  bool isServiceEnabled(int service) override {
    service_.asked.push_back(service);
    return service_.enabled;
  }
  int getMaxRequestSize() override { return service_.maxRequestSize; }
  void setError(int newStatus, const char* newMessage) override {
    status = newStatus;
    message = newMessage;
  }

  std::string text;
  int status = 0;
  std::string message;
  unsigned int serializedVersion = 99;

private:
  Service& service_;
};

class HttpReader : public testing::Test {
protected:
  HttpReader() {
    PageRequest prototype(service);
    factory.know(prototype);
  }

  std::unique_ptr<PageRequest> read(httpReader& reader) {
    return std::unique_ptr<PageRequest>(dynamic_cast<PageRequest*>(reader.readRootObject()));
  }
  std::unique_ptr<PageRequest> read(ScriptedInput& in) {
    httpReader reader(&factory, &in);
    return read(reader);
  }
  std::unique_ptr<PageRequest> read(const std::string& text) {
    ScriptedInput in(text);
    return read(in);
  }

  void expectRead(const std::string& sent, const std::string& text) {
    const std::unique_ptr<PageRequest> request = read(sent);
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(request->text, text);
    EXPECT_EQ(request->status, 0);
  }
  void expectRefused(const std::string& sent, int status, const std::string& message) {
    service.textBefore = "unchanged";
    const std::unique_ptr<PageRequest> request = read(sent);
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(request->status, status);
    EXPECT_EQ(request->message, message);
    EXPECT_EQ(request->text, "unchanged");
  }

  Service service;
  Factory factory;
};

constexpr char kHeadersTooLong[] = "headers exceed maximum request size";
constexpr char kContentTooLong[] = "Content exceeds maximum request size";
constexpr char kOtherSize[] = "Actual content size is different from content-length header";

TEST_F(HttpReader, ReadsHeadersWithTheirBlankLineAndLeavesTheRest) {
  ScriptedInput in("GET / HTTP/1.1\r\nHost: a\r\n\r\nGET /next");
  const std::unique_ptr<PageRequest> request = read(in);
  EXPECT_EQ(request->text, "GET / HTTP/1.1\r\nHost: a\r\n\r\n");
  EXPECT_EQ(request->status, 0);
  EXPECT_EQ(in.rest(), "GET /next");
  EXPECT_THAT(in.blockReads, IsEmpty());
}

TEST_F(HttpReader, ReadsTheBodyWithOneRead) {
  ScriptedInput in("POST / HTTP/1.1\r\nContent-Length: 5\r\n\r\nhello, world");
  const std::unique_ptr<PageRequest> request = read(in);
  EXPECT_EQ(request->text, "POST / HTTP/1.1\r\nContent-Length: 5\r\n\r\nhello");
  EXPECT_EQ(request->status, 0);
  EXPECT_EQ(in.rest(), ", world");
  EXPECT_THAT(in.blockReads, ElementsAre(Read{5, -1}));
}

TEST_F(HttpReader, ReadsBodiesOfAnyBytes) {
  const std::string body("\x00\xFF\n\r\x80", 5);
  expectRead("P\nContent-Length: 5\n\n" + body, "P\nContent-Length: 5\n\n" + body);
}

TEST_F(HttpReader, KnowsTheContentLengthInAnyLetterCase) {
  for (const std::string header : {"content-length: 2", "CONTENT-LENGTH: 2", "cOnTeNt-LeNgTh: 2",
                                   "Content-Length:2", "Content-Length: \t +2 bytes"}) {
    SCOPED_TRACE(header);
    expectRead("P\n" + header + "\r\n\r\nabc", "P\n" + header + "\r\n\r\nab");
  }
}

TEST_F(HttpReader, KnowsTheContentLengthOnlyAtTheStartOfALine) {
  for (const std::string header :
       {" Content-Length: 2", "X-Content-Length: 2", "Content-Length : 2", "Content-Length 2",
        "Content-Lengt", "Transfer-Encoding: chunked"}) {
    SCOPED_TRACE(header);
    expectRead("P\n" + header + "\r\n\r\nabc", "P\n" + header + "\r\n\r\n");
  }
}

TEST_F(HttpReader, TakesTheLastContentLength) {
  expectRead("P\nContent-Length: 1\nContent-Length: 2\n\nabc",
             "P\nContent-Length: 1\nContent-Length: 2\n\nab");
  expectRead("P\nContent-Length: 2\nContent-Length: 0\n\nabc",
             "P\nContent-Length: 2\nContent-Length: 0\n\n");
}

TEST_F(HttpReader, TakesTheContentLengthEvenFromTheFirstLine) {
  expectRead("Content-Length: 1\n\nab", "Content-Length: 1\n\na");
}

TEST_F(HttpReader, ReadsNoBodyForAContentLengthBelowOne) {
  for (const std::string length : {"0", "-5", "x", "", "-99999999999999999999"}) {
    SCOPED_TRACE(length);
    expectRead("P\nContent-Length:" + length + "\n\nabc", "P\nContent-Length:" + length + "\n\n");
  }
}

TEST_F(HttpReader, KeepsTheBytesOfHeadersAsTheyCame) {
  const std::string headers("P\nX-\xC9\xFF: \0A\n\n", 12);
  expectRead(headers, headers);
}

TEST_F(HttpReader, EndsHeadersAtALineFeedWithOrWithoutCarriageReturn) {
  expectRead("\n", "\n");
  expectRead("\r\n", "\r\n");
  expectRead("a\n\nb", "a\n\n");
  expectRead("a\n \n\r\r\n\r\nb", "a\n \n\r\r\n\r\n");
}

TEST_F(HttpReader, PutsThePrefixInFrontOfTheFirstLine) {
  ScriptedInput in(" HTTP/1.0\r\n\r\n");
  httpReader reader(&factory, &in);
  reader.setPrefix("GET /");
  EXPECT_EQ(read(reader)->text, "GET / HTTP/1.0\r\n\r\n");
}

TEST_F(HttpReader, TakesALineThatIsBlankOnlyWithoutThePrefixForARequestLine) {
  ScriptedInput in("\n\n");
  httpReader reader(&factory, &in);
  reader.setPrefix("GET /");
  EXPECT_EQ(read(reader)->text, "GET /\n\n");
}

TEST_F(HttpReader, KeepsThePrefixForTheRequestsThatFollow) {
  ScriptedInput in("1\n\n2\n\n3\n\n");
  httpReader reader(&factory, &in);
  reader.setPrefix("p");
  EXPECT_EQ(read(reader)->text, "p1\n\n");
  EXPECT_EQ(read(reader)->text, "p2\n\n");
  reader.setPrefix(nullptr);
  EXPECT_EQ(read(reader)->text, "3\n\n");
}

TEST_F(HttpReader, CopiesThePrefix) {
  ScriptedInput in("/\n\n");
  httpReader reader(&factory, &in);
  char prefix[] = "GET ";
  reader.setPrefix(prefix);
  prefix[0] = 'X';
  EXPECT_EQ(read(reader)->text, "GET /\n\n");
}

TEST_F(HttpReader, AcceptsHeadersOfExactlyTheLimit) {
  service.maxRequestSize = 10;
  expectRead("1234567\n\r\n", "1234567\n\r\n");
}

TEST_F(HttpReader, RefusesHeadersBeyondTheLimit) {
  service.maxRequestSize = 10;
  expectRefused("12345678\n\r\nrest", 400, kHeadersTooLong);
  expectRefused("1234567890\n", 400, kHeadersTooLong);
}

TEST_F(HttpReader, CountsThePrefixTowardsTheLimit) {
  service.maxRequestSize = 10;
  for (const std::string prefix : {"1234", "12345"}) {
    ScriptedInput in("6789\n\n");
    httpReader reader(&factory, &in);
    reader.setPrefix(prefix.c_str());
    EXPECT_EQ(read(reader)->status, prefix.size() == 4 ? 0 : 400);
  }
}

TEST_F(HttpReader, StopsReadingWhereTheHeadersPassTheLimit) {
  service.maxRequestSize = 10;
  ScriptedInput in("1234567890\nunread\n\n");
  EXPECT_EQ(read(in)->status, 400);
  EXPECT_EQ(in.rest(), "unread\n\n");
}

TEST_F(HttpReader, AcceptsARequestOfExactlyTheLimit) {
  service.maxRequestSize = 26;
  expectRead("P\r\nContent-Length: 2\r\n\r\nab", "P\r\nContent-Length: 2\r\n\r\nab");
}

TEST_F(HttpReader, RefusesContentBeyondTheLimitAndLeavesItUnread) {
  service.maxRequestSize = 25;
  expectRefused("P\r\nContent-Length: 2\r\n\r\nab", 413, kContentTooLong);
  ScriptedInput in("P\r\nContent-Length: 2\r\n\r\nab");
  EXPECT_EQ(read(in)->status, 413);
  EXPECT_EQ(in.rest(), "ab");
}

TEST_F(HttpReader, LimitsRequestsTo100000BytesWhereTheServiceNamesNoLimit) {
  for (const int none : {0, -1, INT_MIN}) {
    service.maxRequestSize = none;
    service.textBefore = "";
    const std::string tooLong = "P\nContent-Length: 99976\n\n";  // 25 bytes
    EXPECT_EQ(read(tooLong + std::string(99976, 'x'))->status, 413);
    const std::string fits = "P\nContent-Length: 99975\n\n";
    expectRead(fits + std::string(99975, 'x'), fits + std::string(99975, 'x'));
  }
}

TEST_F(HttpReader, RefusesContentLengthsBeyondAnInt) {
  for (const std::string length : {"2147483647", "4294967301", "99999999999999999999"}) {
    SCOPED_TRACE(length);
    expectRefused("P\nContent-Length: " + length + "\n\nabcde", 413, kContentTooLong);
  }
}

TEST_F(HttpReader, AddsHeadersAndContentWithoutOverflow) {
  service.maxRequestSize = INT_MAX;
  expectRefused("P\nContent-Length: 2147483647\n\nabc", 413, kContentTooLong);
  expectRefused("P\nContent-Length: 2147483618\n\nabc", 413, kContentTooLong);  // 1 too many
}

TEST_F(HttpReader, ReportsAShortBodyAndKeepsTheFullSize) {
  const std::unique_ptr<PageRequest> request = read("P\nContent-Length: 5\n\nabc");
  EXPECT_EQ(request->status, 400);
  EXPECT_EQ(request->message, kOtherSize);
  EXPECT_EQ(request->text, std::string("P\nContent-Length: 5\n\nabc\0\0", 26));
}

TEST_F(HttpReader, ReportsABodyThatNeverCame) {
  ScriptedInput in("P\nContent-Length: 3\n\n", ScriptedInput::Silence);
  const std::unique_ptr<PageRequest> request = read(in);
  EXPECT_EQ(request->status, 400);
  EXPECT_EQ(request->message, kOtherSize);
  EXPECT_EQ(request->text, std::string("P\nContent-Length: 3\n\n\0\0\0", 24));
}

TEST_F(HttpReader, TakesALongLineInPiecesOf10240Bytes) {
  const std::string piece(10240, 'a');
  // The line feed right behind a full piece is a line of its own, and so ends the headers.
  ScriptedInput blank(piece + "\nrest");
  EXPECT_EQ(read(blank)->text, piece + "\n");
  EXPECT_EQ(blank.rest(), "rest");
  // What follows a full piece starts a line.
  ScriptedInput header(piece + "Content-Length: 2\n\nabc");
  EXPECT_EQ(read(header)->text, piece + "Content-Length: 2\n\nab");
  // A line feed as the last of the 10,240 bytes belongs to the line.
  const std::string full = std::string(10239, 'a') + "\n";
  ScriptedInput whole(full + "b\n\n");
  EXPECT_EQ(read(whole)->text, full + "b\n\n");
}

TEST_F(HttpReader, LosesNoRequestObjectAtTheEndOfTheStream) {
  for (const std::string text : {"", "GET ", "GET /\r\n"}) {
    ScriptedInput in(text);
    caught<LAST>([&] { read(in); });
    EXPECT_EQ(service.alive, 1);  // the factory's
  }
}

TEST_F(HttpReader, ReportsSilenceWithinALineAsNone) {
  for (const std::string text : {"", "GET /", "GET /\r\n"}) {
    ScriptedInput in(text, ScriptedInput::Silence);
    caught<NONE>([&] { read(in); });
    EXPECT_EQ(service.alive, 1);
  }
}

TEST_F(HttpReader, PassesOnWhatTheStreamThrowsForAShortBody) {
  ScriptedInput in("P\nContent-Length: 3\n\n", ScriptedInput::ThrowLast);
  caught<LAST>([&] { read(in); });
  EXPECT_EQ(service.alive, 1);
}

TEST_F(HttpReader, ReadsNothingWhenTheFactoryKnowsNoHttpRequest) {
  Factory empty;
  ScriptedInput in("GET /\n\n");
  httpReader reader(&empty, &in);
  EXPECT_EQ(reader.readRootObject(), nullptr);
  EXPECT_EQ(reader.readRequest(), nullptr);
  EXPECT_EQ(in.rest(), "GET /\n\n");
  httpReader withoutFactory(nullptr, &in);
  EXPECT_EQ(withoutFactory.readRootObject(), nullptr);
}

TEST_F(HttpReader, ReadsNothingWhenTheFactorysObjectIsNoHttpRequest) {
  Factory other;
  Request prototype(506, nullptr);
  other.know(prototype);
  ScriptedInput in("GET /\n\n");
  httpReader reader(&other, &in);
  EXPECT_EQ(reader.readRootObject(), nullptr);
  EXPECT_EQ(in.rest(), "GET /\n\n");
  EXPECT_EQ(*prototype.alive(), 2);  // this one and the factory's
}

TEST_F(HttpReader, TellsADisabledServiceAndReadsNothing) {
  service.enabled = false;
  ScriptedInput in("GET /\n\n");
  const std::unique_ptr<PageRequest> request = read(in);
  ASSERT_NE(request, nullptr);
  EXPECT_EQ(request->status, 500);
  EXPECT_EQ(request->message, "Service Disabled");
  EXPECT_EQ(request->text, "");
  EXPECT_EQ(in.rest(), "GET /\n\n");
  EXPECT_THAT(service.asked, ElementsAre(0));
}

TEST_F(HttpReader, SerialisesWithVersionAndPacketSizeZero) {
  const std::unique_ptr<PageRequest> request = read("GET /\n\n");
  EXPECT_EQ(request->serializedVersion, 0U);
  EXPECT_EQ(request->getClassVersion(), 0);
  EXPECT_EQ(request->getPacketSize(), 0U);
}

TEST_F(HttpReader, ForgetsTheErrorOfAnEarlierRequest) {
  ScriptedInput in("P\nContent-Length: 200000\n\nGET /\n\n");
  httpReader reader(&factory, &in);
  EXPECT_EQ(read(reader)->status, 413);
  const std::unique_ptr<PageRequest> second = read(reader);
  EXPECT_EQ(second->status, 0);
  EXPECT_EQ(second->text, "GET /\n\n");
}

TEST_F(HttpReader, AsksEachRequestForItsLimit) {
  ScriptedInput in("123456789\n\n123456789\n\n");
  httpReader reader(&factory, &in);
  service.maxRequestSize = 11;
  EXPECT_EQ(read(reader)->status, 0);
  service.maxRequestSize = 10;
  EXPECT_EQ(read(reader)->status, 400);
}

TEST_F(HttpReader, ReturnsItsRequest) {
  ScriptedInput in("GET /\n\n");
  httpReader reader(&factory, &in);
  const std::unique_ptr<noxp::RequestProt> request(reader.readRequest());
  ASSERT_NE(request, nullptr);
  EXPECT_EQ(request->getType(), 506);
  EXPECT_EQ(static_cast<PageRequest&>(*request).text, "GET /\n\n");
}

TEST_F(HttpReader, LetsAnObjectReadItself) {
  ScriptedInput in("GET /\n\n");
  httpReader reader(&factory, &in);
  PageRequest request(service);
  request.setClassVersion(3);
  EXPECT_EQ(reader.readObject(&request), &request);
  EXPECT_EQ(request.text, "GET /\n\n");
  EXPECT_EQ(request.serializedVersion, 3U);
}

TEST_F(HttpReader, ReadsARootWhereNoObjectIsGiven) {
  ScriptedInput in("GET /\n\n");
  httpReader reader(&factory, &in);
  const std::unique_ptr<Serializable> root(reader.readObject(nullptr));
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(static_cast<PageRequest&>(*root).text, "GET /\n\n");
}

TEST_F(HttpReader, LeavesOtherFieldsAsTheyAre) {
  ScriptedInput in("GET /\n\n");
  httpReader reader(&factory, &in);
  int number = 5;
  NOXPString text("text");
  NOXPBlob blob("blob");
  PageRequest request(service);
  reader.process(number, "n").process(&text, "s").process(&blob, "b").process(&request, "o");
  EXPECT_EQ(number, 5);
  EXPECT_STREQ(text.c_str(), "text");
  EXPECT_EQ(blob.length(), 4U);
  EXPECT_EQ(request.text, "");
  EXPECT_EQ(in.rest(), "GET /\n\n");
}

TEST_F(HttpReader, ReadsBytesNumbersAndLinesAsAnInputReader) {
  ScriptedInput in(std::string("A\x00\x00\x01\x02line\nrest", 14));
  httpReader reader(&factory, &in);
  input_reader& primitives = reader;
  EXPECT_EQ(primitives.readChar(), 'A');
  EXPECT_EQ(primitives.readInt(), 258);
  primitives.checkEndOfObjectMarker();
  primitives.readNOXPString(nullptr);
  primitives.readNOXPBlob(nullptr);
  const std::unique_ptr<std::string> line(primitives.readString());
  EXPECT_EQ(*line, "line\n");
  EXPECT_EQ(in.rest(), "rest");
}

TEST_F(HttpReader, AnswersOnTheBinaryPort) {
  const std::string sent = "GET /page HTTP/1.0\r\nHost: a\r\n\r\n";
  ScriptedInput in(sent);
  BinaryReader reader(&factory, &in);
  const std::unique_ptr<noxp::RequestProt> request(reader.readRequest());
  ASSERT_NE(request, nullptr);
  EXPECT_EQ(static_cast<PageRequest&>(*request).text, sent);
}

TEST_F(HttpReader, IsNotMissedOnABinaryPortWithoutHttp) {
  Factory empty;
  ScriptedInput in("GET /page HTTP/1.0\r\n\r\n");
  BinaryReader reader(&empty, &in);
  EXPECT_EQ(reader.readRootObject(), nullptr);
}

}  // namespace
}  // namespace nox::test
