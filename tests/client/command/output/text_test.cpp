#include "client/command/output/text.h"

#include <gtest/gtest.h>

namespace nox::command {
namespace {

TEST(Visible, ShowsMarksAsSymbols) {
  EXPECT_EQ(visible("a\xFE"
                    "b\xFD"
                    "c\xFC"
                    "d"),
            "a^b]c\\d");
}

TEST(Visible, EscapesWhatATerminalWouldObey) {
  EXPECT_EQ(visible("\x1b[31mred\a\x7f"), "\\x1B[31mred\\x07\\x7F");
  // CSI as one character of C1, and a character that turns text around.
  EXPECT_EQ(visible("\xC2\x9B"
                    "31m"),
            "\\xC2\\x9B31m");
  EXPECT_EQ(visible("\xE2\x80\xAEtxt"), "\\xE2\\x80\\xAEtxt");
}

TEST(Visible, EscapesBytesThatAreNoUtf8) {
  EXPECT_EQ(visible("\xC3("), "\\xC3(");
  EXPECT_EQ(visible("\xED\xA0\x80"), "\\xED\\xA0\\x80");
}

TEST(Visible, KeepsTextOfAnyScript) { EXPECT_EQ(visible("Größe 値 🙂"), "Größe 値 🙂"); }

TEST(Visible, KeepsLineFeedsOnlyWhereTheyAreWanted) {
  EXPECT_EQ(visible("a\nb"), "a\\x0Ab");
  EXPECT_EQ(visible("a\nb\r", true), "a\nb\\x0D");
}

TEST(DisplayWidth, CountsColumnsOfATerminal) {
  EXPECT_EQ(displayWidth("abc"), 3u);
  EXPECT_EQ(displayWidth("Größe"), 5u);
  EXPECT_EQ(displayWidth("値段"), 4u);
  EXPECT_EQ(displayWidth("e\xCC\x81"), 1u) << "a letter and its combining accent";
}

TEST(XmlText, HasReferencesForWhatXmlWouldRead) {
  EXPECT_EQ(xmlText("a<b> & \"c\"\t\r\n'é'"), "a&lt;b&gt; &amp; &quot;c&quot;&#9;&#13;&#10;'é'");
  EXPECT_EQ(xmlText(""), "");
}

TEST(XmlText, IsNotForBytesThatXmlCannotHold) {
  EXPECT_FALSE(xmlText("a\xFE"));
  EXPECT_FALSE(xmlText("\x01"));
  EXPECT_FALSE(xmlText("\xEF\xBF\xBE"));  // U+FFFE
  EXPECT_FALSE(xmlText(std::string_view("\0", 1)));
}

}  // namespace
}  // namespace nox::command
