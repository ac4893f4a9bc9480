#include "nox/protocol/common_messages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "nox/encodings/xml_object_writer.h"
#include "tests/protocol/protocol_classes.h"
#include "tests/support/bytes.h"
#include "tests/support/contents.h"
#include "tests/support/recording_archive.h"

namespace nox {
namespace {

using noxp::common::EchoRequestProt;
using noxp::common::EchoResponseProt;
using noxp::common::LoggingRequestProt;
using noxp::common::SetPropertiesRequestProt;
using noxp::common::SetPropertiesResponseProt;
using test::bytes;
using test::contentOf;
using test::expectSurvivesDamage;
using test::fieldsOf;
using test::framed;
using test::frameOf;
using test::readMessage;
using ::testing::ElementsAre;
using ::testing::Pair;

Properties propertiesOf(const std::map<std::string, std::string>& pairs) {
  Properties properties;
  for (const auto& [key, value] : pairs) properties.setProperty(key, value);
  return properties;
}

TEST(EchoRequest, CarriesZerosOfTheSizeAskedFor) {
  EchoRequestProt request(3);
  const std::string frame = bytes(
      "00 00 00 19  5B"
      "4C  49 00 00 01 F8  49 00 00 00 00"  // type 504, version 0
      "6A 62 00 00 00 03 00 00 00 3B 3B"    // "buffer"
      "3B  5D");
  EXPECT_BYTES(frameOf(request), frame);
  EXPECT_THAT(fieldsOf(request), ElementsAre("blob buffer=00 00 00"));

  const auto read = readMessage<EchoRequestProt>(frame);
  ASSERT_TRUE(read);
  EXPECT_EQ(contentOf(read->getBuffer()), std::string(3, '\0'));
  expectSurvivesDamage(frame);
}

TEST(EchoRequest, OfSizeZeroCarriesAnEmptyBlob) {
  const std::string frame = bytes(
      "00 00 00 16  5B"
      "4C  49 00 00 01 F8  49 00 00 00 00"
      "6A 62 00 00 00 00 3B 3B"
      "3B  5D");
  EXPECT_BYTES(frameOf(EchoRequestProt(0)), frame);
  EXPECT_BYTES(frameOf(EchoRequestProt()), frame);
}

TEST(EchoRequest, CarriesNoOldMemory) {
  EchoRequestProt request(65536);
  EXPECT_EQ(contentOf(request.getBuffer()), std::string(65536, '\0'));
}

TEST(EchoRequest, OfASizeThatMemoryCannotHoldIsEmpty) {
  EchoRequestProt request(~std::uint64_t{0});
  EXPECT_EQ(request.getBuffer()->length(), 0U);
}

TEST(EchoRequest, CopiesItsBuffer) {
  EchoRequestProt request(2);
  EchoRequestProt copy(request);
  EchoRequestProt assigned;
  assigned = request;
  assigned = *&assigned;
  request.getBuffer()->append("x");
  EXPECT_EQ(copy.getBuffer()->length(), 2U);
  EXPECT_EQ(assigned.getBuffer()->length(), 2U);
}

TEST(EchoResponse, CarriesTheBufferItTakesOver) {
  auto* buffer = new NOXPBlob("hi");
  EchoResponseProt reply(buffer);
  EXPECT_EQ(reply.getBuffer(), buffer);
  const std::string frame = bytes(
      "00 00 00 18  5B"
      "4C  49 00 00 01 F9  49 00 00 00 00"  // type 505, version 0
      "6A 62 00 00 00 02 68 69 3B 3B"       // "buffer" hi
      "3B  5D");
  EXPECT_BYTES(frameOf(reply), frame);
  EXPECT_THAT(fieldsOf(reply), ElementsAre("blob buffer=68 69"));

  const auto read = readMessage<EchoResponseProt>(frame);
  ASSERT_TRUE(read);
  EXPECT_EQ(contentOf(read->getBuffer()), "hi");
  expectSurvivesDamage(frame);
}

TEST(EchoResponse, WithoutABufferCarriesANullBlob) {
  EchoResponseProt reply;
  EXPECT_EQ(reply.getBuffer(), nullptr);
  const std::string frame = bytes(
      "00 00 00 15  5B"
      "4C  49 00 00 01 F9  49 00 00 00 00"
      "4C  49 00 00 00 01  3B"  // "buffer" null
      "3B  5D");
  EXPECT_BYTES(frameOf(reply), frame);
  EXPECT_BYTES(frameOf(EchoResponseProt(nullptr)), frame);

  const auto read = readMessage<EchoResponseProt>(frame);
  ASSERT_TRUE(read);
  EXPECT_EQ(contentOf(read->getBuffer()), "");
  expectSurvivesDamage(frame);
}

TEST(EchoResponse, CopiesItsBuffer) {
  EchoResponseProt reply(new NOXPBlob("hi"));
  EchoResponseProt copy(reply);
  EchoResponseProt assigned;
  assigned = reply;
  assigned = *&assigned;
  reply.getBuffer()->append("!");
  EXPECT_EQ(contentOf(copy.getBuffer()), "hi");
  EXPECT_EQ(contentOf(assigned.getBuffer()), "hi");
  assigned = EchoResponseProt();
  EXPECT_EQ(assigned.getBuffer(), nullptr);
  EXPECT_EQ(EchoResponseProt(assigned).getBuffer(), nullptr);
}

TEST(LoggingRequest, TravelsAsInfoAndLevel) {
  NOXPString info("up");
  LoggingRequestProt request(&info, 32);
  const std::string frame = bytes(
      "00 00 00 19  5B"
      "4C  49 00 00 01 F6  49 00 00 00 00"  // type 502, version 0
      "73 00 02 75 70 3B"                   // "info" up
      "49 00 00 00 20"                      // "level" 32
      "3B  5D");
  EXPECT_BYTES(frameOf(request), frame);
  EXPECT_THAT(fieldsOf(request), ElementsAre("string info=up", "int level=32"));

  const auto read = readMessage<LoggingRequestProt>(frame);
  ASSERT_TRUE(read);
  EXPECT_EQ(contentOf(read->getInfo()), "up");
  EXPECT_EQ(read->getLevel(), 32);
  expectSurvivesDamage(frame);
}

TEST(LoggingRequest, PassesAnyLevelThrough) {
  NOXPString info;
  LoggingRequestProt request(&info, -7);
  const auto read = test::roundTrip(request);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->getLevel(), -7);
}

TEST(LoggingRequest, IsEmptyOfLevelZeroByDefaultAndFromNull) {
  LoggingRequestProt request;
  EXPECT_EQ(contentOf(request.getInfo()), "");
  EXPECT_EQ(request.getLevel(), 0);
  LoggingRequestProt fromNull(nullptr, 4);
  EXPECT_EQ(contentOf(fromNull.getInfo()), "");
  EXPECT_EQ(fromNull.getLevel(), 4);
}

TEST(LoggingRequest, LeavesTheCallersStringAlone) {
  NOXPString info("up");
  {
    LoggingRequestProt request(&info, 1);
    frameOf(request);
    *request.getInfo() = "changed";
  }
  EXPECT_EQ(info.getType(), NOXPString::Narrow);
  EXPECT_EQ(contentOf(&info), "up");
}

TEST(LoggingRequest, CopiesItsInfo) {
  NOXPString info("up");
  LoggingRequestProt request(&info, 1);
  LoggingRequestProt copy(request);
  LoggingRequestProt assigned;
  assigned = request;
  assigned = *&assigned;
  *request.getInfo() = "changed";
  EXPECT_EQ(contentOf(copy.getInfo()), "up");
  EXPECT_EQ(contentOf(assigned.getInfo()), "up");
  EXPECT_EQ(assigned.getLevel(), 1);
}

TEST(SetPropertiesRequest, CarriesItsPairsWithoutAHeadOfTheirOwn) {
  SetPropertiesRequestProt request(propertiesOf({{"b", "2"}, {"a", "1"}}));
  const std::string frame = bytes(
      "00 00 00 27  5B"
      "4C  49 00 00 00 E5  49 00 00 00 00"  // type 229, version 0
      "49 00 00 00 02"                      // "length" 2
      "73 00 01 61 3B  73 00 01 31 3B"      // "key" a, "value" 1
      "73 00 01 62 3B  73 00 01 32 3B"      // "key" b, "value" 2
      "3B  5D");
  EXPECT_BYTES(frameOf(request), frame);
  EXPECT_THAT(fieldsOf(request), ElementsAre("int length=2", "text key=a", "text value=1",
                                             "text key=b", "text value=2"));

  const auto read = readMessage<SetPropertiesRequestProt>(frame);
  ASSERT_TRUE(read);
  EXPECT_THAT(contentOf(*read->getProperties()), ElementsAre(Pair("a", "1"), Pair("b", "2")));
  expectSurvivesDamage(frame);
}

TEST(SetPropertiesRequest, CopiesTheSetItIsGiven) {
  Properties properties = propertiesOf({{"a", "1"}});
  SetPropertiesRequestProt request(properties);
  properties.setProperty("a", "2");
  EXPECT_THAT(contentOf(*request.getProperties()), ElementsAre(Pair("a", "1")));
}

TEST(SetPropertiesRequest, CopiesItsSet) {
  SetPropertiesRequestProt request(propertiesOf({{"a", "1"}}));
  SetPropertiesRequestProt copy(request);
  SetPropertiesRequestProt assigned;
  assigned = request;
  assigned = *&assigned;
  request.getProperties()->setProperty("a", "2");
  EXPECT_THAT(contentOf(*copy.getProperties()), ElementsAre(Pair("a", "1")));
  EXPECT_THAT(contentOf(*assigned.getProperties()), ElementsAre(Pair("a", "1")));
}

TEST(SetPropertiesRequest, KeepsHowItTravelsApartFromItsSet) {
  SetPropertiesRequestProt request;
  Serializable& message = request;
  EXPECT_EQ(message.getProperties(), nullptr);
  Serializable::properties_t compressed{true, 0};
  request.setProperties(&compressed);
  EXPECT_EQ(message.getProperties(), &compressed);
  EXPECT_EQ(frameOf(request).substr(5, 4), "GZIP");
}

TEST(SetPropertiesRequest, ShowsAsXmlItsCountAlone) {
  SetPropertiesRequestProt request(propertiesOf({{"a", "1"}}));
  test::ProtocolClasses factory;
  MemoryBufferOutStream out;
  XMLObjectWriter writer(&factory, &out);
  writer.writeRoot(request);
  EXPECT_EQ(out.str(),
            "<o type=\"229\" typeName=\"test\" name=\"\" version=\"0\">"
            "<int name=\"length\" value=\"1\"/></o>\n");
}

TEST(SetPropertiesResponse, SaysZero) {
  SetPropertiesResponseProt reply;
  const std::string frame = bytes(
      "00 00 00 13  5B"
      "4C  49 00 00 01 38  49 00 00 00 00"  // type 312, version 0
      "49 00 00 00 00"                      // "result" 0
      "3B  5D");
  EXPECT_BYTES(frameOf(reply), frame);
  EXPECT_THAT(fieldsOf(reply), ElementsAre("int result=0"));
  EXPECT_TRUE(readMessage<SetPropertiesResponseProt>(frame));
  expectSurvivesDamage(frame);
}

TEST(SetPropertiesResponse, KeepsNothingOfWhatItReads) {
  const auto read = readMessage<SetPropertiesResponseProt>(
      framed(bytes("4C 49 00 00 01 38 49 00 00 00 00 49 00 00 00 07 3B")));
  ASSERT_TRUE(read);
  EXPECT_THAT(fieldsOf(*read), ElementsAre("int result=0"));
}

}  // namespace
}  // namespace nox
