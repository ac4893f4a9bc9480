#include "nox/protocol/remote/remote_responses.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "nox/core/archive.h"
#include "nox/core/exceptions.h"
#include "nox/protocol/remote/monitoring.h"
#include "nox/protocol/remote/select_list_requests.h"
#include "tests/protocol/remote/list_of_a.h"
#include "tests/support/caught.h"
#include "tests/support/contents.h"
#include "tests/support/log_capture.h"
#include "tests/support/messages.h"
#include "tests/support/recording_archive.h"

namespace nox::noxp::remote {
namespace {

using test::bytes;
using test::contentOf;
using test::expectCopies;
using test::expectTravelsAs;
using test::fieldsOf;
using test::framed;
using test::frameOf;
using test::logged;
using test::readAs;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A list with id 0 of the one key A; the caller's.
SelectListProt* newListOfA() {
  const NOXPBlob key("A");
  return new SelectListProt(&key);
}

/// A list of one text; the caller's.
ACEBinaryFormatParameterListProt* newParameters(const std::string& text) {
  auto list = std::make_unique<ACEBinaryFormatParameterListProt>(1);
  list->setString(0, text, 12);
  return list.release();
}

const std::string kParametersP =
    "4C  49 00 00 00 67  49 00 00 00 00"
    "49 00 00 00 01  49 00 00 00 0C  49 00 00 00 00  6A 62 00 00 00 01 50 3B 3B  3B";

/// A class of the application's, as a reply may carry it in place of a list.
class NoteProt : public Serializable {
public:
  explicit NoteProt(int number = 0) : number_(number) {}
  Serializable* create() override { return new NoteProt; }
  int getType() override { return 900; }
  Archive& serialize(Archive& ar, unsigned int version) override {
    ar.process(number_, "number");
    if (version == 1) ar.process(extra_, "extra");
    return ar;
  }
  int number() const { return number_; }
  int& extra() { return extra_; }

private:
  int number_;
  int extra_ = 0;
};

/// One of which no further ones can be made.
class LastOfItsKindProt : public NoteProt {
public:
  Serializable* create() override { return nullptr; }
};

template <class Message>
std::unique_ptr<Message> readReply(const std::string& hexBody) {
  test::Classes<Message, SelectListProt, ACEBinaryFormatParameterListProt> factory;
  return readAs<Message>(framed(bytes(hexBody)), factory);
}

TEST(ToviResponse, TravelsAsStatusRecordAndList) {
  ToviResponseProt response(-3, new NOXPBlob("a\0\xFE", 3), newListOfA());
  expectTravelsAs<SelectListProt>(response,
                                  "4C  49 00 00 01 2D  49 00 00 00 00"
                                  "49 FF FF FF FD"                    // "_status" -3
                                  "6A 62 00 00 00 03 61 00 FE 3B 3B"  // "_data"
                                      + kListOfA + "3B");             // "_selectList"
  ToviResponseProt named(2, new NOXPBlob("A"));
  EXPECT_THAT(fieldsOf(named),
              ElementsAre("int _status=2", "blob _data=41", "object _selectList=null"));
}

TEST(ToviResponse, HasStatusOneAndNothingElseByDefault) {
  ToviResponseProt response;
  EXPECT_EQ(response.getStatus(), 1);
  EXPECT_EQ(response.getRecord(), nullptr);
  EXPECT_EQ(response.getSelectList(), nullptr);
  EXPECT_BYTES(
      frameOf(response),
      framed(bytes("4C  49 00 00 01 2D  49 00 00 00 00  49 00 00 00 01" + kNull + kNull + "3B")));
}

TEST(ToviResponse, ReadsNullsAsAnEmptyRecordAndNoList) {
  const auto read = readReply<ToviResponseProt>(
      "4C  49 00 00 01 2D  49 00 00 00 00  49 00 00 00 01" + kNull + kNull + "3B");
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(contentOf(read->getRecord()), "");
  auto* list = dynamic_cast<SelectListProt*>(read->getSelectList());
  ASSERT_NE(list, nullptr);
  EXPECT_LT(list->getId(), 0);
}

TEST(ToviResponse, ReadsOtherObjectsThanListsAsErrors) {
  test::Classes<ToviResponseProt, SelectListProt, SelectListProt5> factory;
  const auto error = test::caught<UnexpectedType>([&] {
    test::readFrame(framed(bytes("4C  49 00 00 01 2D  49 00 00 00 00  49 00 00 00 01" + kNull +
                                 "4C  49 00 00 01 91  49 00 00 00 00"
                                 "6A 62 00 00 00 00 3B 3B  3B  3B")),
                    factory);
  });
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->getActualType(), 401);
  EXPECT_EQ(error->getExpectedType(), 404);
}

TEST(ToviResponse, ReadsIntoTheObjectItHolds) {
  ToviResponseProt response(1, nullptr, new SelectListProt5);
  const std::string object = bytes(
      "4C  49 00 00 01 2D  49 00 00 00 00  49 00 00 00 05  6A 62 00 00 00 01 72 3B 3B"
      "4C  49 00 00 01 91  49 00 00 00 00  6A 62 00 00 00 01 4B 3B 3B  3B  3B");
  MemoryBufferInputStream in(object.data(), object.size());
  BinaryReader(nullptr, &in).readObject(&response);
  EXPECT_EQ(response.getStatus(), 5);
  EXPECT_EQ(contentOf(response.getRecord()), "r");
  EXPECT_EQ(contentOf(dynamic_cast<SelectListProt5&>(*response.getSelectList()).getKeys()), "K");
}

TEST(ToviResponse, TakesRecordAndListOver) {
  auto* record = new NOXPBlob("r");
  auto* list = new SelectListProt;
  ToviResponseProt response(1, record, list);
  EXPECT_EQ(response.getRecord(), record);
  EXPECT_EQ(response.getSelectList(), list);
}

// What a handler writes at its end: only the constructors that copy from a pointer are explicit.
TEST(RemoteResponses, AreMadeOfWhatAHandlerReturns) {
  const auto record = []() -> ToviResponseProt { return {1, new NOXPBlob("r")}; };
  const auto list = []() -> SelectListFetchResponseProt { return {newListOfA()}; };
  const auto value = []() -> ReadCommonResponseProt { return {"v"}; };
  const auto account = []() -> SwitchAccountResponseProt { return 4; };
  const auto answer = []() -> MonitoringResponseProt { return {"text"}; };
  EXPECT_EQ(contentOf(record().getRecord()), "r");
  EXPECT_EQ(list().getSelectList()->size(), 1U);
  EXPECT_EQ(contentOf(value().getValue()), "v");
  EXPECT_EQ(account().getStatus(), 4);
  EXPECT_EQ(answer().response(), "text");
}

TEST(ToviResponse, CopiesRecordAndListDeeply) {
  expectCopies(ToviResponseProt(1, new NOXPBlob("r"), newListOfA()));
  expectCopies(ToviResponseProt(1, new NOXPBlob("r"), new SelectListProt5(new NOXPBlob("K"))));
  expectCopies(ToviResponseProt());
  ToviResponseProt response(1, new NOXPBlob("r"), newListOfA());
  const ToviResponseProt copy(response);
  EXPECT_NE(copy.getRecord(), response.getRecord());
  EXPECT_NE(copy.getSelectList(), response.getSelectList());
}

TEST(ToviResponse, CopiesObjectsOfOtherClassesByTheirContent) {
  auto* note = new NoteProt(42);
  note->extra() = 43;
  note->setClassVersion(1);
  Serializable::properties_t properties;
  properties.compress = true;
  note->setProperties(&properties);
  note->setPacketSize(99);
  ToviResponseProt response(1, nullptr, note);

  const ToviResponseProt constructed(response);
  ToviResponseProt assigned;
  assigned = response;
  for (const ToviResponseProt* copy :
       {&constructed, static_cast<const ToviResponseProt*>(&assigned)}) {
    auto* copied = dynamic_cast<NoteProt*>(copy->getSelectList());
    ASSERT_NE(copied, nullptr);
    EXPECT_NE(copied, note);
    EXPECT_EQ(copied->number(), 42);
    EXPECT_EQ(copied->extra(), 43);
    EXPECT_EQ(copied->getClassVersion(), 1);
    EXPECT_EQ(copied->getProperties(), &properties);
    EXPECT_EQ(copied->getPacketSize(), 99u);
  }
  EXPECT_EQ(note->getProperties(), &properties);
  EXPECT_EQ(note->getPacketSize(), 99u);
}

TEST(ToviResponse, CannotCopyWhatMakesNoOthers) {
  ToviResponseProt response(1, nullptr, new LastOfItsKindProt);
  EXPECT_THROW(ToviResponseProt copy(response), std::bad_alloc);
}

TEST(ExecuteResponse, SendsItsListBeforeItsBlobs) {
  NOXPBlob capturing("CC");
  NOXPBlob setting("S");
  ExecuteResponseProt response(&capturing, &setting, newListOfA());
  expectTravelsAs<SelectListProt>(response,
                                  "4C  49 00 00 01 2E  49 00 00 00 00" + kListOfA +  // "selectList"
                                      "6A 62 00 00 00 02 43 43 3B 3B"  // "capturingVar" CC
                                      "6A 62 00 00 00 01 53 3B 3B"     // "settingVar" S
                                      "3B");
  ExecuteResponseProt named(&capturing, &setting, nullptr);
  EXPECT_THAT(fieldsOf(named), ElementsAre("object selectList=null", "blob capturingVar=43 43",
                                           "blob settingVar=53"));
}

TEST(ExecuteResponse, HasEmptyBlobsAndNoListByDefault) {
  ExecuteResponseProt response;
  EXPECT_EQ(contentOf(response.getCapturingVariable()), "");
  EXPECT_EQ(contentOf(response.getSettingVariable()), "");
  EXPECT_EQ(response.getSelectList(), nullptr);
  const std::string body = "4C  49 00 00 01 2E  49 00 00 00 00" + kNull +
                           "6A 62 00 00 00 00 3B 3B  6A 62 00 00 00 00 3B 3B  3B";
  EXPECT_BYTES(frameOf(response), framed(bytes(body)));
  const auto read = readReply<ExecuteResponseProt>(body);
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(dynamic_cast<SelectListProt&>(*read->getSelectList()).getId(), -1);
}

TEST(ExecuteResponse, CopiesTheBlobsAndTakesTheListOver) {
  NOXPBlob capturing("C");
  NOXPBlob setting("S");
  auto* list = new SelectListProt;
  ExecuteResponseProt response(&capturing, &setting, list);
  capturing.clear();
  setting.clear();
  EXPECT_EQ(contentOf(response.getCapturingVariable()), "C");
  EXPECT_EQ(contentOf(response.getSettingVariable()), "S");
  EXPECT_EQ(response.getSelectList(), list);
  expectCopies(response);

  NOXPBlob* nothing = nullptr;
  ExecuteResponseProt empty(nothing, nothing, nullptr);
  EXPECT_EQ(contentOf(empty.getCapturingVariable()), "");
  EXPECT_EQ(contentOf(empty.getSettingVariable()), "");
}

TEST(TransactionResponse, TravelsAsItsTypeAlone) {
  expectTravelsAs(TransactionResponseProt(), "4C  49 00 00 01 2F  49 00 00 00 00  3B");
  expectCopies(TransactionResponseProt());
}

TEST(SubroutineResponse, TravelsAsStatusAndParameters) {
  const std::unique_ptr<ParameterListProt> parameters(newParameters("P"));
  SubroutineResponseProt response(4, parameters.get());
  expectTravelsAs<ACEBinaryFormatParameterListProt>(response,
                                                    "4C  49 00 00 01 30  49 00 00 00 00"
                                                    "49 00 00 00 04" +  // "_status" 4
                                                        kParametersP +
                                                        "3B");
  SubroutineResponseProt named(4);
  EXPECT_THAT(fieldsOf(named), ElementsAre("int _status=4", "object _parameters=null"));
}

TEST(SubroutineResponse, KeepsACopyOfTheCallersParameters) {
  std::unique_ptr<ParameterListProt> parameters(newParameters("P"));
  SubroutineResponseProt response(4, parameters.get());
  EXPECT_NE(response.getParameters(), parameters.get());
  parameters.reset();
  ASSERT_EQ(response.getParameters()->count(), 1u);
  EXPECT_EQ(contentOf(response.getParameters()->getPtr(0)), "P");
  expectCopies(response);
}

TEST(SubroutineResponse, CopiesNullParametersAsNull) {
  auto parameters = std::make_unique<ACEBinaryFormatParameterListProt>(2);
  parameters->setNull(0, 12);
  SubroutineResponseProt response(0, parameters.get());
  EXPECT_EQ(response.getParameters()->getPtr(0), nullptr);
  EXPECT_EQ(response.getParameters()->getParameterType(0), 12);
  EXPECT_EQ(response.getParameters()->isNull(0), 1);
  EXPECT_EQ(response.getParameters()->isNull(1), -1);
}

TEST(SubroutineResponse, HasStatusZeroAndNoParametersByDefault) {
  EXPECT_EQ(SubroutineResponseProt().getStatus(), 0);
  EXPECT_EQ(SubroutineResponseProt().getParameters(), nullptr);
  EXPECT_EQ(SubroutineResponseProt(5).getStatus(), 5);
  EXPECT_EQ(SubroutineResponseProt(5).getParameters(), nullptr);
  EXPECT_EQ(SubroutineResponseProt(5, nullptr).getParameters(), nullptr);
  expectCopies(SubroutineResponseProt());

  const std::string body = "4C  49 00 00 01 30  49 00 00 00 00  49 00 00 00 00" + kNull + "3B";
  EXPECT_BYTES(frameOf(SubroutineResponseProt()), framed(bytes(body)));
  const auto read = readReply<SubroutineResponseProt>(body);
  ASSERT_NE(read, nullptr);
  ASSERT_NE(read->getParameters(), nullptr);
  EXPECT_EQ(read->getParameters()->count(), 0u);
}

TEST(DateTimeResponse, TravelsAsDateAndTime) {
  DateTimeResponseProt response(20000, -1);
  EXPECT_EQ(response.getDate(), 20000);
  EXPECT_EQ(response.getTime(), -1);
  EXPECT_THAT(fieldsOf(response), ElementsAre("int date=20000", "int time=-1"));
  expectTravelsAs(response,
                  "4C  49 00 00 01 32  49 00 00 00 00  49 00 00 4E 20  49 FF FF FF FF  3B");
  expectTravelsAs(DateTimeResponseProt(),
                  "4C  49 00 00 01 32  49 00 00 00 00  49 00 00 00 00  49 00 00 00 00  3B");
  expectCopies(response);
}

TEST(ReadCommonResponse, TravelsAsItsValue) {
  NOXPBlob value("V\0W", 3);
  ReadCommonResponseProt response(&value);
  value.clear();
  expectTravelsAs(response,
                  "4C  49 00 00 01 33  49 00 00 00 00  6A 62 00 00 00 03 56 00 57 3B 3B  3B");
  expectTravelsAs(ReadCommonResponseProt(),
                  "4C  49 00 00 01 33  49 00 00 00 00  6A 62 00 00 00 00 3B 3B  3B");
  EXPECT_THAT(fieldsOf(response), ElementsAre("blob _value=56 00 57"));
  expectCopies(response);
}

TEST(ReadCommonResponse, TakesACTextOrNothing) {
  EXPECT_EQ(contentOf(ReadCommonResponseProt("V\0W").getValue()), "V");
  const char* noText = nullptr;
  NOXPBlob* noBlob = nullptr;
  EXPECT_EQ(contentOf(ReadCommonResponseProt(noText).getValue()), "");
  EXPECT_EQ(contentOf(ReadCommonResponseProt(noBlob).getValue()), "");
}

TEST(ConvResponse, TravelsAsItsResult) {
  const NOXPBlob result("\xFE\0;", 3);
  ConvResponseProt response(&result);
  expectTravelsAs(response,
                  "4C  49 00 00 01 34  49 00 00 00 00  6A 62 00 00 00 03 FE 00 3B 3B 3B  3B");
  expectTravelsAs(ConvResponseProt(),
                  "4C  49 00 00 01 34  49 00 00 00 00  6A 62 00 00 00 00 3B 3B  3B");
  EXPECT_THAT(fieldsOf(response), ElementsAre("blob _result=FE 00 3B"));
  expectCopies(response);
}

TEST(ConvResponse, HoldsTheBytesOfAStringsText) {
  NOXPString narrow("12 MAR 2024");
  EXPECT_EQ(contentOf(ConvResponseProt(&narrow).getResult()), "12 MAR 2024");
  NOXPString utf8("\xC3\xA9\xFE", 3, true);
  EXPECT_EQ(contentOf(ConvResponseProt(&utf8).getResult()), "\xC3\xA9\xFE");
  NOXPString wide(std::wstring(L"\u00E9"));
  EXPECT_EQ(contentOf(ConvResponseProt(&wide).getResult()), "\xC3\xA9");
  NOXPString withNul("a\0b", 3, false);
  EXPECT_EQ(contentOf(ConvResponseProt(&withNul).getResult()), std::string("a\0b", 3));
  NOXPString empty;
  EXPECT_EQ(contentOf(ConvResponseProt(&empty).getResult()), "");
  NOXPString* noText = nullptr;
  NOXPBlob* noBlob = nullptr;
  EXPECT_EQ(contentOf(ConvResponseProt(noText).getResult()), "");
  EXPECT_EQ(contentOf(ConvResponseProt(noBlob).getResult()), "");
}

TEST(SwitchAccountResponse, TravelsAsItsStatus) {
  EXPECT_EQ(SwitchAccountResponseProt().getStatus(), 1);
  SwitchAccountResponseProt response(-2);
  EXPECT_EQ(response.getStatus(), -2);
  EXPECT_THAT(fieldsOf(response), ElementsAre("int _status=-2"));
  expectTravelsAs(response, "4C  49 00 00 01 35  49 00 00 00 00  49 FF FF FF FE  3B");
  expectTravelsAs(SwitchAccountResponseProt(),
                  "4C  49 00 00 01 35  49 00 00 00 00  49 00 00 00 01  3B");
  expectCopies(response);
}

TEST(StatementFetchResponse, TravelsAsStatusAndTheRowsItTakesOver) {
  auto* rows = newParameters("P");
  StatementFetchResponseProt response(6, rows);
  EXPECT_EQ(response.getStatus(), 6);
  EXPECT_EQ(response.getParameterList(), rows);
  EXPECT_EQ(response.getRows(), rows);
  expectTravelsAs<ACEBinaryFormatParameterListProt>(response,
                                                    "4C  49 00 00 01 36  49 00 00 00 00"
                                                    "49 00 00 00 06" +  // "_status" 6
                                                        kParametersP +
                                                        "3B");
  expectCopies(response);
  EXPECT_NE(StatementFetchResponseProt(response).getRows(), rows);
}

TEST(StatementFetchResponse, HasStatusZeroAndNoRowsByDefault) {
  StatementFetchResponseProt response;
  EXPECT_EQ(response.getStatus(), 0);
  EXPECT_EQ(response.getParameterList(), nullptr);
  EXPECT_THAT(fieldsOf(response), ElementsAre("int _status=0", "object _rows=null"));
  expectCopies(StatementFetchResponseProt(1, nullptr));

  const std::string body = "4C  49 00 00 01 36  49 00 00 00 00  49 00 00 00 00" + kNull + "3B";
  EXPECT_BYTES(frameOf(response), framed(bytes(body)));
  const auto read = readReply<StatementFetchResponseProt>(body);
  ASSERT_NE(read, nullptr);
  ASSERT_NE(read->getRows(), nullptr);
  EXPECT_EQ(read->getRows()->count(), 0u);
}

TEST(RemoteResponses, SayNothingWhenTheyEnd) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build writes no log lines";
  EXPECT_THAT(logged([] {
                ToviResponseProt tovi;
                ExecuteResponseProt execute;
                TransactionResponseProt transaction;
                SubroutineResponseProt subroutine;
                DateTimeResponseProt dateTime;
                ReadCommonResponseProt common;
                ConvResponseProt conv;
                SwitchAccountResponseProt account;
                StatementFetchResponseProt fetch;
              }),
              IsEmpty());
}

}  // namespace
}  // namespace nox::noxp::remote
