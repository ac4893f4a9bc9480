#include "nox/protocol/remote/session_requests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/log_capture.h"
#include "tests/support/messages.h"
#include "tests/support/recording_archive.h"

namespace nox::noxp::remote {
namespace {

using test::expectCopies;
using test::expectTravelsAs;
using test::fieldsOf;
using test::logged;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(ConvRequest, TravelsAsTypeDataConversion) {
  expectTravelsAs(ConvRequestProt(1, "12", "D4/"),
                  "4C  49 00 00 00 DF  49 00 00 00 00"
                  "49 00 00 00 01"              // "_convType" 1
                  "73 00 02 31 32 3B"           // "_data" 12
                  "73 00 03 44 34 2F 3B  3B");  // "_conversion" D4/
}

TEST(ConvRequest, CarriesMinusOneAndEmptyTextsByDefault) {
  expectTravelsAs(ConvRequestProt(),
                  "4C  49 00 00 00 DF  49 00 00 00 00"
                  "49 FF FF FF FF  73 00 00 3B  73 00 00 3B  3B");
}

TEST(ConvRequest, NamesAndGivesItsFields) {
  ConvRequestProt request(1, "12", "D4/");
  EXPECT_THAT(fieldsOf(request),
              ElementsAre("int _convType=1", "string _data=12", "string _conversion=D4/"));
  EXPECT_EQ(request.getConvType(), 1);
  EXPECT_STREQ(request.getData()->c_str(), "12");
  EXPECT_STREQ(request.getConversion()->c_str(), "D4/");
}

TEST(ConvRequest, CopiesItsArguments) {
  NOXPString data("12");
  NOXPString conversion("D4/");
  ConvRequestProt request(1, &data, &conversion);
  data = "changed";
  conversion = "changed";
  EXPECT_STREQ(request.getData()->c_str(), "12");
  EXPECT_STREQ(request.getConversion()->c_str(), "D4/");

  NOXPString* none = nullptr;
  const char* noText = nullptr;
  expectTravelsAs(ConvRequestProt(1, none, none),
                  "4C  49 00 00 00 DF  49 00 00 00 00"
                  "49 00 00 00 01  73 00 00 3B  73 00 00 3B  3B");
  expectTravelsAs(ConvRequestProt(1, noText, noText),
                  "4C  49 00 00 00 DF  49 00 00 00 00"
                  "49 00 00 00 01  73 00 00 3B  73 00 00 3B  3B");
}

TEST(ConvRequest, IsCopiedDeeplyFromReferencesAndPointers) {
  auto original = std::make_unique<ConvRequestProt>(1, "12", "D4/");
  expectCopies(*original);
  ConvRequestProt copy(original.get());
  original.reset();
  EXPECT_THAT(fieldsOf(copy),
              ElementsAre("int _convType=1", "string _data=12", "string _conversion=D4/"));

  const ConvRequestProt* nothing = nullptr;
  EXPECT_EQ(ConvRequestProt(nothing).getConvType(), -1);
  EXPECT_FALSE((std::is_convertible_v<ConvRequestProt*, ConvRequestProt>));
}

TEST(ConvRequest, SaysNothingWhenItEnds) {
  EXPECT_THAT(logged([] { ConvRequestProt request; }), IsEmpty());
}

TEST(SwitchAccountRequest, TravelsAsUserAccountPassword) {
  expectTravelsAs(SwitchAccountRequestProt("U", "A", "P"),
                  "4C  49 00 00 00 E0  49 00 00 00 00"
                  "73 00 01 55 3B  73 00 01 41 3B  73 00 01 50 3B  3B");
  expectTravelsAs(SwitchAccountRequestProt(),
                  "4C  49 00 00 00 E0  49 00 00 00 00"
                  "73 00 00 3B  73 00 00 3B  73 00 00 3B  3B");
}

TEST(SwitchAccountRequest, NamesAndGivesItsFields) {
  SwitchAccountRequestProt request("U", "A", "P");
  EXPECT_THAT(fieldsOf(request),
              ElementsAre("string _user=U", "string _account=A", "string _password=P"));
  EXPECT_STREQ(request.getUser()->c_str(), "U");
  EXPECT_STREQ(request.getAccount()->c_str(), "A");
  EXPECT_STREQ(request.getPassword()->c_str(), "P");
}

TEST(SwitchAccountRequest, CopiesItsArguments) {
  NOXPString user("U");
  NOXPString account("A");
  NOXPString password("P");
  SwitchAccountRequestProt request(&user, &account, &password);
  user = "changed";
  account = "changed";
  password = "changed";
  EXPECT_THAT(fieldsOf(request),
              ElementsAre("string _user=U", "string _account=A", "string _password=P"));

  NOXPString* none = nullptr;
  expectTravelsAs(SwitchAccountRequestProt(none, none, none),
                  "4C  49 00 00 00 E0  49 00 00 00 00"
                  "73 00 00 3B  73 00 00 3B  73 00 00 3B  3B");
}

TEST(SwitchAccountRequest, IsCopiedDeeplyFromReferencesAndPointers) {
  auto original = std::make_unique<SwitchAccountRequestProt>("U", "A", "P");
  expectCopies(*original);
  SwitchAccountRequestProt copy(original.get());
  original.reset();
  EXPECT_THAT(fieldsOf(copy),
              ElementsAre("string _user=U", "string _account=A", "string _password=P"));

  const SwitchAccountRequestProt* nothing = nullptr;
  EXPECT_STREQ(SwitchAccountRequestProt(nothing).getUser()->c_str(), "");
  EXPECT_FALSE((std::is_convertible_v<SwitchAccountRequestProt*, SwitchAccountRequestProt>));
}

TEST(SwitchAccountRequest, TracesSixLinesOfWhichThreeNameAnotherClass) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build writes no log lines";
  SwitchAccountRequestProt request("U", "A", "%n%s");
  std::ostringstream out;
  out << "::serialize(this = " << static_cast<const void*>(&request) << "): ";
  const std::string before = "=> SwitchAccountRequestProt" + out.str();
  const std::string after = "<= OpenFileRequestProt" + out.str();
  EXPECT_THAT(
      logged([&] { fieldsOf(request); }),
      ElementsAre(before + "_user='U'", before + "_account='A'", before + "_password='%n%s'",
                  after + "_user='U'", after + "_account='A'", after + "_password='%n%s'"));
}

TEST(SwitchAccountRequest, SaysWhenItEnds) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build writes no log lines";
  EXPECT_THAT(logged([] { SwitchAccountRequestProt request; }),
              ElementsAre("SwitchAccountRequestProt::~SwitchAccountRequestProt\n"));
}

TEST(DateTimeRequest, TravelsAsItsTypeAlone) {
  expectTravelsAs(DateTimeRequestProt(), "4C  49 00 00 00 DB  49 00 00 00 00  3B");
  expectCopies(DateTimeRequestProt());
  EXPECT_THAT(logged([] { DateTimeRequestProt request; }), IsEmpty());
}

}  // namespace
}  // namespace nox::noxp::remote
