// MC, MX and G: case, parts of a text, hexadecimal.
#include <gtest/gtest.h>

#include "converted.h"

namespace nox::agent::test {
namespace {

TEST(TextConversion, ChangesTheCase) {
  EXPECT_EQ(shown("Ann of Tromsø", "MCU"), "ANN OF TROMSØ");
  EXPECT_EQ(shown("Ann of TROMSØ", "MCL"), "ann of tromsø");
  EXPECT_EQ(shown("ann of tromsØ", "MCT"), "Ann Of Tromsø");
}

TEST(TextConversion, BeginsATitleBehindWhatIsNoLetter) {
  EXPECT_EQ(shown("o'neil-smith 3rd", "MCT"), "O'Neil-Smith 3Rd");
  EXPECT_EQ(shown("ÉCOLE e\u0301cole", "MCT"), "École E\u0301cole");
}

TEST(TextConversion, PicksDigitsAndLetters) {
  EXPECT_EQ(shown("+47 22-33 é4", "MCN"), "4722334");
  EXPECT_EQ(shown("+47 ab-Cé\xC3", "MCA"), "abCé");
  EXPECT_EQ(shown("abc", "MCN"), "");
}

TEST(TextConversion, LeavesStrayBytesWhereItChangesTheCase) {
  EXPECT_EQ(shown("a\xC3 b\x80", "MCU"), "A\xC3 B\x80");
}

TEST(TextConversion, DoesTheSameBothWays) {
  EXPECT_EQ(stored("Ann", "MCU"), "ANN");
  EXPECT_EQ(stored("a1", "MCN"), "1");
  EXPECT_EQ(stored("A*B*C", "G1*1"), "B");
}

TEST(TextConversion, KnowsItsCodes) {
  for (const char* const code : {"MC", "MCZ", "MCUL", "mcu", "MCXX"}) {
    EXPECT_EQ(shown("a", code), kNoCode) << code;
  }
}

TEST(HexConversion, ShowsWholeNumbersInHexadecimal) {
  for (const char* const code : {"MX", "MCX"}) {
    EXPECT_EQ(shown("255", code), "FF");
    EXPECT_EQ(shown("0", code), "0");
    EXPECT_EQ(shown("-255", code), "-FF");
    EXPECT_EQ(shown("+16", code), "10");
    EXPECT_EQ(shown("18446744073709551615", code), "FFFFFFFFFFFFFFFF");
    EXPECT_EQ(shown("-0", code), "0");
  }
}

TEST(HexConversion, ReadsHexadecimal) {
  for (const char* const code : {"MX", "MCX"}) {
    EXPECT_EQ(stored("ff", code), "255");
    EXPECT_EQ(stored("-FF", code), "-255");
    EXPECT_EQ(stored("FFFFFFFFFFFFFFFF", code), "18446744073709551615");
  }
}

TEST(HexConversion, TakesNothingElse) {
  for (const char* const data : {"x", "1.5", "-", "18446744073709551616", "+-1", "FF"}) {
    EXPECT_EQ(shown(data, "MX"), kNoData) << data;
  }
  for (const char* const text : {"G", "0xFF", "-", "10000000000000000", "--1", "F F"}) {
    EXPECT_EQ(stored(text, "MX"), kNoData) << text;
  }
  EXPECT_EQ(shown("1", "MX1"), kNoCode);
}

TEST(GroupConversion, TakesFieldsBehindOthers) {
  EXPECT_EQ(shown("A*B*C*D", "G0*1"), "A");
  EXPECT_EQ(shown("A*B*C*D", "G*1"), "A");
  EXPECT_EQ(shown("A*B*C*D", "G1*1"), "B");
  EXPECT_EQ(shown("A*B*C*D", "G1*2"), "B*C");
  EXPECT_EQ(shown("A*B*C*D", "G2*9"), "C*D");
  EXPECT_EQ(shown("A*B*C*D", "G4*1"), "");
  EXPECT_EQ(shown("A**C", "G1*1"), "");
  EXPECT_EQ(shown("ABC", "G0*1"), "ABC");
}

TEST(GroupConversion, DividesAtAnyCharacter) {
  EXPECT_EQ(shown("a b c", "G1 1"), "b");
  EXPECT_EQ(shown("aøbøc", "G1ø1"), "b");
  EXPECT_EQ(shown("a,b", "G4294967295,1"), "");
}

TEST(GroupConversion, KnowsItsCodes) {
  for (const char* const code :
       {"G", "G1", "G1*", "G1*0", "G1**1", "G1*1x", "G99999999999*1", "G1*99999999999"}) {
    EXPECT_EQ(shown("A*B", code), kNoCode) << code;
  }
}

}  // namespace
}  // namespace nox::agent::test
