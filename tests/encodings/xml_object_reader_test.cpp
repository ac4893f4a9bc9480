#include "nox/encodings/xml_object_reader.h"

#include <gtest/gtest.h>

#include <climits>
#include <optional>

#include "nox/core/exceptions.h"
#include "nox/encodings/xml_object_writer.h"
#include "nox/text/blob.h"
#include "nox/text/pstring.h"
#include "tests/encodings/mended_xml_reader.h"
#include "tests/encodings/samples.h"
#include "tests/support/caught.h"

namespace nox::test {
namespace {

void expectUnexpected(int found, int expected, const std::function<void()>& action) {
  auto error = caught<UnexpectedChar>(action);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->getChar(), found);
  EXPECT_EQ(error->getExpectedChar(), expected);
}

void expectRootFails(const std::string& text, int found, int expected) {
  SCOPED_TRACE(text);
  ExactText exact(text);
  XMLObjectReader reader(nullptr, exact.stream());
  expectUnexpected(found, expected, [&] { reader.readRootObject(); });
}

TEST(XmlReader, MissesTheFirstByteOfAnEmptyText) { expectRootFails("", 0, '<'); }

TEST(XmlReader, MissesTheTagBehindASingleByte) {
  expectRootFails("<", 0, 'o');
  expectRootFails("x", 0, 'o');
}

// Deliberate: the end-of-text test is inverted.
TEST(XmlReader, StopsAtTheFirstTokenOfEveryText) {
  expectRootFails(R"(<o type="3" version="0"></o>)", 'o', 'o');
  expectRootFails(R"(<o/>)", 'o', 'o');
  expectRootFails("<x", 'x', 'o');
}

TEST(XmlReader, SkipsNoSpaceAndAcceptsAnyFirstByte) {
  expectRootFails(" <o", '<', 'o');
  expectRootFails("< o", ' ', 'o');
  expectRootFails("xo", 'o', 'o');
}

TEST(XmlReader, ReportsBytesAsUnsigned) { expectRootFails("<\xFF", 255, 'o'); }

TEST(XmlReader, StopsAtTheFirstTokenOfFieldsToo) {
  ExactText exact("<int value=\"7\"/>");
  XMLObjectReader number(nullptr, exact.stream());
  int value = 1;
  expectUnexpected('i', 'i', [&] { number.process(value, "n"); });
  EXPECT_EQ(value, 1);

  XMLObjectReader string(nullptr, exact.stream());
  NOXPString text("old");
  expectUnexpected('i', 'v', [&] { string.process(&text, "s"); });
  EXPECT_STREQ(text.c_str(), "old");

  XMLObjectReader object(nullptr, exact.stream());
  Object sample(3, nullptr);
  expectUnexpected('i', 'o', [&] { object.process(&sample, "o"); });
}

TEST(XmlReader, MovesOnByOneByteWithEachFailure) {
  ExactText exact("<oz");
  XMLObjectReader reader(nullptr, exact.stream());
  expectUnexpected('o', 'o', [&] { reader.readRootObject(); });
  expectUnexpected('z', 'o', [&] { reader.readRootObject(); });
  expectUnexpected(0, 'o', [&] { reader.readRootObject(); });
  expectUnexpected(0, '<', [&] { reader.readRootObject(); });
  expectUnexpected(0, '<', [&] { reader.readRootObject(); });
}

// Deliberate: only the other constructor prepares reading.
TEST(XmlReader, ReadsNothingFromAnInputStreamThatIsNotKnownToBeMemory) {
  ExactText exact("<o");
  InputStream* stream = exact.stream();
  XMLObjectReader reader(nullptr, stream);
  EXPECT_EQ(reader.getInputStream(), stream);
  expectUnexpected(0, '<', [&] { reader.readRootObject(); });
}

TEST(XmlReader, TakesAMissingStreamForAnEmptyText) {
  XMLObjectReader none(nullptr, static_cast<MemoryBufferInputStream*>(nullptr));
  expectUnexpected(0, '<', [&] { none.readRootObject(); });
  MemoryBufferInputStream noBuffer(nullptr, 5);
  XMLObjectReader nothing(nullptr, &noBuffer);
  expectUnexpected(0, '<', [&] { nothing.readRootObject(); });
}

TEST(XmlReader, LeavesStandardStringsAndBlobsAsTheyAre) {
  ExactText exact("<o");
  XMLObjectReader reader(nullptr, exact.stream());
  std::string text = "text";
  NOXPBlob blob("blob");
  EXPECT_EQ(&reader.process(text, "t"), &reader);
  EXPECT_EQ(&reader.process(&blob, "b"), &reader);
  EXPECT_EQ(text, "text");
  EXPECT_EQ(blob.length(), 4U);
}

class MendedXmlReader : public testing::Test {
protected:
  MendedReader& reader(const std::string& text) {
    text_.emplace(text);
    reader_.emplace(&factory, text_->stream());
    return *reader_;
  }

  Factory factory;

private:
  std::optional<ExactText> text_;
  std::optional<MendedReader> reader_;
};

int readNumber(MendedReader& reader) {
  int value = -77;
  reader.process(value, "n");
  return value;
}

TEST_F(MendedXmlReader, ReadsIntegers) {
  EXPECT_EQ(readNumber(reader(R"(<int value="7"/>)")), 7);
  EXPECT_EQ(readNumber(reader(R"(  <int  value = "-8" />)")), -8);
  EXPECT_EQ(readNumber(reader(R"(<int value="12x"/>)")), 12);
  EXPECT_EQ(readNumber(reader(R"(<int value="x"/>)")), 0);
  EXPECT_EQ(readNumber(reader(R"(<int value=""/>)")), 0);
}

TEST_F(MendedXmlReader, LimitsIntegersToTheirRange) {
  EXPECT_EQ(readNumber(reader(R"(<int value="99999999999999999999"/>)")), INT_MAX);
  EXPECT_EQ(readNumber(reader(R"(<int value="4294967301"/>)")), INT_MAX);
  EXPECT_EQ(readNumber(reader(R"(<int value="-99999999999999999999"/>)")), INT_MIN);
}

// Deliberate: every end tag is that of an object.
TEST_F(MendedXmlReader, ExpectsTheEndTagOfAnObjectBehindFields) {
  EXPECT_EQ(readNumber(reader(R"(<int value="7"></o>)")), 7);
  expectUnexpected('i', 'o', [&] { readNumber(reader(R"(<int value="7"></int>)")); });

  NOXPString text;
  reader(R"(<var value="a"></o>)").process(&text, "s");
  EXPECT_STREQ(text.c_str(), "a");
  expectUnexpected('v', 'o', [&] { reader(R"(<var value="b"></var>)").process(&text, "s"); });
  EXPECT_STREQ(text.c_str(), "a");
}

TEST_F(MendedXmlReader, ReadsStringsAsUtf8WithoutEscapes) {
  NOXPString text("old");
  reader("<var value=\"&lt;\xC3\xA9\\\"/>").process(&text, "s");
  EXPECT_EQ(text.getType(), NOXPString::Utf8);
  EXPECT_STREQ(text.c_str(), "&lt;\xC3\xA9\\");
}

TEST_F(MendedXmlReader, DropsAStringThatNobodyReceives) {
  MendedReader& both = reader(R"(<var value="lost"/><int value="7"/>)");
  both.process(static_cast<NOXPString*>(nullptr), "s");
  EXPECT_EQ(readNumber(both), 7);
}

TEST_F(MendedXmlReader, WantsAnEqualsSignBehindAnAttribute) {
  expectUnexpected('"', '=', [&] { reader(R"(value"7")").readAttr("value"); });
  expectUnexpected(0, '=', [&] { reader("value").readAttr("value"); });
}

// Deliberate: found and expected change places.
TEST_F(MendedXmlReader, ReportsAMissingQuoteAsFoundAndTheByteAsExpected) {
  expectUnexpected('"', '7', [&] { reader("7\"").readString(); });
  expectUnexpected('"', 0, [&] { reader("").readString(); });
}

TEST_F(MendedXmlReader, EndsAnOpenStringWithTheText) {
  EXPECT_STREQ(reader("\"abc").readString()->c_str(), "abc");
  EXPECT_STREQ(reader("\"").readString()->c_str(), "");
  EXPECT_STREQ(reader("\"\"").readString()->c_str(), "");
}

TEST_F(MendedXmlReader, ReadsAQuotedNumber) { EXPECT_EQ(reader("\"42\"").readInt(), 42); }

TEST_F(MendedXmlReader, TellsWhetherATagClosesItself) {
  EXPECT_TRUE(reader("/>").readEndOfStartTag("o"));
  EXPECT_FALSE(reader(" >").readEndOfStartTag("o"));
  expectUnexpected('x', '>', [&] { reader("x").readEndOfStartTag("o"); });
  expectUnexpected('x', '>', [&] { reader("/x").readEndOfStartTag("o"); });
  expectUnexpected(0, '>', [&] { reader("").readEndOfStartTag("o"); });
}

TEST_F(MendedXmlReader, ChecksEveryByteOfAnEndTag) {
  reader(" </ o >").readEndTag("o");
  expectUnexpected('x', '<', [&] { reader("x").readEndTag("o"); });
  expectUnexpected('o', '/', [&] { reader("<o>").readEndTag("o"); });
  expectUnexpected('p', 'o', [&] { reader("</p>").readEndTag("o"); });
  expectUnexpected('x', '>', [&] { reader("</ox").readEndTag("o"); });
  expectUnexpected(0, '>', [&] { reader("</o").readEndTag("o"); });
}

TEST_F(MendedXmlReader, HasNoStringsOfTheBinaryKind) {
  EXPECT_EQ(reader("x").readNOXPString(), nullptr);
}

TEST_F(MendedXmlReader, CreatesTheObjectThatTheTextNames) {
  unsigned int serialized = 0;
  int value = 0;
  Object prototype(3, [&](Object&, Archive& ar, unsigned int version) {
    serialized = version;
    ar.process(value, "n");
  });
  factory.know(prototype);
  const std::unique_ptr<Serializable> root(
      reader(R"(<o type="3" version="2"><int value="5"/></o>)").readRootObject());
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(root->getType(), 3);
  EXPECT_EQ(serialized, 2U);
  EXPECT_EQ(value, 5);
  EXPECT_EQ(root->getClassVersion(), 0);
  EXPECT_EQ(root->getPacketSize(), 0U);
}

TEST_F(MendedXmlReader, FillsAGivenObjectWhateverTypeTheTextNames) {
  int value = 0;
  Object object(4, [&](Object&, Archive& ar, unsigned int) { ar.process(value, "n"); });
  MendedReader& r = reader(R"(<o type="3" version="0"><int value="5"/></o>)");
  EXPECT_EQ(r.readObject(&object), &object);
  EXPECT_EQ(value, 5);
}

TEST_F(MendedXmlReader, ReadsTheFieldsOfAnObjectThatClosesItself) {
  int value = 0;
  Object object(4, [&](Object&, Archive& ar, unsigned int) { ar.process(value, "n"); });
  reader(R"(<o type="4" version="0"/><int value="5"/>)").process(&object, "o");
  EXPECT_EQ(value, 5);
}

TEST_F(MendedXmlReader, DeletesAnObjectThatNobodyReceives) {
  Object prototype(3, nullptr);
  factory.know(prototype);
  reader(R"(<o type="3" version="0"/>)").process(static_cast<Serializable*>(nullptr), "o");
  EXPECT_EQ(*prototype.alive(), 2);  // this one and the factory's
}

TEST_F(MendedXmlReader, DeletesAnObjectThatItCannotFinish) {
  Object prototype(3, nullptr);
  factory.know(prototype);
  expectUnexpected('x', '<', [&] { reader(R"(<o type="3" version="0">x)").readRootObject(); });
  EXPECT_EQ(*prototype.alive(), 2);
}

TEST_F(MendedXmlReader, ThrowsUnknownTypeForTypesThatTheFactoryLacks) {
  auto error =
      caught<UnknownType>([&] { reader(R"(<o type="3" version="0"/>)").readRootObject(); });
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->getTypeCode(), 3);

  ExactText exact(R"(<o type="3" version="0"/>)");
  MendedReader withoutFactory(nullptr, exact.stream());
  EXPECT_EQ(caught<UnknownType>([&] { withoutFactory.readRootObject(); })->getTypeCode(), 3);
}

// Deliberate: the writer puts other attributes between those that the reader asks for.
TEST_F(MendedXmlReader, CannotReadWhatTheWriterWrites) {
  Object object(3, nullptr);
  factory.know(object, "Three");
  MemoryBufferOutStream out;
  XMLObjectWriter(&factory, &out).writeRoot(object);
  expectUnexpected('t', 'v', [&] { reader(out.str()).readRootObject(); });
}

/// Nested objects, each created through a null pointer; version 1 announces another one inside.
std::string nested(int levels) {
  std::string text;
  for (int level = 1; level < levels; ++level) text += R"(<o type="3" version="1">)";
  text += R"(<o type="3" version="0"/>)";
  for (int level = 1; level < levels; ++level) text += "</o>";
  return text;
}

class NestedXml : public MendedXmlReader {
protected:
  NestedXml() { factory.know(prototype); }

  Object prototype{3, [](Object&, Archive& ar, unsigned int version) {
                     if (version == 1) ar.process(static_cast<Serializable*>(nullptr), "inner");
                   }};
};

TEST_F(NestedXml, MayBe512LevelsDeep) {
  const std::unique_ptr<Serializable> root(reader(nested(512)).readRootObject());
  EXPECT_NE(root, nullptr);
}

TEST_F(NestedXml, FailsBeyond512LevelsAndFreesWhatItMade) {
  auto error = caught<AssertionFailure>([&] { reader(nested(513)).readRootObject(); });
  ASSERT_NE(error, nullptr);
  EXPECT_STREQ(error->what(), "depth <= 512");
  EXPECT_EQ(*prototype.alive(), 2);
}

TEST_F(NestedXml, CountsAfreshAfterAFailure) {
  const std::string tooDeep = nested(513);
  MendedReader& r = reader(tooDeep + nested(512));
  caught<AssertionFailure>([&] { r.readRootObject(); });
  // The failure lies in front of the innermost object; it and the end tags are read by hand.
  const std::unique_ptr<Serializable> innermost(r.readRootObject());
  for (int level = 1; level < 513; ++level) r.readEndTag("o");
  const std::unique_ptr<Serializable> root(r.readRootObject());
  EXPECT_NE(root, nullptr);
}

}  // namespace
}  // namespace nox::test
