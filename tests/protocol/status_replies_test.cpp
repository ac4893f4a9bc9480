#include "nox/protocol/status_replies.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "nox/core/exceptions.h"
#include "tests/protocol/protocol_classes.h"
#include "tests/support/bytes.h"
#include "tests/support/caught.h"
#include "tests/support/contents.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording_archive.h"

namespace nox {
namespace {

using noxp::DummyRequestProt;
using noxp::InputOutputResponseProt;
using noxp::InternalErrorRequestProt;
using noxp::UnrecognizedRequestProt;
using test::bytes;
using test::caught;
using test::contentOf;
using test::expectSurvivesDamage;
using test::fieldsOf;
using test::framed;
using test::frameOf;
using test::readMessage;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(OkResponse, CarriesTheTextOk) {
  OKResponseProt ok;
  const std::string frame = bytes(
      "00 00 00 14  5B"
      "4C  49 00 00 01 F7  49 00 00 00 00"  // type 503, version 0
      "73 00 02 4F 4B 3B"                   // "OK" OK
      "3B  5D");
  EXPECT_BYTES(frameOf(ok), frame);
  EXPECT_THAT(fieldsOf(ok), ElementsAre("text OK=OK"));
  EXPECT_TRUE(readMessage<OKResponseProt>(frame));
  expectSurvivesDamage(frame);
}

TEST(OkResponse, AcceptsAnyText) {
  const auto read = readMessage<OKResponseProt>(
      framed(bytes("4C 49 00 00 01 F7 49 00 00 00 00 73 00 03 6E 6F 21 3B 3B")));
  ASSERT_TRUE(read);
  EXPECT_THAT(fieldsOf(*read), ElementsAre("text OK=OK"));
}

TEST(OkResponse, RefusesANullText) {
  const auto error = caught<UnexpectedChar>([] {
    readMessage<OKResponseProt>(
        framed(bytes("4C 49 00 00 01 F7 49 00 00 00 00 4C 49 00 00 00 01 3B 3B")));
  });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->getChar(), 'L');
}

TEST(ErrorResponse, CarriesItsErrorAsAnObject) {
  SQLExtError error("22", "012");
  ErrorResponseProt reply(error);
  const std::string frame = bytes(
      "00 00 00 3B  5B"
      "4C  49 00 00 00 66  49 00 00 00 00"                        // type 102, version 0
      "4C  49 00 00 01 93  49 00 00 00 00"                        // "err", type 403, version 0
      "73 00 02 32 32 3B"                                         // "sqlClass" 22
      "73 00 03 30 31 32 3B"                                      // "sqlSubClass" 012
      "73 00 10 44 69 76 69 73 69 6F 6E 20 62 79 20 7A 65 72 6F"  // "msg" Division by zero
      "3B  3B  3B  5D");
  EXPECT_BYTES(frameOf(reply), frame);
  EXPECT_THAT(fieldsOf(reply),
              ElementsAre("object err=type 403 version 0", "text sqlClass=22",
                          "text sqlSubClass=012", "text msg=Division by zero", "end"));

  const auto read = readMessage<ErrorResponseProt>(frame);
  ASSERT_TRUE(read);
  ASSERT_TRUE(read->getError());
  EXPECT_EQ(read->getError()->getMsg(), "Division by zero");
  EXPECT_EQ(read->getError()->getSqlState().sqlClass, "22");
  EXPECT_EQ(read->getError()->getSqlState().sqlSubClass, "012");
  expectSurvivesDamage(frame);
}

TEST(ErrorResponse, WithoutAnErrorCarriesANullObject) {
  ErrorResponseProt reply;
  EXPECT_EQ(reply.getError(), nullptr);
  const std::string frame = bytes(
      "00 00 00 15  5B"
      "4C  49 00 00 00 66  49 00 00 00 00"
      "4C  49 00 00 00 01  3B"  // "err" null
      "3B  5D");
  EXPECT_BYTES(frameOf(reply), frame);

  const auto read = readMessage<ErrorResponseProt>(frame);
  ASSERT_TRUE(read);
  ASSERT_TRUE(read->getError());
  EXPECT_EQ(read->getError()->getSqlState().sqlClass, "00");
  EXPECT_EQ(read->getError()->getSqlState().sqlSubClass, "000");
  EXPECT_EQ(read->getError()->getMsg(), "No error.");
  expectSurvivesDamage(frame);
}

TEST(ErrorResponse, CopiesItsError) {
  SQLExtError error("22", "012");
  ErrorResponseProt reply(error);
  error.setMsg("changed");
  EXPECT_EQ(reply.getError()->getMsg(), "Division by zero");

  ErrorResponseProt copy(reply);
  ErrorResponseProt assigned;
  assigned = reply;
  assigned = *&assigned;
  reply.getError()->setMsg("changed");
  EXPECT_EQ(copy.getError()->getMsg(), "Division by zero");
  EXPECT_EQ(assigned.getError()->getMsg(), "Division by zero");
  assigned = ErrorResponseProt();
  EXPECT_EQ(assigned.getError(), nullptr);
}

TEST(ErrorResponse, ReadAgainStartsFromAFreshError) {
  ErrorResponseProt reply{SQLExtError("22", "012")};
  test::RecordingReader nothingComes;
  reply.serialize(nothingComes, 0);
  EXPECT_THAT(nothingComes.lines(), ElementsAre("object err"));
  EXPECT_EQ(reply.getError()->getMsg(), "No error.");
}

TEST(ErrorResponse, RefusesAnObjectThatIsNoError) {
  const auto error = caught<UnexpectedType>([] {
    readMessage<ErrorResponseProt>(framed(bytes(
        "4C 49 00 00 00 66 49 00 00 00 00 4C 49 00 00 01 F7 49 00 00 00 00 73 00 00 3B 3B 3B")));
  });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->getActualType(), 503);
  EXPECT_EQ(error->getExpectedType(), 403);
}

TEST(ErrorResponse, WritesItsMessageToTheErrorLog) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build discards log lines";
  SQLExtError error("22", "012");
  test::LogCapture log;
  const ErrorResponseProt reply(error);
  const ErrorResponseProt placed(error, "RequestProt", 75);
  const ErrorResponseProt unplaced(error, nullptr, 0);
  EXPECT_THAT(
      log.texts(nox::error),
      ElementsAre(" Division by zero", "Division by zeroRequestProt75", "Division by zero0"));
}

TEST(InternalErrorRequest, KeepsItsErrorToItself) {
  InternalErrorRequestProt request("it broke");
  EXPECT_EQ(request.getError()->getSqlState().sqlClass, "IE");
  EXPECT_EQ(request.getError()->getSqlState().sqlSubClass, "000");
  EXPECT_EQ(request.getError()->getMsg(), "it broke");
  const std::string frame = bytes(
      "00 00 00 0E  5B"
      "4C  49 00 00 00 00  49 00 00 00 00"  // type 0, version 0
      "3B  5D");
  EXPECT_BYTES(frameOf(request), frame);
  EXPECT_THAT(fieldsOf(request), IsEmpty());

  const auto read = readMessage<InternalErrorRequestProt>(frame);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->getError()->getMsg(), "No error.");
  expectSurvivesDamage(frame);
}

TEST(InternalErrorRequest, IsNoErrorByDefault) {
  const InternalErrorRequestProt request;
  EXPECT_EQ(request.getError()->getSqlState().sqlClass, "00");
  EXPECT_EQ(request.getError()->getMsg(), "No error.");
}

TEST(InternalErrorRequest, CopiesItsError) {
  InternalErrorRequestProt request("it broke");
  InternalErrorRequestProt copy(request);
  InternalErrorRequestProt assigned;
  assigned = request;
  assigned = *&assigned;
  EXPECT_NE(copy.getError(), request.getError());
  request.getError()->setMsg("changed");
  EXPECT_EQ(copy.getError()->getMsg(), "it broke");
  EXPECT_EQ(assigned.getError()->getMsg(), "it broke");
}

template <class Placeholder>
class PlaceholderRequest : public ::testing::Test {};
using Placeholders = ::testing::Types<DummyRequestProt, UnrecognizedRequestProt>;
TYPED_TEST_SUITE(PlaceholderRequest, Placeholders);

TYPED_TEST(PlaceholderRequest, CarriesItsTypeCodeAlone) {
  TypeParam request;
  EXPECT_EQ(request.getType(), 0);
  EXPECT_FALSE(request.isServerSide());
  const std::string frame = bytes("00 00 00 0E 5B 4C 49 00 00 00 00 49 00 00 00 00 3B 5D");
  EXPECT_BYTES(frameOf(request), frame);
  EXPECT_TRUE(test::roundTrip(request));
  test::Classes<TypeParam> factory;
  expectSurvivesDamage(frame, factory);
}

TEST(PlaceholderRequests, ShareTheirCodeSoThatAFactoryTakesOne) {
  test::Classes<InternalErrorRequestProt> factory;
  DummyRequestProt dummy;
  EXPECT_TRUE(caught<DuplicateType>([&] { factory.registerType(&dummy, "Dummy"); }));
}

TEST(InputOutputResponse, TravelsAsCommandAndOutput) {
  NOXPBlob data("AB");
  InputOutputResponseProt reply(7, &data);
  const std::string frame = bytes(
      "00 00 00 1D  5B"
      "4C  49 00 00 01 31  49 00 00 00 00"  // type 305, version 0
      "49 00 00 00 07"                      // "command" 7
      "6A 62 00 00 00 02 41 42 3B 3B"       // "_output" AB
      "3B  5D");
  EXPECT_BYTES(frameOf(reply), frame);
  EXPECT_THAT(fieldsOf(reply), ElementsAre("int command=7", "blob _output=41 42"));

  const auto read = readMessage<InputOutputResponseProt>(frame);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->getCommand(), 7);
  EXPECT_EQ(contentOf(read->getOutput()), "AB");
  expectSurvivesDamage(frame);
}

TEST(InputOutputResponse, WithoutOutputCarriesANullBlob) {
  InputOutputResponseProt reply(7);
  EXPECT_EQ(reply.getOutput(), nullptr);
  const std::string frame = bytes(
      "00 00 00 1A  5B"
      "4C  49 00 00 01 31  49 00 00 00 00"
      "49 00 00 00 07"
      "4C  49 00 00 00 01  3B"  // "_output" null
      "3B  5D");
  EXPECT_BYTES(frameOf(reply), frame);
  InputOutputResponseProt fromNull(7, nullptr);
  EXPECT_BYTES(frameOf(fromNull), frame);

  const auto read = readMessage<InputOutputResponseProt>(frame);
  ASSERT_TRUE(read);
  EXPECT_EQ(contentOf(read->getOutput()), "");
  expectSurvivesDamage(frame);
}

TEST(InputOutputResponse, WithoutOutputCanBeReadInto) {
  InputOutputResponseProt reply(7);
  test::RecordingReader archive;
  reply.serialize(archive, 0);
  EXPECT_THAT(archive.lines(), ElementsAre("int command", "blob _output"));
  EXPECT_EQ(contentOf(reply.getOutput()), "");
}

TEST(InputOutputResponse, IsCommandZeroWithAnEmptyOutputByDefault) {
  InputOutputResponseProt reply;
  EXPECT_EQ(reply.getCommand(), 0);
  EXPECT_EQ(contentOf(reply.getOutput()), "");
}

TEST(InputOutputResponse, CopiesItsOutput) {
  NOXPBlob data("AB");
  InputOutputResponseProt reply(7, &data);
  InputOutputResponseProt copy(reply);
  InputOutputResponseProt assigned(1);
  assigned = reply;
  assigned = *&assigned;
  data.append("C");
  reply.getOutput()->append("D");
  EXPECT_EQ(contentOf(reply.getOutput()), "ABD");
  EXPECT_EQ(contentOf(copy.getOutput()), "AB");
  EXPECT_EQ(contentOf(assigned.getOutput()), "AB");
  EXPECT_EQ(assigned.getCommand(), 7);
  assigned = InputOutputResponseProt(2);
  EXPECT_EQ(assigned.getOutput(), nullptr);
}

}  // namespace
}  // namespace nox
