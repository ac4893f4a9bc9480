#include "nox/protocol/remote/monitoring.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "nox/core/exceptions.h"
#include "tests/support/caught.h"
#include "tests/support/log_capture.h"
#include "tests/support/messages.h"
#include "tests/support/recording_archive.h"

namespace nox::noxp::remote {
namespace {

using test::bytes;
using test::expectCopies;
using test::expectTravelsAs;
using test::fieldsOf;
using test::framed;
using test::frameOf;
using test::logged;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(MonitoringRequest, TravelsAsOneTextWithoutAName) {
  MonitoringRequestProt request("status");
  EXPECT_EQ(request.command(), "status");
  EXPECT_EQ(request.getCommand(), "status");
  EXPECT_THAT(fieldsOf(request), ElementsAre("text -=status"));
  expectTravelsAs(request, "4C  49 00 00 00 E4  49 00 00 00 00  73 00 06 73 74 61 74 75 73 3B  3B");
  expectTravelsAs(MonitoringRequestProt(), "4C  49 00 00 00 E4  49 00 00 00 00  73 00 00 3B  3B");
  expectCopies(request);
}

TEST(MonitoringRequest, JoinsCommandAndArgumentWithOneSpace) {
  EXPECT_EQ(MonitoringRequestProt("status", "all").command(), "status all");
  EXPECT_EQ(MonitoringRequestProt("status", "").command(), "status ");
  EXPECT_EQ(MonitoringRequestProt("", "").command(), " ");
}

TEST(MonitoringResponse, TravelsAsOneTextWithoutAName) {
  MonitoringResponseProt response("up");
  EXPECT_EQ(response.response(), "up");
  EXPECT_EQ(response.getResponse(), "up");
  EXPECT_THAT(fieldsOf(response), ElementsAre("text -=up"));
  expectTravelsAs(response, "4C  49 00 00 01 37  49 00 00 00 00  73 00 02 75 70 3B  3B");
  expectTravelsAs(MonitoringResponseProt(), "4C  49 00 00 01 37  49 00 00 00 00  73 00 00 3B  3B");
  expectCopies(response);
}

TEST(MonitoringMessages, EndTheirTextAtItsFirstNul) {
  EXPECT_BYTES(frameOf(MonitoringResponseProt(std::string("a\0b", 3))),
               framed(bytes("4C  49 00 00 01 37  49 00 00 00 00  73 00 01 61 3B  3B")));
}

TEST(MonitoringMessages, RefuseTheNullObjectInPlaceOfTheirText) {
  test::Classes<MonitoringRequestProt, MonitoringResponseProt> factory;
  for (const char* type : {"49 00 00 00 E4", "49 00 00 01 37"}) {
    SCOPED_TRACE(type);
    const auto error = test::caught<UnexpectedChar>([&] {
      test::readFrame(
          framed(bytes(std::string("4C") + type + "49 00 00 00 00  4C 49 00 00 00 01 3B  3B")),
          factory);
    });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getChar(), 'L');
    EXPECT_EQ(error->getExpectedChar(), 's');
  }
}

TEST(MonitoringMessages, CountTheirBytesIn16Bits) {
  const std::string frame = frameOf(MonitoringResponseProt(std::string(65536, 'x')));
  EXPECT_BYTES(frame.substr(0, 20), bytes("00 01 00 12  5B  4C  49 00 00 01 37  49 00 00 00 00"
                                          "73 00 00 78"));
  EXPECT_EQ(frame.size(), 4u + 1 + 11 + 3 + 65536 + 1 + 1 + 1);
}

TEST(MonitoringMessages, SayNothingWhenTheyEnd) {
  EXPECT_THAT(logged([] {
                MonitoringRequestProt request("status");
                MonitoringResponseProt response("up");
              }),
              IsEmpty());
}

}  // namespace
}  // namespace nox::noxp::remote
