#include "nox/text/pstring.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/log_capture.h"
#include "tests/text/text_support.h"

namespace nox::test {
namespace {

constexpr std::size_t kTooLongText = std::numeric_limits<std::size_t>::max();
const std::string kLong(100, 'x');

void assignNarrow(NOXPString& target, const char* text, std::size_t n, std::size_t readable);
template <void (NOXPString::*Member)(const char*, std::size_t, std::size_t)>
struct AssignAccess {
  friend void assignNarrow(NOXPString& target, const char* text, std::size_t n,
                           std::size_t readable) {
    (target.*Member)(text, n, readable);
  }
};
template struct AssignAccess<&NOXPString::assignNarrow>;

NOXPString wide(const wchar_t* text) { return NOXPString(std::wstring(text)); }

NOXPString* newUnicode(const char* text) {
  auto* string = new NOXPString(text);
  EXPECT_TRUE(makeUnicode(*string));
  return string;
}

// --- Construction ---

TEST(PString, IsEmptyAtFirst) {
  NOXPString text;
  EXPECT_EQ(text.getType(), NOXPString::Empty);
  EXPECT_STREQ(text.c_str(), "");
  EXPECT_EQ(text.length(), 0u);
}

TEST(PString, TypesHaveFixedNumbers) {
  EXPECT_EQ(NOXPString::Empty, 0);
  EXPECT_EQ(NOXPString::Narrow, 1);
  EXPECT_EQ(NOXPString::Wide, 2);
  EXPECT_EQ(NOXPString::Utf8, 3);
  EXPECT_EQ(NOXPString::Unicode, 4);
}

TEST(PString, CopiesACStringAsNarrow) {
  std::string source = "abc";
  NOXPString text(source.c_str());
  source = "xyz";
  EXPECT_EQ(text.getType(), NOXPString::Narrow);
  EXPECT_STREQ(text.c_str(), "abc");
  EXPECT_EQ(NOXPString("").getType(), NOXPString::Narrow);
}

TEST(PString, CopiesACStringAsUtf8WhereAsked) {
  EXPECT_EQ(NOXPString("abc", true).getType(), NOXPString::Utf8);
  EXPECT_EQ(NOXPString("abc", false).getType(), NOXPString::Narrow);
  EXPECT_EQ(NOXPString("", true).getType(), NOXPString::Utf8);
}

TEST(PString, TakesANumberAsTheUtf8Flag) {
  NOXPString text("abcdef", 3);
  EXPECT_EQ(text.getType(), NOXPString::Utf8);
  EXPECT_STREQ(text.c_str(), "abcdef");
}

TEST(PString, TakesExactlyTheGivenBytes) {
  NOXPString narrow("ab\0cd", 4, false);
  EXPECT_EQ(narrow.length(), 4u);
  EXPECT_EQ(narrow.getString(), std::string("ab\0c", 4));
  const unsigned char data[] = {0xFE, 'a', 0};
  NOXPString bytesText(data, 2, true);
  EXPECT_EQ(bytesText.getType(), NOXPString::Utf8);
  EXPECT_BYTES(bytesText.c_str(), bytes("FE 61"));
}

TEST(PString, EndsUtf8TextAtItsFirstNul) {
  NOXPString text("ab\0cd", 5, true);
  EXPECT_EQ(text.length(), 2u);
  EXPECT_STREQ(text.c_str(), "ab");
}

TEST(PString, CopiesStandardStrings) {
  NOXPString narrow(std::string("a\0b", 3));
  EXPECT_EQ(narrow.getType(), NOXPString::Narrow);
  EXPECT_EQ(narrow.length(), 3u);
  NOXPString wideText(std::wstring(L"abcd"));
  EXPECT_EQ(wideText.getType(), NOXPString::Wide);
  EXPECT_EQ(wideText.length(), 4u);
}

TEST(PString, WideLiteralsAreWide) { EXPECT_EQ(NOXPString(L"x").getType(), NOXPString::Wide); }

TEST(PString, IsEmptyForNullArguments) {
  const char* const none = nullptr;
  EXPECT_EQ(NOXPString(none).getType(), NOXPString::Empty);
  EXPECT_EQ(NOXPString(none, true).getType(), NOXPString::Empty);
  EXPECT_EQ(NOXPString(none, 3, true).getType(), NOXPString::Empty);
  EXPECT_EQ(NOXPString(static_cast<const unsigned char*>(nullptr), 3, false).getType(),
            NOXPString::Empty);
  EXPECT_EQ(NOXPString(static_cast<const NOXPString*>(nullptr)).getType(), NOXPString::Empty);

  NOXPString text("abc");
  EXPECT_EQ((text = none).getType(), NOXPString::Empty);
  text = "abc";
  text.assign(nullptr, 3, false);
  EXPECT_EQ(text.getType(), NOXPString::Empty);
  text = "abc";
  EXPECT_EQ((text = static_cast<const NOXPString*>(nullptr)).getType(), NOXPString::Empty);
  text = "abc";
  EXPECT_EQ((text = static_cast<const wchar_t*>(nullptr)).getType(), NOXPString::Empty);
}

TEST(PString, ThrowsBadAllocForImpossibleLengths) {
  EXPECT_THROW(NOXPString("abc", kTooLongText, false), std::bad_alloc);
  NOXPString text("abc");
  EXPECT_THROW(text.append("abc", kTooLongText), std::bad_alloc);
  EXPECT_STREQ(text.c_str(), "abc");
  NOXPString wideText = wide(L"abc");
  EXPECT_THROW(wideText.append(L"abc", kTooLongText), std::bad_alloc);
}

TEST(PString, IsSmallAndMovesWithoutThrowing) {
  EXPECT_LE(sizeof(NOXPString), 48u);
  EXPECT_TRUE(std::is_nothrow_move_constructible_v<NOXPString>);
  EXPECT_TRUE(std::is_nothrow_default_constructible_v<NOXPString>);
}

// --- Copies ---

TEST(PStringCopy, KeepsTypeAndText) {
  for (const std::string& content : {std::string(), std::string("abc"), kLong}) {
    NOXPString narrow(content), bytesText = utf8(content);
    NOXPString wideText(std::wstring(content.begin(), content.end()));
    for (const NOXPString* original : {&narrow, &bytesText, &wideText}) {
      NOXPString byReference(*original), byPointer(original), assigned("old"), pointed("old");
      assigned = *original;
      pointed = original;
      for (NOXPString* copy : {&byReference, &byPointer, &assigned, &pointed}) {
        EXPECT_EQ(copy->getType(), original->getType());
        EXPECT_EQ(copy->length(), content.size());
        EXPECT_EQ(copy->getString(), content);
      }
      EXPECT_NE(original->getType(), NOXPString::Empty);
    }
  }
  EXPECT_EQ(NOXPString(NOXPString()).getType(), NOXPString::Empty);
}

TEST(PStringCopy, IsIndependent) {
  NOXPString original("abc");
  NOXPString copy(original);
  copy.append("d");
  EXPECT_STREQ(original.c_str(), "abc");
}

TEST(PStringCopy, OfAUnicodeStringHoldsNothing) {
  const std::unique_ptr<NOXPString> original(newUnicode("abc"));
  EXPECT_EQ(
      logged([&] {
        NOXPString copy(*original);
        EXPECT_EQ(copy.getType(), NOXPString::Unicode);
        EXPECT_EQ(copy.c_str(), nullptr);
        EXPECT_EQ(copy.length(), 0u);
        EXPECT_TRUE(copy.toString());
        EXPECT_TRUE(copy.toUTF8());
        EXPECT_TRUE(copy.toWString());
        EXPECT_EQ(copy.getType(), NOXPString::Unicode);
        NOXPString again(copy);
        EXPECT_EQ(again.getType(), NOXPString::Unicode);
      }),
      withOutput({"Bad NOXPString type in constructor.4", "Bad NOXPString type in c_str() 4",
                  "Bad NOXPString type in c_str() 4", "Bad NOXPString type in constructor.4"}));
  EXPECT_EQ(original->getString(), "abc");
}

TEST(PStringMove, LeavesTheSourceEmpty) {
  for (const std::string& content : {std::string("abc"), kLong}) {
    NOXPString source(content);
    const NOXPString target(std::move(source));
    EXPECT_EQ(target.length(), content.size());
    EXPECT_EQ(source.getType(), NOXPString::Empty);  // NOLINT: what a moved string is
    EXPECT_STREQ(source.c_str(), "");
    source = "again";
    EXPECT_STREQ(source.c_str(), "again");
  }
  NOXPString source = wide(L"abc");
  NOXPString target(std::move(source));
  EXPECT_EQ(target.getWString(), L"abc");
  EXPECT_EQ(source.getType(), NOXPString::Empty);  // NOLINT
}

// --- Assignment ---

TEST(PStringAssign, CopyAssignmentLeavesTheOldTextReadable) {
  for (const std::string& next : {std::string("b"), kLong}) {
    NOXPString text(kLong);
    const char* const old = text.c_str();
    text = NOXPString(next);
    text = NOXPString(kLong + "2");
    EXPECT_EQ(old, kLong);
  }
  NOXPString bytesText = utf8(kLong);
  const char* const old = bytesText.c_str();
  const NOXPString next("b");
  bytesText = &next;
  EXPECT_EQ(old, kLong);
}

TEST(PStringAssign, CopyAssignmentLeavesOldWideTextReadable) {
  const std::wstring content(100, L'x');
  NOXPString text(content);
  const wchar_t* const old = text.getWString().c_str();
  text = NOXPString("b");
  text = NOXPString(std::wstring(50, L'y'));
  EXPECT_EQ(old, content);
}

TEST(PStringAssign, OldShortTextReadsAsTheNewOne) {
  NOXPString text("abc");
  const char* const old = text.c_str();
  text = NOXPString("xy");
  EXPECT_STREQ(old, "xy");
}

TEST(PStringAssign, TakesItself) {
  for (const std::string& content : {std::string("abc"), kLong}) {
    for (NOXPString text : {NOXPString(content), utf8(content),
                            NOXPString(std::wstring(content.begin(), content.end()))}) {
      const NOXPString& same = text;
      const NOXPString::Type type = text.getType();
      text = same;
      text = &same;
      EXPECT_EQ(text.getType(), type);
      EXPECT_EQ(text.getString(), content);
    }
  }
}

TEST(PStringAssign, TakesItsOwnCharacters) {
  for (const std::string& content : {std::string("abcd"), kLong + "abcd"}) {
    NOXPString text(content);
    text = text.c_str();
    EXPECT_EQ(text.getString(), content);
    text.assign(text.c_str() + 1, content.size() - 1, true);
    EXPECT_EQ(text.getType(), NOXPString::Utf8);
    EXPECT_EQ(text.c_str(), content.substr(1));
    text.assign(text.c_str(), text.length() + 1, false);  // with the terminator
    EXPECT_EQ(text.getString(), content.substr(1) + '\0');
  }
}

TEST(PStringAssign, ReplacesTextOfEveryType) {
  for (NOXPString text : {NOXPString(), NOXPString("old"), utf8("old"), wide(L"old")}) {
    text = "new";
    EXPECT_EQ(text.getType(), NOXPString::Narrow);
    EXPECT_STREQ(text.c_str(), "new");
    text.toWString();
    text.assign("n\0w", 3, true);
    EXPECT_EQ(text.getType(), NOXPString::Utf8);
    EXPECT_STREQ(text.c_str(), "n");
    text.assign("", 0, false);
    EXPECT_EQ(text.getType(), NOXPString::Narrow);
    EXPECT_EQ(text.length(), 0u);
  }
}

TEST(PStringAssign, WideCharactersBecomeTheirImageTaggedNarrow) {
  NOXPString text;
  text = L"abc";
  EXPECT_EQ(text.getType(), NOXPString::Narrow);
  EXPECT_EQ(text.length(), 3u);
  EXPECT_STREQ(text.c_str(), "a");
  EXPECT_BYTES(text.getString(), bytes("61 00 62"));
  text = L"\u20AC\u0142";
  EXPECT_BYTES(text.getString(), bytes("AC 20"));
  text = L"";
  EXPECT_EQ(text.getType(), NOXPString::Narrow);
  EXPECT_EQ(text.length(), 0u);
}

TEST(PStringAssign, ReadersCopyShortTextWithItsNeighbourhood) {
  const std::string frame = "abcdefghijklmnopqrstuvwxyz";
  for (std::size_t n = 0; n <= 17; ++n) {
    for (const std::size_t readable : {std::size_t{0}, n, std::size_t{15}, frame.size()}) {
      for (NOXPString text : {NOXPString(), NOXPString(kLong), wide(L"old"), utf8("old")}) {
        assignNarrow(text, frame.data(), n, std::max(n, readable));
        EXPECT_EQ(text.getType(), NOXPString::Narrow);
        EXPECT_EQ(text.c_str(), frame.substr(0, n));
        EXPECT_EQ(text.length(), n);
      }
    }
  }
}

// --- Access ---

TEST(PStringAccess, MakesWideTextNarrow) {
  NOXPString text = wide(L"abc");
  EXPECT_STREQ(text.c_str(), "abc");
  EXPECT_EQ(text.getType(), NOXPString::Narrow);
}

TEST(PStringAccess, GivesUtf8AsItStands) {
  NOXPString text = utf8("\xC3\xA9");
  EXPECT_STREQ(text.c_str(), "\xC3\xA9");
  EXPECT_EQ(text.length(), 2u);
  EXPECT_EQ(text.getType(), NOXPString::Utf8);
}

TEST(PStringAccess, HasNoCharactersForUnicode) {
  const std::unique_ptr<NOXPString> text(newUnicode("abc"));
  EXPECT_EQ(logged([&] { EXPECT_EQ(text->c_str(), nullptr); }),
            withOutput({"Bad NOXPString type in c_str() 4"}));
  EXPECT_EQ(logged([&] { EXPECT_EQ(text->length(), 0u); }),
            withOutput({"Bad NOXPString type in c_str() 4"}));
}

TEST(PStringAccess, GivesEmptyTextForAnEmptyString) {
  NOXPString text;
  EXPECT_EQ(text.getString(), "");
  EXPECT_EQ(text.getWString(), L"");
  EXPECT_EQ(utf8Of(text), "");
  text.getString() = "lost";
  text.getWString() = L"lost";
  EXPECT_EQ(text.getString(), "");
  EXPECT_EQ(text.getWString(), L"");
  EXPECT_EQ(text.getType(), NOXPString::Empty);
}

TEST(PStringAccess, GivesTheStringItself) {
  NOXPString text("abc");
  text.getString() += "d";
  EXPECT_STREQ(text.c_str(), "abcd");
  text.getWString() += L"e";
  EXPECT_EQ(text.length(), 5u);
  EXPECT_EQ(utf8Of(text), "abcde");
  EXPECT_EQ(text.getType(), NOXPString::Utf8);
}

// --- Comparison ---

TEST(PStringCompare, ComparesNarrowAndWideTextWhole) {
  EXPECT_TRUE(NOXPString("abc") == NOXPString("abc"));
  EXPECT_TRUE(NOXPString("abc") != NOXPString("axy"));
  EXPECT_TRUE(NOXPString("abc") < NOXPString("abd"));
  EXPECT_TRUE(NOXPString("abd") > NOXPString("abc"));
  EXPECT_FALSE(NOXPString("abc") < NOXPString("abc"));
  EXPECT_FALSE(NOXPString("abc") > NOXPString("abc"));
  EXPECT_TRUE(NOXPString("\xFF") > NOXPString("a"));
  EXPECT_TRUE(wide(L"abc") == wide(L"abc"));
  EXPECT_TRUE(wide(L"abc") < wide(L"abd"));
  EXPECT_TRUE(wide(L"abd") > wide(L"abc"));
}

TEST(PStringCompare, ComparesTheFirstByteWithUtf8) {
  EXPECT_TRUE(utf8("abc") == utf8("axy"));
  EXPECT_TRUE(NOXPString("abc") == utf8("axy"));
  EXPECT_TRUE(wide(L"abc") == utf8("axy"));
  EXPECT_FALSE(utf8("abc") < utf8("axy"));
  EXPECT_TRUE(utf8("b") > utf8("abc"));
  EXPECT_TRUE(utf8("\xFE") > utf8("a"));
  EXPECT_TRUE(utf8("") == utf8(""));
  EXPECT_TRUE(utf8("") < utf8("a"));
}

TEST(PStringCompare, TheRightSideDecidesHow) {
  EXPECT_FALSE(utf8("abc") == NOXPString("axy"));
  EXPECT_TRUE(utf8("abc") == NOXPString("abc"));
  EXPECT_TRUE(wide(L"abc") == NOXPString("abc"));
  EXPECT_TRUE(NOXPString("abc") == wide(L"abc"));
  EXPECT_TRUE(NOXPString("\xC3\xA9") == wide(L"\u00E9"));
}

TEST(PStringCompare, AnEmptyRightSideEqualsEverything) {
  const NOXPString empty;
  for (const NOXPString& text : {NOXPString(), NOXPString("a"), utf8("a"), wide(L"a")}) {
    EXPECT_TRUE(text == empty);
    EXPECT_FALSE(text != empty);
    EXPECT_FALSE(text < empty);
    EXPECT_FALSE(text > empty);
  }
}

TEST(PStringCompare, AnEmptyLeftSideIsAnEmptyText) {
  const NOXPString empty;
  EXPECT_FALSE(empty == NOXPString("a"));
  EXPECT_TRUE(empty < NOXPString("a"));
  EXPECT_TRUE(empty == NOXPString(""));
  EXPECT_TRUE(empty == wide(L""));
  EXPECT_TRUE(empty < wide(L"a"));
  EXPECT_TRUE(empty == utf8(""));
  EXPECT_TRUE(empty < utf8("a"));
  EXPECT_TRUE(nullPayload(utf8("a")) < NOXPString("a"));
  EXPECT_TRUE(NOXPString("a") > nullPayload(NOXPString("a")));
  EXPECT_TRUE(wide(L"a") > nullPayload(wide(L"a")));
}

TEST(PStringCompare, ComparesUnicodeWhole) {
  const std::unique_ptr<NOXPString> unicode(newUnicode("abc"));
  const std::unique_ptr<NOXPString> same(newUnicode("abc"));
  EXPECT_TRUE(*unicode == *same);
  EXPECT_TRUE(NOXPString("abc") == *unicode);
  EXPECT_TRUE(NOXPString("abd") > *unicode);
  EXPECT_TRUE(utf8("abb") < *unicode);
  EXPECT_TRUE(NOXPString() < *unicode);
  EXPECT_EQ(logged([&] { EXPECT_FALSE(*unicode == NOXPString("abc")); }),
            withOutput({"Bad NOXPString type in constructor.4"}));
}

TEST(PStringCompare, ChangesNeitherSide) {
  const NOXPString left = wide(L"a"), right("a");
  EXPECT_EQ(logged([&] { EXPECT_TRUE(left == right); }),
            withOutput({"Warning : wstring to string conversion abnormal."}));
  EXPECT_EQ(left.getType(), NOXPString::Wide);
  EXPECT_EQ(right.getType(), NOXPString::Narrow);
}

// --- Appending ---

TEST(PStringAppend, AddsBytesToNarrowText) {
  NOXPString text("ab");
  EXPECT_EQ(&text.append("cd"), &text);
  text.append("e\0f", 3);
  EXPECT_EQ(text.getString(), std::string("abcde\0f", 7));
  EXPECT_EQ(text.getType(), NOXPString::Narrow);
}

TEST(PStringAppend, AddsToUtf8WhatPrecedesANul) {
  NOXPString text = utf8("ab");
  text.append("c\0d", 3).append(
      "\xFE"
      "fgh",
      2);
  EXPECT_BYTES(text.c_str(), bytes("61 62 63 FE 66"));
  EXPECT_EQ(text.length(), 5u);
  EXPECT_EQ(text.getType(), NOXPString::Utf8);
}

TEST(PStringAppend, MakesWideTextNarrowForBytes) {
  NOXPString text = wide(L"ab");
  text.append("c");
  EXPECT_EQ(text.getType(), NOXPString::Narrow);
  EXPECT_STREQ(text.c_str(), "abc");
}

TEST(PStringAppend, MakesTextWideForWideCharacters) {
  for (NOXPString text : {NOXPString("ab"), utf8("ab"), wide(L"ab")}) {
    text.append(L"c").append(L"def", 2);
    EXPECT_EQ(text.getType(), NOXPString::Wide);
    EXPECT_EQ(text.getWString(), L"abcde");
  }
}

TEST(PStringAppend, DoesNotTakePlaceOnEmptyStrings) {
  EXPECT_EQ(logged([] {
              NOXPString text;
              text.append("x").append("x", 1).append(L"x").append(5).append(NOXPString("x"));
              EXPECT_EQ(text.getType(), NOXPString::Empty);
              EXPECT_EQ(text.length(), 0u);
            }),
            withOutput(std::vector<std::string>(5, "Bad NOXPString type in append.0")));
  EXPECT_STREQ(NOXPString("").append("x").c_str(), "x");
}

TEST(PStringAppend, DoesNotTakePlaceOnUnicode) {
  const std::unique_ptr<NOXPString> text(newUnicode("a"));
  EXPECT_EQ(logged([&] { text->append("x").append(L"x").append(1); }),
            withOutput(std::vector<std::string>(3, "Bad NOXPString type in append.4")));
  EXPECT_EQ(text->getString(), "a");
}

TEST(PStringAppend, ConvertsToTheTypeOfTheOther) {
  for (const NOXPString& other : {NOXPString("\xC3\xA9"), utf8("\xC3\xA9"), wide(L"\u00E9")}) {
    for (NOXPString text : {NOXPString("\xC3\xA8"), utf8("\xC3\xA8"), wide(L"\u00E8")}) {
      text.append(other);
      EXPECT_EQ(text.getType(), other.getType());
      EXPECT_EQ(utf8Of(text), "\xC3\xA8\xC3\xA9");
    }
  }
  const std::unique_ptr<NOXPString> unicode(newUnicode("a"));
  EXPECT_STREQ(unicode->append(NOXPString("b")).c_str(), "ab");
}

TEST(PStringAppend, RefusesEmptyAndUnicodeOthers) {
  const std::unique_ptr<NOXPString> unicode(newUnicode("x"));
  NOXPString text("a");
  EXPECT_EQ(logged([&] { text.append(NOXPString()).append(*unicode); }),
            withOutput({"Bad NOXPString type in append.0", "Bad NOXPString type in append.4"}));
  EXPECT_STREQ(text.c_str(), "a");
  EXPECT_EQ(text.getType(), NOXPString::Narrow);
  EXPECT_EQ(logged([&] { NOXPString().append(NOXPString()); }),
            withOutput({"Bad NOXPString type in append.0"}));
  EXPECT_EQ(logged([&] { unicode->append(*unicode); }),
            withOutput({"Bad NOXPString type in append.4"}));
}

TEST(PStringAppend, AddsItself) {
  for (const std::string& content : {std::string("abcdefgh"), kLong}) {
    for (NOXPString text : {NOXPString(content), utf8(content),
                            NOXPString(std::wstring(content.begin(), content.end()))}) {
      text.append(text);
      EXPECT_EQ(text.getString(), content + content);
    }
    NOXPString text(content);
    text.append(text.c_str());
    EXPECT_EQ(text.getString(), content + content);
    text = content.c_str();
    text.append(text.c_str(), content.size() + 1);
    EXPECT_EQ(text.getString(), content + content + '\0');
    NOXPString wideText(std::wstring(content.begin(), content.end()));
    wideText.append(wideText.getWString().c_str());
    EXPECT_EQ(wideText.getString(), content + content);
  }
}

TEST(PStringAppend, HasNoEffectForNull) {
  NOXPString text("a");
  text.append(static_cast<const char*>(nullptr)).append(static_cast<const wchar_t*>(nullptr));
  text.append(static_cast<const char*>(nullptr), 3);
  text.append(static_cast<const wchar_t*>(nullptr), 3);
  EXPECT_STREQ(text.c_str(), "a");
  EXPECT_EQ(text.getType(), NOXPString::Narrow);
}

TEST(PStringAppend, WritesNumbersInDecimal) {
  EXPECT_STREQ(NOXPString("a").append(0).append(-5).c_str(), "a0-5");
  EXPECT_STREQ(NOXPString("").append(std::numeric_limits<int>::min()).c_str(), "-2147483648");
  NOXPString bytesText = utf8("a");
  EXPECT_STREQ(bytesText.append(12).c_str(), "a12");
  EXPECT_EQ(bytesText.getType(), NOXPString::Utf8);
  NOXPString wideText = wide(L"a");
  EXPECT_EQ(wideText.append(12).getType(), NOXPString::Wide);
  EXPECT_EQ(wideText.getWString(), L"a12");
}

TEST(PStringAppend, TakesACharacterAsANumber) {
  EXPECT_STREQ(NOXPString("").append('x').c_str(), "120");
}

}  // namespace
}  // namespace nox::test
