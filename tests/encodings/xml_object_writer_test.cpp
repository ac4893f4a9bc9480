#include "nox/encodings/xml_object_writer.h"

#include <gtest/gtest.h>

#include "nox/text/blob.h"
#include "nox/text/pstring.h"
#include "tests/encodings/samples.h"
#include "tests/encodings/scripted_stream.h"

namespace nox::test {
namespace {

class XmlWriter : public testing::Test {
protected:
  Factory factory;
  NotingOutput out;
  XMLObjectWriter writer{&factory, &out};
};

/// Another native code page for as long as it lives.
class CodePage {
public:
  explicit CodePage(std::string name) { EXPECT_TRUE(NOXPString::changeCodePage(name)); }
  ~CodePage() {
    std::string utf8 = "UTF-8";
    EXPECT_TRUE(NOXPString::changeCodePage(utf8));
  }
};

TEST_F(XmlWriter, WritesAnIntegerAndNothingAroundIt) {
  int count = 7;
  EXPECT_EQ(&writer.process(count, "count"), &writer);
  EXPECT_EQ(out.all(), R"(<int name="count" value="7"/>)");
}

TEST_F(XmlWriter, WritesTheSmallestIntegerInDecimal) {
  int value = -2147483647 - 1;
  writer.process(value, "v");
  EXPECT_EQ(out.all(), R"(<int name="v" value="-2147483648"/>)");
}

TEST_F(XmlWriter, WritesTheTextOfAString) {
  NOXPString text("abc");
  EXPECT_EQ(&writer.process(&text, "_fileName"), &writer);
  EXPECT_EQ(out.all(), R"(<var name="_fileName" value="abc"/>)");
}

TEST_F(XmlWriter, EscapesNothing) {
  NOXPString text("say \"<&>\"");
  writer.process(&text, "a\"b");
  EXPECT_EQ(out.all(), "<var name=\"a\"b\" value=\"say \"<&>\"\"/>");
}

TEST_F(XmlWriter, WritesAnEmptyStringAsEmptyText) {
  NOXPString empty;
  NOXPString noText("");
  writer.process(&empty, "a").process(&noText, "b");
  EXPECT_EQ(out.all(), R"(<var name="a" value=""/><var name="b" value=""/>)");
}

TEST_F(XmlWriter, WritesANullStringAsItsOwnElement) {
  writer.process(static_cast<NOXPString*>(nullptr), "sql");
  EXPECT_EQ(out.all(), R"(<nullvar name="sql"/>)");
}

TEST_F(XmlWriter, WritesANullObjectAsItsOwnElement) {
  writer.process(static_cast<Serializable*>(nullptr), "list");
  EXPECT_EQ(out.all(), R"(<nullobj name="list"/>)");
}

TEST_F(XmlWriter, WritesMissingNamesAsEmptyText) {
  int value = 1;
  NOXPString text("x");
  Object object(3, nullptr);
  NOXPString* const texts[] = {&text, nullptr};
  Serializable* const objects[] = {&object, nullptr};
  writer& value& texts[0] & objects[0] & texts[1] & objects[1];
  EXPECT_EQ(out.all(),
            "<int name=\"\" value=\"1\"/><var name=\"\" value=\"x\"/>"
            "<o type=\"3\" typeName=\"\" name=\"\" version=\"0\"></o>\n"
            "<nullvar name=\"\"/><nullobj name=\"\"/>");
}

TEST_F(XmlWriter, GivesAnObjectItsRegisteredTypeName) {
  Object object(3, nullptr);
  factory.know(object, "PrecompileRequest");
  writer.process(&object, "request");
  EXPECT_EQ(out.all(),
            "<o type=\"3\" typeName=\"PrecompileRequest\" name=\"request\" version=\"0\"></o>\n");
}

TEST_F(XmlWriter, LeavesTheTypeNameOfUnknownTypesEmpty) {
  Object unregistered(999, nullptr);
  Object outside(5000, nullptr);
  writer.process(&unregistered, "a").process(&outside, "b");
  EXPECT_EQ(out.all(),
            "<o type=\"999\" typeName=\"\" name=\"a\" version=\"0\"></o>\n"
            "<o type=\"5000\" typeName=\"\" name=\"b\" version=\"0\"></o>\n");
}

TEST_F(XmlWriter, NeedsNoFactory) {
  XMLObjectWriter plain(nullptr, &out);
  Object object(3, nullptr);
  plain.writeRoot(object);
  EXPECT_EQ(out.all(), "<o type=\"3\" typeName=\"\" name=\"\" version=\"0\"></o>\n");
}

TEST_F(XmlWriter, ClosesANestedObjectBeforeItsParentGoesOn) {
  Object inner(4, [](Object&, Archive& ar, unsigned int) {
    int x = 1;
    ar.process(x, "x");
  });
  Object outer(3, [&inner](Object&, Archive& ar, unsigned int) {
    int before = 2;
    int after = 3;
    ar.process(before, "before").process(&inner, "inner").process(after, "after");
  });
  writer.writeRoot(outer);
  EXPECT_EQ(out.all(),
            "<o type=\"3\" typeName=\"\" name=\"\" version=\"0\">"
            "<int name=\"before\" value=\"2\"/>"
            "<o type=\"4\" typeName=\"\" name=\"inner\" version=\"0\">"
            "<int name=\"x\" value=\"1\"/></o>\n"
            "<int name=\"after\" value=\"3\"/></o>\n");
}

// Deliberate: the binary form sends the class version instead.
TEST_F(XmlWriter, ShowsAndSerialisesTheVersionOfTheClass) {
  unsigned int serialized = 0;
  Object object(3, [&](Object&, Archive&, unsigned int version) { serialized = version; });
  object.version = 4294967295U;
  object.setClassVersion(2);
  writer.writeRoot(object);
  EXPECT_EQ(out.all(), "<o type=\"3\" typeName=\"\" name=\"\" version=\"4294967295\"></o>\n");
  EXPECT_EQ(serialized, 4294967295U);
}

// Deliberate: they have no XML form.
TEST_F(XmlWriter, LeavesOutStandardStringsAndBlobs) {
  std::string text = "text";
  NOXPBlob blob("blob");
  EXPECT_EQ(&writer.process(text, "text"), &writer);
  EXPECT_EQ(&writer.process(&blob, "blob"), &writer);
  writer.process(static_cast<NOXPBlob*>(nullptr), "none");
  EXPECT_EQ(out.all(), "");
}

TEST_F(XmlWriter, WritesANullRootWithoutAName) {
  writer.writeRoot(static_cast<Serializable*>(nullptr));
  EXPECT_EQ(out.all(), R"(<nullobj name=""/>)");
}

TEST_F(XmlWriter, TakesTheRootAsAPointerToo) {
  Object object(3, nullptr);
  writer.writeRoot(&object);
  EXPECT_EQ(out.all(), "<o type=\"3\" typeName=\"\" name=\"\" version=\"0\"></o>\n");
}

TEST_F(XmlWriter, NeitherFlushesNorSetsAPacketSize) {
  Object object(3, nullptr);
  writer.writeRoot(object);
  EXPECT_EQ(out.flushes, 0);
  EXPECT_EQ(object.getPacketSize(), 0U);
}

TEST_F(XmlWriter, WritesTheBytesOfUtf8TextAsTheyStand) {
  const CodePage latin1("ISO-8859-1");
  NOXPString utf8("\xC3\xA9", true);
  writer.process(&utf8, "v");
  EXPECT_EQ(out.all(), "<var name=\"v\" value=\"\xC3\xA9\"/>");
}

TEST_F(XmlWriter, ConvertsNarrowTextAndNamesFromTheNativeCodePage) {
  const CodePage latin1("ISO-8859-1");
  NOXPString narrow("\xE9");
  writer.process(&narrow, "n\xE8");
  EXPECT_EQ(out.all(), "<var name=\"n\xC3\xA8\" value=\"\xC3\xA9\"/>");
}

TEST_F(XmlWriter, ConvertsWideTextAndLeavesItUtf8) {
  NOXPString wide(std::wstring(L"a\u00E9"));
  writer.process(&wide, "v");
  EXPECT_EQ(out.all(), "<var name=\"v\" value=\"a\xC3\xA9\"/>");
  EXPECT_EQ(wide.getType(), NOXPString::Utf8);
}

TEST_F(XmlWriter, EndsATextAtItsFirstNul) {
  NOXPString text("a\0b", 3, false);
  writer.process(&text, "v");
  EXPECT_EQ(out.all(), R"(<var name="v" value="a"/>)");
}

TEST_F(XmlWriter, WritesNothingWithoutAStream) {
  XMLObjectWriter nowhere(&factory, nullptr);
  NOXPString text("x");
  Object object(3, [&](Object&, Archive& ar, unsigned int) { ar.process(&text, "v"); });
  nowhere.writeRoot(object);
  nowhere.writeRoot(static_cast<Serializable*>(nullptr));
  EXPECT_EQ(out.all(), "");
}

TEST_F(XmlWriter, ListsAFactorysPrototypesInCodeOrder) {
  Object four(4, [](Object&, Archive& ar, unsigned int) {
    int value = 9;
    ar.process(value, "id");
  });
  Object two(2, nullptr);
  factory.know(four, "Four");
  factory.know(two, "Two");
  writer.writeRoot(factory);
  EXPECT_EQ(out.all(),
            "<o type=\"0\" typeName=\"\" name=\"\" version=\"0\">"
            "<o type=\"2\" typeName=\"Two\" name=\"Two\" version=\"0\"></o>\n"
            "<o type=\"4\" typeName=\"Four\" name=\"Four\" version=\"0\">"
            "<int name=\"id\" value=\"9\"/></o>\n"
            "</o>\n");
}

TEST_F(XmlWriter, CopiesWriteToTheSameStreamWithTheSameNames) {
  Object object(3, nullptr);
  factory.know(object, "Three");
  XMLObjectWriter copy(writer);
  copy.process(&object, "o");
  EXPECT_EQ(out.all(), "<o type=\"3\" typeName=\"Three\" name=\"o\" version=\"0\"></o>\n");
}

TEST_F(XmlWriter, LetsSubclassesWriteTheNullElements) {
  struct Open : XMLObjectWriter {
    using XMLObjectWriter::processNullSerializable;
    using XMLObjectWriter::processNullVar;
    using XMLObjectWriter::XMLObjectWriter;
  } open(&factory, &out);
  open.processNullSerializable("a");
  open.processNullVar("b");
  EXPECT_EQ(out.all(), R"(<nullobj name="a"/><nullvar name="b"/>)");
}

}  // namespace
}  // namespace nox::test
