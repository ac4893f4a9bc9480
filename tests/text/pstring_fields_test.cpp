// Counting and extracting MultiValue fields.
#include <gtest/gtest.h>

#include <string>

#include "nox/text/blob.h"
#include "nox/text/pstring.h"
#include "tests/text/text_support.h"

namespace nox::test {
namespace {

constexpr unsigned char kAttribute = 0xFE;

const unsigned char* unsignedText(const char* text) {
  return reinterpret_cast<const unsigned char*>(text);
}

/// A record written with ^ for the attribute mark, ] for the value mark and | for the sub-value
/// mark.
std::string record(std::string text) {
  for (char& c : text) {
    if (c == '^') c = '\xFE';
    if (c == ']') c = '\xFD';
    if (c == '|') c = '\xFC';
  }
  return text;
}

/// The field of a record in this writing, in the same writing; "-" when there is none.
std::string field(const std::string& text, int attribute, int value = 0, int subValue = 0) {
  NOXPString source = utf8(record(text));
  NOXPString target("old");
  if (!target.ExtractFrom(&source, attribute, value, subValue)) {
    EXPECT_EQ(target.getType(), NOXPString::Narrow) << "the old type stays";
    EXPECT_STREQ(target.c_str(), "");
    EXPECT_EQ(target.length(), 0u);
    return "-";
  }
  EXPECT_EQ(target.getType(), NOXPString::Utf8);
  std::string found = target.c_str();
  EXPECT_EQ(target.length(), found.size());
  for (char& c : found) {
    if (c == '\xFE') c = '^';
    if (c == '\xFD') c = ']';
    if (c == '\xFC') c = '|';
  }
  return found;
}

TEST(PStringDCount, CountsFieldsOfUtf8Text) {
  EXPECT_EQ(utf8("").DCount(kAttribute), 0);
  EXPECT_EQ(utf8("a").DCount(kAttribute), 1);
  EXPECT_EQ(utf8(record("^")).DCount(kAttribute), 2);
  EXPECT_EQ(utf8(record("a^b]c^")).DCount(kAttribute), 3);
  EXPECT_EQ(utf8("a,b").DCount(','), 2);
}

TEST(PStringDCount, IsZeroForEveryOtherType) {
  EXPECT_EQ(NOXPString().DCount(','), 0);
  EXPECT_EQ(NOXPString("a,b").DCount(','), 0);
  EXPECT_EQ(NOXPString(std::wstring(L"a,b")).DCount(','), 0);
  NOXPString unicode("a,b");
  ASSERT_TRUE(makeUnicode(unicode));
  EXPECT_EQ(unicode.DCount(','), 0);
  EXPECT_EQ(nullPayload(utf8("a,b")).DCount(','), 0);
}

TEST(PStringDCount, CountsFieldsOfAnyGivenText) {
  NOXPString any;
  EXPECT_EQ(any.DCount(unsignedText("a\xFE"), kAttribute), 2);
  EXPECT_EQ(any.DCount(unsignedText(""), kAttribute), 0);
  EXPECT_EQ(any.DCount(static_cast<const unsigned char*>(nullptr), kAttribute), 0);
}

TEST(PStringDCount, FindsNoMarksInConvertedText) {
  // As UTF-8 the mark is no character; as Latin text it becomes two other bytes.
  NOXPString lost(record("a^"));
  lost.toUTF8();
  EXPECT_EQ(lost.DCount(kAttribute), 1);
  const NativePage page("ISO-8859-1");
  NOXPString kept(record("a^"));
  kept.toUTF8();
  EXPECT_EQ(kept.DCount(kAttribute), 1);
}

TEST(PStringExtract, CountsAttributesFromOne) {
  const std::string text = "A^B]C^D";
  EXPECT_EQ(field(text, 1), "A");
  EXPECT_EQ(field(text, 2), "B]C");
  EXPECT_EQ(field(text, 3), "D");
  EXPECT_EQ(field(text, 4), "-");
}

TEST(PStringExtract, TakesTheFirstAttributeForZeroAndBelow) {
  EXPECT_EQ(field("A^B", 0), "A");
  EXPECT_EQ(field("A^B", -7), "A");
}

TEST(PStringExtract, CountsValuesAndSubValuesFromZeroPastTheFirst) {
  EXPECT_EQ(field("A^B]C", 2, 1), "C");
  EXPECT_EQ(field("A]B]C", 1, 2), "C");
  EXPECT_EQ(field("A]B|C|D", 1, 1, 1), "C");
  EXPECT_EQ(field("A]B|C|D", 1, 1, 2), "D");
  EXPECT_EQ(field("A]B", 1, 2), "-");
  EXPECT_EQ(field("A]B", 1, 1, 1), "-");
}

TEST(PStringExtract, EndsAFieldAtTheMarksOfItsLevel) {
  EXPECT_EQ(field("A]B|C^D", 1), "A]B|C");
  EXPECT_EQ(field("A]B|C^D", 1, 1), "B|C");
  EXPECT_EQ(field("A]B|C^D", 1, 1, 1), "C");
  EXPECT_EQ(field("A]B|C]D", 1, 1, 1), "C");
}

TEST(PStringExtract, IgnoresTheSubValueWithoutAValue) {
  EXPECT_EQ(field("A|B", 1, 0, 1), "A|B");
  EXPECT_EQ(field("A|B", 1, -1, 1), "A|B");
}

TEST(PStringExtract, SearchesValuesBeyondAttributeMarks) {
  EXPECT_EQ(field("A^B]C", 1, 1), "C");
  EXPECT_EQ(field("A]B^C|D", 1, 1, 1), "D");
}

TEST(PStringExtract, FindsNoEmptyField) {
  EXPECT_EQ(field("", 1), "-");
  EXPECT_EQ(field("^B", 1), "-");
  EXPECT_EQ(field("A^", 2), "-");
  EXPECT_EQ(field("A]]C", 1, 1), "-");
}

TEST(PStringExtract, ReadsItsOwnTextBeforeReplacingIt) {
  const std::string rest(100, 'x');
  NOXPString text = utf8(record("A^" + rest));
  EXPECT_TRUE(text.ExtractFrom(&text, 2, 0, 0));
  EXPECT_EQ(text.c_str(), rest);
  EXPECT_TRUE(text.ExtractFrom(&text, 1, 0, 0));
  EXPECT_EQ(text.c_str(), rest);
  EXPECT_FALSE(text.ExtractFrom(&text, 2, 0, 0));
  EXPECT_STREQ(text.c_str(), "");
}

TEST(PStringExtract, ReadsTheSourceUpToItsFirstNul) {
  const std::string content = record({"A\0^B", 4});
  NOXPString source(content);
  NOXPString target;
  EXPECT_FALSE(target.ExtractFrom(&source, 2, 0, 0));
  EXPECT_TRUE(target.ExtractFrom(&source, 1, 0, 0));
  EXPECT_STREQ(target.c_str(), "A");
}

TEST(PStringExtract, MakesAWideSourceNarrow) {
  NOXPString source(std::wstring(L"A"));
  NOXPString target;
  EXPECT_TRUE(target.ExtractFrom(&source, 1, 0, 0));
  EXPECT_EQ(source.getType(), NOXPString::Narrow);
  EXPECT_STREQ(target.c_str(), "A");
}

TEST(PStringExtract, FindsNothingInAMissingSource) {
  NOXPString unicode("A");
  ASSERT_TRUE(makeUnicode(unicode));
  NOXPString text("old");
  EXPECT_FALSE(text.ExtractFrom(&unicode, 1, 0, 0));
  EXPECT_EQ(text.length(), 0u);
  text = "old";
  EXPECT_FALSE(text.ExtractFrom(static_cast<NOXPString*>(nullptr), 1, 0, 0));
  EXPECT_EQ(text.length(), 0u);
  text = "old";
  EXPECT_FALSE(text.ExtractFrom(static_cast<NOXPBlob*>(nullptr), 1, 0, 0));
  EXPECT_EQ(text.length(), 0u);
}

TEST(PStringExtract, ReadsBlobsUpToTheirFirstNul) {
  const std::string content = record({"A^B]C\0]D", 8});
  NOXPBlob source(content.data(), content.size());
  NOXPString text;
  EXPECT_TRUE(text.ExtractFrom(&source, 2, 0, 0));
  EXPECT_EQ(text.c_str(), record("B]C"));
  EXPECT_TRUE(text.ExtractFrom(&source, 2, 1, 0));
  EXPECT_STREQ(text.c_str(), "C");
  EXPECT_FALSE(text.ExtractFrom(&source, 2, 2, 0));

  NOXPBlob empty;
  EXPECT_FALSE(text.ExtractFrom(&empty, 1, 0, 0));
}

TEST(PStringExtract, LeavesAnEmptyStringEmptyWhenItFails) {
  NOXPString text;
  NOXPBlob record("A");
  EXPECT_FALSE(text.ExtractFrom(&record, 2, 0, 0));
  EXPECT_EQ(text.getType(), NOXPString::Empty);
}

TEST(PStringExtractNumber, ReadsTheNumberAFieldBeginsWith) {
  EXPECT_EQ(utf8(record("A^42")).ExtractNumber(2, 0, 0), 42);
  EXPECT_EQ(utf8(" -7 days").ExtractNumber(1, 0, 0), -7);
  EXPECT_EQ(utf8("days").ExtractNumber(1, 0, 0), 0);
}

TEST(PStringExtractNumber, OverwritesTheStringWithTheField) {
  NOXPString text = utf8(record("A^42x"));
  text.ExtractNumber(2, 0, 0);
  EXPECT_STREQ(text.c_str(), "42x");
  EXPECT_EQ(text.ExtractNumber(2, 0, 0), 0);
  EXPECT_EQ(text.getType(), NOXPString::Utf8);
  EXPECT_EQ(text.length(), 0u);
}

TEST(PStringExtractNumber, IsZeroForEveryOtherType) {
  NOXPString text("42");
  EXPECT_EQ(text.ExtractNumber(1, 0, 0), 0);
  EXPECT_STREQ(text.c_str(), "42");
  EXPECT_EQ(NOXPString().ExtractNumber(1, 0, 0), 0);
}

TEST(PStringExtractNumber, StopsAtTheLimitsOfAnInt) {
  EXPECT_EQ(utf8("2147483647").ExtractNumber(1, 0, 0), 2147483647);
  EXPECT_EQ(utf8("2147483648").ExtractNumber(1, 0, 0), 2147483647);
  EXPECT_EQ(utf8("-99999999999999999999").ExtractNumber(1, 0, 0), -2147483647 - 1);
}

TEST(PStringNullPayload, BehavesAsEmptyAndKeepsItsType) {
  for (NOXPString text : {NOXPString("a"), utf8("a"), NOXPString(std::wstring(L"a"))}) {
    const NOXPString::Type type = text.getType();
    EXPECT_FALSE(text.ExtractFrom(static_cast<NOXPString*>(nullptr), 1, 0, 0));
    EXPECT_TRUE(text.toUTF8());
    EXPECT_TRUE(text.toString());
    EXPECT_TRUE(text.toWString());
    EXPECT_EQ(text.getType(), type);
    EXPECT_EQ(text.length(), 0u);
    EXPECT_STREQ(text.c_str(), "");
    EXPECT_EQ(text.getString(), "");
    EXPECT_EQ(text.getWString(), L"");
    EXPECT_EQ(utf8Of(text), "");
    EXPECT_EQ(NOXPString(text).getType(), type);
    EXPECT_TRUE(text == NOXPString(""));
  }
}

TEST(PStringNullPayload, TakesAppendedTextInItsOwnType) {
  NOXPString narrow = nullPayload(NOXPString("a"));
  EXPECT_STREQ(narrow.append("xy").c_str(), "xy");
  EXPECT_EQ(narrow.getType(), NOXPString::Narrow);

  NOXPString bytes = nullPayload(utf8("a"));
  EXPECT_STREQ(bytes.append(5).c_str(), "5");
  EXPECT_EQ(bytes.getType(), NOXPString::Utf8);

  NOXPString wide = nullPayload(NOXPString(std::wstring(L"a")));
  EXPECT_EQ(wide.append(L"xy").getWString(), L"xy");

  NOXPString other = nullPayload(NOXPString("a"));
  EXPECT_STREQ(other.append(utf8("z")).c_str(), "z");
  EXPECT_EQ(other.getType(), NOXPString::Utf8);
}

}  // namespace
}  // namespace nox::test
