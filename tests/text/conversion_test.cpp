// Conversions between the representations of a string, under several native code pages.
#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <condition_variable>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "nox/core/archive.h"
#include "nox/core/serializable.h"
#include "nox/text/pstring.h"
#include "tests/support/bytes.h"
#include "tests/support/frames.h"
#include "tests/support/log_capture.h"
#include "tests/text/text_support.h"

namespace nox::test {
namespace {

using ::testing::ElementsAre;

constexpr const char* kWideWarning = "Warning : wstring to string conversion abnormal.";

std::string narrowToUtf8(const std::string& native) {
  NOXPString text(native);
  EXPECT_TRUE(text.toUTF8());
  EXPECT_EQ(text.getType(), NOXPString::Utf8);
  return text.c_str();
}

std::string utf8ToNarrow(const std::string& bytes) {
  NOXPString text = utf8(bytes);
  EXPECT_TRUE(text.toString());
  EXPECT_EQ(text.getType(), NOXPString::Narrow);
  return text.getString();
}

std::wstring wideOf(NOXPString text) {
  EXPECT_TRUE(text.toWString());
  EXPECT_EQ(text.getType(), NOXPString::Wide);
  return text.getWString();
}

TEST(PStringConversion, NativePageIsUtf8AtFirst) {
  EXPECT_EQ(wideOf("\xC3\xA9"), L"\u00E9");
  NOXPString wide(std::wstring(L"\u00E9"));
  EXPECT_BYTES(wide.getString(), bytes("C3 A9"));
}

TEST(PStringConversion, EveryTypeReachesEveryOther) {
  for (const char* name : {"UTF-8", "ISO-8859-1", "windows-1252"}) {
    const NativePage page(name);
    NOXPString text = utf8("h\xC3\xA9llo");
    for (const NOXPString::Type to :
         {NOXPString::Narrow, NOXPString::Wide, NOXPString::Utf8, NOXPString::Wide,
          NOXPString::Narrow, NOXPString::Utf8, NOXPString::Narrow}) {
      EXPECT_TRUE(to == NOXPString::Narrow ? text.toString()
                  : to == NOXPString::Wide ? text.toWString()
                                           : text.toUTF8());
      EXPECT_EQ(text.getType(), to);
      NOXPString copy(text);
      EXPECT_EQ(utf8Of(copy), "h\xC3\xA9llo") << name;
    }
  }
}

TEST(PStringConversion, UnicodeTextReachesEveryType) {
  NOXPString narrow("\xC3\xA9"), bytes(narrow), wide(narrow);
  for (NOXPString* text : {&narrow, &bytes, &wide}) {
    ASSERT_TRUE(makeUnicode(*text));
    EXPECT_EQ(text->getType(), NOXPString::Unicode);
    EXPECT_TRUE(makeUnicode(*text));
  }
  EXPECT_EQ(narrow.getString(), "\xC3\xA9");
  EXPECT_EQ(utf8Of(bytes), "\xC3\xA9");
  EXPECT_EQ(wide.getWString(), L"\u00E9");
}

TEST(PStringConversion, LeavesAnEmptyStringEmpty) {
  NOXPString text;
  EXPECT_TRUE(text.toString());
  EXPECT_TRUE(text.toUTF8());
  EXPECT_TRUE(text.toWString());
  EXPECT_TRUE(makeUnicode(text));
  EXPECT_EQ(text.getType(), NOXPString::Empty);
}

TEST(PStringConversion, OfAsciiChangesNoByteInAnyPage) {
  const std::string ascii = "ID\x01\x7F~\\ 0123456789 abcdefghijklmnopqrstuvwxyz";
  for (const char* name : {"UTF-8", "ISO-8859-1", "windows-1252"}) {
    const NativePage page(name);
    EXPECT_EQ(narrowToUtf8(ascii), ascii);
    EXPECT_EQ(utf8ToNarrow(ascii), ascii);
  }
}

TEST(PStringConversion, KeepsUtf8UnderAUtf8Page) {
  for (const char* text :
       {"\xC3\xA9", "\xE2\x82\xAC", "\xED\x9F\xBF", "\xEE\x80\x80", "\xF0\x9F\x98\x80",
        "\xF4\x8F\xBF\xBF", "\xC2\x80", "\xE0\xA0\x80", "\xF0\x90\x80\x80", "\xEF\xBB\xBFxyz",
        "0123456\xE2\x82\xACxyz012345\xC3\xA9"}) {
    EXPECT_EQ(narrowToUtf8(text), text);
    EXPECT_EQ(utf8ToNarrow(text), text);
  }
}

TEST(PStringConversion, SubstitutesWhatIsNoUtf8) {
  struct Case {
    const char* bad;
    const char* good;
  };
  for (const Case& c : {
           Case{"F0 80 80 80", "EF BF BD EF BF BD EF BF BD EF BF BD"},  // overlong
           Case{"C0 AF", "EF BF BD EF BF BD"},
           Case{"E0 9F BF", "EF BF BD EF BF BD EF BF BD"},
           Case{"ED A0 80", "EF BF BD EF BF BD EF BF BD"},              // surrogate
           Case{"F4 90 80 80", "EF BF BD EF BF BD EF BF BD EF BF BD"},  // above 10FFFF
           Case{"61 E2 82", "61 EF BF BD"},                             // truncated
           Case{"61 C3", "61 EF BF BD"},
           Case{"F0 9F 98", "EF BF BD"},
           Case{"E2 82 41", "EF BF BD 41"},
           Case{"80", "EF BF BD"},
           Case{"41 41 41 41 41 41 41 41 41 FF 41", "41 41 41 41 41 41 41 41 41 EF BF BD 41"},
       }) {
    EXPECT_BYTES(narrowToUtf8(bytes(c.bad)), bytes(c.good)) << c.bad;
    EXPECT_BYTES(utf8ToNarrow(bytes(c.bad)), bytes(c.good)) << c.bad;
  }
}

TEST(PStringConversion, NarrowMarksFollowTheCodePage) {
  const std::string marks = "\xFE\xFD\xFC";
  EXPECT_BYTES(narrowToUtf8(marks), bytes("EF BF BD EF BF BD EF BF BD"));
  for (const char* name : {"ISO-8859-1", "windows-1252"}) {
    const NativePage page(name);
    EXPECT_BYTES(narrowToUtf8(marks), bytes("C3 BE C3 BD C3 BC"));
    EXPECT_BYTES(utf8ToNarrow(bytes("C3 BE C3 BD C3 BC")), marks);
  }
}

TEST(PStringConversion, LeavesMarksInUtf8TextAlone) {
  NOXPString record = utf8("A\xFEZ");
  EXPECT_TRUE(record.toUTF8());
  EXPECT_BYTES(std::string(record.c_str()), bytes("41 FE 5A"));
}

TEST(PStringConversion, OpensPagesThatAnswerWithAWarning) {
  const NativePage page("windows-1252");
  EXPECT_BYTES(narrowToUtf8("\x80"), bytes("E2 82 AC"));
  EXPECT_BYTES(utf8ToNarrow("\xE2\x82\xAC"), bytes("80"));
}

TEST(PStringConversion, SubstitutesCharactersThePageDoesNotHave) {
  const NativePage page("ISO-8859-1");
  EXPECT_BYTES(utf8ToNarrow("a\xE2\x82\xACz"), bytes("61 1A 7A"));
}

TEST(PStringConversion, AsciiThatMeansSomethingElseIsConverted) {
  const NativePage page("ibm-37");  // an EBCDIC page
  EXPECT_EQ(narrowToUtf8("\xC1\xC2"), "AB");
  EXPECT_BYTES(utf8ToNarrow("AB"), bytes("C1 C2"));
  EXPECT_BYTES(narrowToUtf8("A"), bytes("C2 A0"));
}

TEST(PStringConversion, UnderstandsPagesWithEscapes) {
  const NativePage page("ISO-2022-JP");
  EXPECT_BYTES(narrowToUtf8("a\x1B$B$\"\x1B(Bb"), bytes("61 E3 81 82 62"));
}

TEST(PStringConversion, NarrowTextKeepsNulsAndUtf8EndsAtTheFirst) {
  NOXPString text("ab\0cd", 5, false);
  EXPECT_EQ(text.length(), 5u);
  EXPECT_EQ(NOXPString(text).getString().size(), 5u);
  NOXPString unicode(text);
  ASSERT_TRUE(makeUnicode(unicode));
  EXPECT_EQ(unicode.getString(), std::string("ab\0cd", 5));
  EXPECT_EQ(wideOf(text), L"ab");
  EXPECT_EQ(utf8Of(text), "ab");
  EXPECT_EQ(text.length(), 2u);
}

TEST(PStringConversion, WideTextKeepsNulsOnTheWayToNarrow) {
  NOXPString text(std::wstring(L"ab\0cd", 5));
  EXPECT_EQ(text.length(), 5u);
  EXPECT_EQ(NOXPString(text).getString(), std::string("ab\0cd", 5));
  EXPECT_EQ(utf8Of(text), "ab");
}

TEST(PStringConversion, WorksForTextsOfEveryLength) {
  for (const char* name : {"UTF-8", "ISO-8859-1"}) {
    const NativePage page(name);
    for (const std::size_t n :
         {1u, 2u, 15u, 16u, 63u, 64u, 65u, 499u, 500u, 501u, 999u, 1000u, 1001u, 3000u, 100000u}) {
      const std::wstring wide(n, L'\u00E9');
      std::string expected;
      for (std::size_t i = 0; i < n; ++i) expected += "\xC3\xA9";
      NOXPString text(wide);
      EXPECT_EQ(utf8Of(text), expected) << name << " " << n;
      EXPECT_EQ(utf8Of(text = NOXPString(text.getString())), expected) << name << " " << n;
      EXPECT_EQ(wideOf(text), wide) << name << " " << n;
    }
  }
}

TEST(PStringConversion, WideTextHasOneElementPerUtf16Unit) {
  const NOXPString text = utf8("\xF0\x9F\x98\x80");  // U+1F600
  std::wstring wide = wideOf(text);
  ASSERT_EQ(wide.size(), 2u);
  EXPECT_EQ(static_cast<unsigned>(wide[0]), 0xD83Du);
  EXPECT_EQ(static_cast<unsigned>(wide[1]), 0xDE00u);
  NOXPString back(wide);
  EXPECT_EQ(back.length(), 2u);
  EXPECT_BYTES(utf8Of(back), bytes("F0 9F 98 80"));
}

TEST(PStringConversion, WideElementsAboveFFFFAreCodePoints) {
  if constexpr (sizeof(wchar_t) > 2) {
    NOXPString text(std::wstring{static_cast<wchar_t>(0x1F600), static_cast<wchar_t>(0x10FFFF)});
    EXPECT_BYTES(utf8Of(text), bytes("F0 9F 98 80 F4 8F BF BF"));
    NOXPString beyond(std::wstring{static_cast<wchar_t>(0x110000), static_cast<wchar_t>(-1)});
    EXPECT_BYTES(utf8Of(beyond), bytes("EF BF BD EF BF BD"));
  }
}

TEST(PStringConversion, LoneSurrogatesAreSubstituted) {
  NOXPString text(std::wstring{static_cast<wchar_t>(0xD800), L'a'});
  EXPECT_BYTES(utf8Of(text), bytes("EF BF BD 61"));
}

TEST(PStringConversion, ReportsConversionsBetweenNarrowAndWideOnly) {
  const NOXPString narrow("a"), bytes = utf8("a"), wide{std::wstring(L"a")};
  EXPECT_EQ(logged([&] { NOXPString(narrow).toWString(); }), withOutput({kWideWarning}));
  EXPECT_EQ(logged([&] { NOXPString(wide).toString(); }), withOutput({kWideWarning}));
  EXPECT_EQ(logged([&] {
              NOXPString(bytes).toWString();
              NOXPString(bytes).toString();
              NOXPString(wide).toUTF8();
              NOXPString(narrow).toUTF8();
            }),
            withOutput({}));
}

TEST(PStringConversion, ReportsAtDebugPriority) {
  const LogCapture log;
  NOXPString(std::wstring(L"a")).toString();
  EXPECT_EQ(log.texts(nox::debug), withOutput({kWideWarning}));
}

TEST(PStringCodePage, GoesOnInUtf8AfterAnUnknownName) {
  const NativePage page("ISO-8859-1");
  EXPECT_EQ(logged([] { EXPECT_FALSE(NativePage::change("no such page")); }),
            withOutput({"Cannot open codepage (no such page) converter.4"}));
  EXPECT_EQ(wideOf("\xC3\xA9"), L"\u00E9");
  EXPECT_EQ(narrowToUtf8("\xC3\xA9"), "\xC3\xA9");
  EXPECT_EQ(utf8ToNarrow("\xC3\xA9"), "\xC3\xA9");
}

TEST(PStringCodePage, HasAName) {
  EXPECT_EQ(logged([] { EXPECT_FALSE(NativePage::change("")); }),
            withOutput({"Cannot open codepage () converter.1"}));
  EXPECT_TRUE(NativePage::change("UTF-8"));
}

TEST(PStringCodePage, AffectsWhatIsConvertedAfterwards) {
  NOXPString text("\xE9");
  const NativePage page("ISO-8859-1");
  EXPECT_BYTES(utf8Of(text), bytes("C3 A9"));
}

TEST(PStringConversion, OfATextTooLongForIcuFailsAndChangesNothing) {
  constexpr std::size_t kLength = std::size_t{1} << 31;
  const auto freePages = static_cast<std::size_t>(sysconf(_SC_AVPHYS_PAGES));
  if (freePages / 3 < kLength / static_cast<std::size_t>(sysconf(_SC_PAGESIZE))) {
    GTEST_SKIP() << "needs 6 GiB of free memory";
  }
  NOXPString text("");
  text.getString().resize(kLength, 'x');
  EXPECT_EQ(logged([&] { EXPECT_FALSE(text.toUTF8()); }),
            withOutput({"Cannot convert string to unicode.8"}));
  EXPECT_EQ(logged([&] { EXPECT_FALSE(text.toWString()); }),
            withOutput({kWideWarning, "Cannot convert string to unicode.8"}));
  EXPECT_EQ(utf8Of(text), "");
  EXPECT_EQ(text.getWString(), L"");
  EXPECT_EQ(text.getType(), NOXPString::Narrow);
  EXPECT_EQ(text.length(), kLength);
}

/// A message of one string.
class TextMessage : public Serializable {
public:
  explicit TextMessage(NOXPString* text) : text_(text) {}
  Serializable* create() override { return new TextMessage(nullptr); }
  int getType() override { return 900; }
  Archive& serialize(Archive& ar, unsigned int /*version*/) override {
    return ar.process(text_, "text");
  }

private:
  NOXPString* text_;
};

/// The bytes of one string field as a writer sends them.
std::string fieldOf(NOXPString text) {
  const std::string frame = frameOf(TextMessage(&text));
  constexpr std::size_t kHead = 5 + 11, kTail = 2;  // length [ L type version, and ; ]
  return frame.substr(kHead, frame.size() - kHead - kTail);
}

TEST(PStringWriting, SendsUtf8) {
  EXPECT_BYTES(fieldOf("F"), bytes("73 00 01 46 3B"));
  EXPECT_BYTES(fieldOf("\xC3\xA9"), bytes("73 00 02 C3 A9 3B"));
  EXPECT_BYTES(fieldOf("\xE9"), bytes("73 00 03 EF BF BD 3B"));
  EXPECT_BYTES(fieldOf(NOXPString(std::wstring(L"\u00E9"))), bytes("73 00 02 C3 A9 3B"));
  EXPECT_BYTES(fieldOf(utf8("\xFE")), bytes("73 00 01 FE 3B"));
  EXPECT_BYTES(fieldOf(NOXPString("a\0b", 3, false)), bytes("73 00 01 61 3B"));
  const NativePage page("ISO-8859-1");
  EXPECT_BYTES(fieldOf("F"), bytes("73 00 01 46 3B"));
  EXPECT_BYTES(fieldOf("\xE9"), bytes("73 00 02 C3 A9 3B"));
}

TEST(PStringWriting, SendsNothingOfAStringWithoutText) {
  EXPECT_BYTES(fieldOf(NOXPString()), bytes("73 00 00 3B"));
  EXPECT_BYTES(fieldOf(nullPayload("a")), bytes("73 00 00 3B"));
  EXPECT_BYTES(fieldOf(nullPayload(NOXPString(std::wstring(L"a")))), bytes("73 00 00 3B"));
}

TEST(PStringWriting, LeavesTheStringAsUtf8) {
  NOXPString text("abc");
  frameOf(TextMessage(&text));
  EXPECT_EQ(text.getType(), NOXPString::Utf8);
  EXPECT_EQ(text.DCount(','), 1);
}

/// Threads that convert in rounds; the code page changes between the rounds only.
class Rounds {
public:
  explicit Rounds(int threads) : threads_(threads) {}

  /// Called by a thread that has ended its round; returns when the next one begins.
  void wait() {
    std::unique_lock<std::mutex> lock(mutex_);
    const int round = round_;
    ++waiting_;
    changed_.notify_all();
    changed_.wait(lock, [&] { return round_ != round; });
  }

  /// Waits for all threads, then lets them go on.
  template <class Between>
  void next(Between&& between) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return waiting_ == threads_; });
    between();
    waiting_ = 0;
    ++round_;
    changed_.notify_all();
  }

private:
  const int threads_;
  int waiting_ = 0;
  int round_ = 0;
  std::mutex mutex_;
  std::condition_variable changed_;
};

TEST(PStringThreads, ConvertAtTheSameTimeAndFollowTheCodePage) {
  constexpr int kThreads = 4, kTimes = 200;
  struct Round {
    const char* page;
    const char* native;
    const char* utf8;
  };
  constexpr std::array<Round, 3> kRounds = {{{"ISO-8859-1", "h\xE9\xFE", "h\xC3\xA9\xC3\xBE"},
                                             {"windows-1252", "\x80 5", "\xE2\x82\xAC 5"},
                                             {"UTF-8", "h\xFF", "h\xEF\xBF\xBD"}}};
  Rounds rounds(kThreads);
  std::array<int, kThreads> wrong{};
  std::vector<std::thread> threads;
  for (int& mine : wrong) {
    threads.emplace_back([&rounds, &mine, &kRounds] {
      for (const Round& round : kRounds) {
        rounds.wait();
        for (int i = 0; i < kTimes; ++i) {
          NOXPString text(round.native);
          if (utf8Of(text) != round.utf8) ++mine;
          text.toWString();
          NOXPString ascii("abc");
          if (utf8Of(ascii) != "abc" || utf8Of(text) != round.utf8) ++mine;
        }
      }
    });
  }
  for (const Round& round : kRounds) {
    rounds.next([&] { EXPECT_TRUE(NativePage::change(round.page)); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(wrong, ElementsAre(0, 0, 0, 0));
}

TEST(PStringThreads, HaveEmptyTextsOfTheirOwn) {
  NOXPString text;
  text.getString() = "mine";
  std::thread([] {
    NOXPString other;
    EXPECT_EQ(other.getString(), "");
    other.getString() = "theirs";
  }).join();
  EXPECT_EQ(text.getString(), "");
}

}  // namespace
}  // namespace nox::test
