// What the encodings report, in builds with logger output.
#include <gmock/gmock.h>

#include "nox/diag/logger.h"
#include "nox/encodings/char_reader.h"
#include "nox/encodings/char_writer.h"
#include "nox/encodings/http_reader.h"
#include "nox/encodings/xml_object_writer.h"
#include "nox/protocol/http_request.h"
#include "nox/text/blob.h"
#include "tests/encodings/mended_xml_reader.h"
#include "tests/encodings/samples.h"
#include "tests/encodings/scripted_stream.h"
#include "tests/support/caught.h"
#include "tests/support/log_capture.h"

namespace nox::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class EncodingLog : public testing::Test {
protected:
  void SetUp() override {
    if (!kLoggerOutput) GTEST_SKIP() << "this build discards logger output";
  }
};

/// The debug lines of a reading that ends in UnexpectedChar; no other lines may come.
template <class Action>
std::vector<std::string> linesBeforeUnexpectedChar(Action&& action) {
  const LogCapture log;
  caught<UnexpectedChar>(action);
  EXPECT_EQ(log.texts().size(), log.texts(debug).size());
  return log.texts(debug);
}

std::vector<std::string> rootLines(const std::string& text) {
  ExactText exact(text);
  XMLObjectReader reader(nullptr, exact.stream());
  return linesBeforeUnexpectedChar([&] { reader.readRootObject(); });
}

template <class Step>
std::vector<std::string> stepLines(const std::string& text, Step step) {
  ExactText exact(text);
  MendedReader reader(nullptr, exact.stream());
  return linesBeforeUnexpectedChar([&] { step(reader); });
}

TEST_F(EncodingLog, OfTheXmlReaderNamesTheStepThatFailed) {
  EXPECT_THAT(rootLines(""), ElementsAre("XMLObjectReader::readStartTag: '<' expected"));
  EXPECT_THAT(rootLines("<"), ElementsAre("XMLObjectReader::readToken: mismatched token."));
  EXPECT_THAT(rootLines("<o"), ElementsAre("XMLObjectReader::readToken: mismatched token."));
  EXPECT_THAT(stepLines("type:", [](MendedReader& r) { r.readAttr("type"); }),
              ElementsAre("XMLObjectReader::readAttr: expected '='"));
  EXPECT_THAT(stepLines("'", [](MendedReader& r) { r.readString(); }),
              ElementsAre("XMLObjectReader::readString: expected '\"'"));
  EXPECT_THAT(stepLines("/ ", [](MendedReader& r) { r.readEndOfStartTag("o"); }),
              ElementsAre("XMLObjectReader::readEndOfStartTag: expected '>'"));
}

TEST_F(EncodingLog, OfTheXmlReaderSaysNothingOfEndTags) {
  for (const std::string text : {"x", "<x", "</ox"}) {
    EXPECT_THAT(stepLines(text, [](MendedReader& r) { r.readEndTag("o"); }), IsEmpty());
  }
}

TEST_F(EncodingLog, OfTheXmlReaderCallsDeepNestingCritical) {
  Factory factory;
  Object prototype(3, [](Object&, Archive& ar, unsigned int) {
    ar.process(static_cast<Serializable*>(nullptr), "inner");
  });
  factory.know(prototype);
  std::string text;
  for (int level = 0; level < 512; ++level) text += R"(<o type="3" version="0">)";
  ExactText exact(text);
  MendedReader reader(&factory, exact.stream());
  const LogCapture log;
  caught<AssertionFailure>([&] { reader.readRootObject(); });
  EXPECT_THAT(log.texts(critical), ElementsAre("object nesting too deep"));
}

TEST_F(EncodingLog, OfTheXmlArchivesNamesTheFieldsTheyLackAFormFor) {
  std::string text;
  NOXPBlob blob;
  NotingOutput out;
  XMLObjectWriter writer(nullptr, &out);
  EXPECT_THAT(logged([&] { writer.process(text, "t").process(&blob, "b"); }),
              ElementsAre("Writer can't serialize strings", "Writer can't serialize NOXP blobs"));
  XMLObjectReader reader(nullptr, static_cast<InputStream*>(nullptr));
  EXPECT_THAT(logged([&] { reader.process(text, "t").process(&blob, "b"); }),
              ElementsAre("Reader does not support string serialization",
                          "Reader does not support NOXP blob serialization"));
}

TEST_F(EncodingLog, OfTheTextReadersNamesTheFieldsTheyDoNotRead) {
  ScriptedInput in("");
  char_reader characters(nullptr, &in);
  httpReader http(nullptr, &in);
  for (ObjectReader* reader :
       {static_cast<ObjectReader*>(&characters), static_cast<ObjectReader*>(&http)}) {
    NOXPString string;
    NOXPBlob blob;
    int number = 0;
    Object object(3, nullptr);
    EXPECT_THAT(logged([&] {
                  reader->process(&string, "s").process(&blob, "b").process(number, "n");
                  reader->process(&object, "o");
                }),
                ElementsAre("Reader does not support NOXP string serialization",
                            "Reader does not support NOXP blob serialization"));
  }
}

TEST_F(EncodingLog, OfTheCharacterWriterSaysNothingOfFieldsWithoutText) {
  NotingOutput out;
  char_writer writer(&out);
  NOXPString string;
  NOXPBlob blob;
  int number = 0;
  EXPECT_THAT(
      logged([&] { writer.process(&string, "s").process(&blob, "b").process(number, "n"); }),
      IsEmpty());
}

class TextRequest : public noxp::HTTPRequestProt {
public:
  Serializable* create() override { return new TextRequest; }
  Archive& serialize(Archive& ar, unsigned int /*version*/) override {
    std::string text;
    return ar.process(text, "text");
  }
  bool isServiceEnabled(int /*service*/) override { return true; }
  int getMaxRequestSize() override { return 0; }
  void setError(int /*status*/, const char* /*message*/) override {}
};

TEST_F(EncodingLog, OfTheHttpReaderShowsEveryHeaderLineAsItIs) {
  Factory factory;
  TextRequest prototype;
  factory.know(prototype, "Page");
  // The peer's bytes are no format for the log back end.
  ScriptedInput in("/%s%n HTTP/1.0\r\nContent-Length: 2\r\n\r\nab");
  httpReader reader(&factory, &in);
  reader.setPrefix("GET ");
  const LogCapture log;
  const std::unique_ptr<Serializable> root(reader.readRootObject());
  EXPECT_THAT(log.texts(debug),
              ElementsAre("ObjectFactory::createObject: creating Page(506), version: 0",
                          "header line read from socket: GET /%s%n HTTP/1.0\r\n",
                          "header line read from socket: Content-Length: 2\r\n",
                          "header line read from socket: \r\n"));
}

TEST_F(EncodingLog, OfTheHttpReaderShowsTheLineThatPassesTheLimit) {
  Factory factory;
  TextRequest prototype;
  factory.know(prototype);
  ScriptedInput in(std::string(9999, 'x') + "\n" + std::string(100000, 'y'));
  httpReader reader(&factory, &in);
  const LogCapture log;
  const std::unique_ptr<Serializable> root(reader.readRootObject());
  // 10,000 bytes and eight lines of 10,240 are below 100,000 bytes, nine are not.
  EXPECT_EQ(log.texts(debug).size(), 1U + 10U);
}

TEST_F(EncodingLog, OfAMissingHttpRequestComesFromTheFactory) {
  Factory factory;
  ScriptedInput in("GET /\n\n");
  httpReader reader(&factory, &in);
  EXPECT_THAT(logged([&] { reader.readRootObject(); }),
              ElementsAre("ObjectFactory::createObject: type 506 not registered."));
}

}  // namespace
}  // namespace nox::test
