#include "nox/protocol/remote/execution_requests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "nox/core/exceptions.h"
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
using test::logged;
using test::readAs;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Lists = test::Classes<RemoteExecuteRequestProt, SelectListProt>;

TEST(RemoteExecuteRequest, TravelsAsCommandInVersionZero) {
  NOXPBlob command("LIST F");
  SelectListProt list = listOfA();
  expectTravelsAs(RemoteExecuteRequestProt(&command, &list),
                  "4C  49 00 00 00 DC  49 00 00 00 00"               // object, type 220, version 0
                  "6A 62 00 00 00 06 4C 49 53 54 20 46 3B 3B  3B");  // "command" LIST F
}

TEST(RemoteExecuteRequest, TravelsWithItsListInVersionOne) {
  NOXPBlob command("SAVE");
  SelectListProt list = listOfA();
  RemoteExecuteRequestProt request(&command, &list);
  request.setClassVersion(1);
  expectTravelsAs<SelectListProt>(request,
                                  "4C  49 00 00 00 DC  49 00 00 00 01"
                                  "6A 62 00 00 00 04 53 41 56 45 3B 3B"  // "command" SAVE
                                  "4C  49 00 00 01 94  49 00 00 00 00"   // list, type 404
                                  "49 00 00 00 00  49 00 00 00 01"       // "id" 0, "numKeys" 1
                                  "73 00 01 41 3B  49 00 00 00 00  3B"   // A, "hasRecords" 0
                                  "3B");
}

TEST(RemoteExecuteRequest, OmitsItsListInEveryOtherVersion) {
  NOXPBlob command("C");
  SelectListProt list = listOfA();
  RemoteExecuteRequestProt request(&command, &list);
  EXPECT_THAT(fieldsOf(request, 0), ElementsAre("blob command=43"));
  EXPECT_THAT(fieldsOf(request, 1), Contains("object selectList=type 404 version 0"));
  EXPECT_THAT(fieldsOf(request, 2), ElementsAre("blob command=43"));
  EXPECT_THAT(fieldsOf(request, 3), ElementsAre("blob command=43"));
  EXPECT_THAT(fieldsOf(request, 4294967295u), ElementsAre("blob command=43"));
}

TEST(RemoteExecuteRequest, KeepsTheVersionItWasSerializedWith) {
  RemoteExecuteRequestProt request;
  fieldsOf(request, 2);
  EXPECT_EQ(request.getSerializedVersion(), 2u);
  test::RecordingReader reader;
  request.serialize(reader, 1);
  EXPECT_EQ(request.getSerializedVersion(), 1u);
  EXPECT_THAT(reader.lines(), ElementsAre("blob command", "object selectList"));
}

TEST(RemoteExecuteRequest, IsAServerSideObjectOnlyWhenItOwnsItsFields) {
  NOXPBlob command("C");
  SelectListProt list;
  EXPECT_TRUE(RemoteExecuteRequestProt().isServerSide());
  EXPECT_FALSE(RemoteExecuteRequestProt(&command).isServerSide());
  EXPECT_FALSE(RemoteExecuteRequestProt(&command, &list).isServerSide());
  const RemoteExecuteRequestProt borrower(&command, &list);
  EXPECT_TRUE(RemoteExecuteRequestProt(borrower).isServerSide());
  RemoteExecuteRequestProt assigned(&command);
  assigned = borrower;
  EXPECT_TRUE(assigned.isServerSide());
}

TEST(RemoteExecuteRequest, BorrowsWhatItIsGiven) {
  NOXPBlob command("C");
  SelectListProt list;
  const RemoteExecuteRequestProt request(&command, &list);
  EXPECT_EQ(request.getCommand(), &command);
  EXPECT_EQ(request.getSelectList(), &list);
  EXPECT_EQ(RemoteExecuteRequestProt(&command).getSelectList(), nullptr);
}

TEST(RemoteExecuteRequest, WritesAMissingListAsTheNullObject) {
  NOXPBlob command("C");
  RemoteExecuteRequestProt request(&command);
  request.setClassVersion(1);
  const std::string withNull =
      "4C  49 00 00 00 DC  49 00 00 00 01"
      "6A 62 00 00 00 01 43 3B 3B  4C 49 00 00 00 01 3B  3B";
  EXPECT_BYTES(test::frameOf(request), framed(bytes(withNull)));

  // The reader's request keeps its own empty list: null and no list are one.
  Lists factory;
  const auto read = readAs<RemoteExecuteRequestProt>(framed(bytes(withNull)), factory);
  ASSERT_NE(read, nullptr);
  ASSERT_NE(read->getSelectList(), nullptr);
  EXPECT_EQ(read->getSelectList()->getId(), -1);
}

TEST(RemoteExecuteRequest, TakesANullCommandAsAnEmptyOne) {
  NOXPBlob* none = nullptr;
  RemoteExecuteRequestProt request(none);
  ASSERT_NE(request.getCommand(), nullptr);
  EXPECT_EQ(request.getCommand()->length(), 0u);
  EXPECT_EQ(RemoteExecuteRequestProt(none, nullptr).getCommand()->length(), 0u);
}

TEST(RemoteExecuteRequest, ReadsIntoABorrowedRequestWithoutAList) {
  NOXPBlob command("old");
  RemoteExecuteRequestProt request(&command);
  const std::string data = bytes(
      "6A 62 00 00 00 01 43 3B 3B  4C 49 00 00 01 94 49 00 00 00 00"
      "49 FF FF FF FF  3B");
  MemoryBufferInputStream input(data.data(), data.size());
  Lists factory;
  BinaryReader reader(&factory, &input);
  request.serialize(reader, 1);
  EXPECT_EQ(contentOf(&command), "C");
  ASSERT_NE(request.getSelectList(), nullptr);
  EXPECT_EQ(request.getSelectList()->getId(), -1);
}

TEST(RemoteExecuteRequest, CopiesDeeplyWhateverItBorrows) {
  auto command = std::make_unique<NOXPBlob>("C");
  auto list = std::make_unique<SelectListProt>(listOfA());
  auto original = std::make_unique<RemoteExecuteRequestProt>(command.get(), list.get());
  original->setClassVersion(1);
  expectCopies(*original);

  RemoteExecuteRequestProt copy(*original);
  NOXPBlob ownCommand("own");
  SelectListProt ownList;
  RemoteExecuteRequestProt assigned(&ownCommand, &ownList);
  assigned = *original;
  EXPECT_NE(copy.getCommand(), command.get());
  EXPECT_NE(copy.getSelectList(), list.get());
  original.reset();
  command.reset();
  list.reset();
  const auto fields =
      ElementsAre("blob command=43", "object selectList=type 404 version 0", "int id=0",
                  "int numKeys=1", "text -=A", "int hasRecords=0", "end");
  EXPECT_THAT(fieldsOf(copy, 1), fields);
  EXPECT_THAT(fieldsOf(assigned, 1), fields);
  EXPECT_EQ(contentOf(&ownCommand), "own");
}

TEST(RemoteExecuteRequest, GoesOnBorrowingWhenAssignedToItself) {
  NOXPBlob command("C");
  SelectListProt list;
  RemoteExecuteRequestProt request(&command, &list);
  const RemoteExecuteRequestProt& itself = request;
  request = itself;
  EXPECT_EQ(request.getCommand(), &command);
  EXPECT_EQ(request.getSelectList(), &list);
  EXPECT_FALSE(request.isServerSide());
}

TEST(RemoteExecuteRequest, RefusesAnotherObjectAsItsList) {
  test::Classes<RemoteExecuteRequestProt, SelectListProt, SelectListProt5> factory;
  // Requests nested in requests end at the first one: only a list is read there.
  const auto error = test::caught<UnexpectedType>([&] {
    test::readFrame(framed(bytes("4C  49 00 00 00 DC  49 00 00 00 01  6A 62 00 00 00 00 3B 3B"
                                 "4C  49 00 00 00 DC  49 00 00 00 01  6A 62 00 00 00 00 3B 3B"
                                 "4C 49 00 00 00 01 3B  3B  3B")),
                    factory);
  });
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->getActualType(), 220);
  EXPECT_EQ(error->getExpectedType(), 404);
}

TEST(RemoteExecuteRequest, SaysWhenItEndsBeforeItsListDoes) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build writes no log lines";
  EXPECT_THAT(logged([] { RemoteExecuteRequestProt request; }),
              ElementsAre("RemoteExecuteRequestProt::~RemoteExecuteRequestProt()",
                          "SelectListProt::~SelectListProt() [id = -1]"));
}

/// A list of one value, "v" of type 1; the caller's.
ParameterListProt* oneParameter() {
  auto list = std::make_unique<ACEBinaryFormatParameterListProt>(1);
  list->setString(0, "v", 1);
  return list.release();
}

// "_subroutineName" S, "_parameters" of oneParameter().
constexpr char kSubroutineBody[] =
    "4C  49 00 00 00 D1  49 00 00 00 00"  // object, type 209, version 0
    "73 00 01 53 3B"                      // "_subroutineName" S
    "4C  49 00 00 00 67  49 00 00 00 00"  // "_parameters", type 103
    "49 00 00 00 01"                      // one slot
    "49 00 00 00 01  49 00 00 00 00"      // type 1, not null
    "6A 62 00 00 00 01 76 3B 3B  3B"      // v
    "3B";

TEST(RemoteSubroutineRequest, TravelsAsNameAndParameters) {
  NOXPString name("S");
  expectTravelsAs<ACEBinaryFormatParameterListProt>(
      RemoteSubroutineRequestProt(&name, oneParameter()), kSubroutineBody);
  expectTravelsAs<ACEBinaryFormatParameterListProt>(
      RemoteSubroutineRequestProt(),
      "4C  49 00 00 00 D1  49 00 00 00 00  73 00 00 3B"
      "4C  49 00 00 00 67  49 00 00 00 00  49 00 00 00 00  3B  3B");
}

TEST(RemoteSubroutineRequest, TravelsAlikeFromTheConstructorOfThreeArguments) {
  NOXPString name("S");
  RemoteSubroutineRequestProt request(&name, 42, oneParameter());
  EXPECT_BYTES(test::frameOf(request), framed(bytes(kSubroutineBody)));
  EXPECT_EQ(request.getThreeArguments(), 1);
  EXPECT_EQ(RemoteSubroutineRequestProt(request).getThreeArguments(), 1);
  EXPECT_EQ(RemoteSubroutineRequestProt(&name, oneParameter()).getThreeArguments(), 0);
  EXPECT_EQ(RemoteSubroutineRequestProt().getThreeArguments(), 0);
}

TEST(RemoteSubroutineRequest, NamesAndGivesItsFields) {
  NOXPString name("S");
  ParameterListProt* parameters = oneParameter();
  RemoteSubroutineRequestProt request(&name, parameters);
  EXPECT_THAT(fieldsOf(request),
              ElementsAre("string _subroutineName=S", "object _parameters=type 103 version 0",
                          "int -=1", "int -=1", "int -=0", "blob -=76", "end"));
  EXPECT_NE(request.getSubroutineName(), &name);
  EXPECT_STREQ(request.getSubroutineName()->c_str(), "S");
  EXPECT_EQ(request.getParameters(), parameters);
}

TEST(RemoteSubroutineRequest, WritesMissingParametersAsTheNullObject) {
  RemoteSubroutineRequestProt request(nullptr, nullptr);
  EXPECT_EQ(request.getParameters(), nullptr);
  EXPECT_THAT(fieldsOf(request), ElementsAre("string _subroutineName=", "object _parameters=null"));
  RemoteSubroutineRequestProt copy(request);
  EXPECT_EQ(copy.getParameters(), nullptr);

  test::RecordingReader reader;
  request.serialize(reader, 0);
  EXPECT_THAT(reader.lines(), ElementsAre("string _subroutineName", "object _parameters"));
  ASSERT_NE(request.getParameters(), nullptr);
  EXPECT_EQ(request.getParameters()->count(), 0u);
}

TEST(RemoteSubroutineRequest, CopiesDeeply) {
  NOXPString name("S");
  expectCopies(RemoteSubroutineRequestProt(&name, oneParameter()));
}

TEST(RemoteSubroutineRequest, CopiesAParameterWithoutValueAsOne) {
  auto list = std::make_unique<ACEBinaryFormatParameterListProt>(1);
  list->setNull(0, 5);
  RemoteSubroutineRequestProt request(nullptr, list.release());
  const RemoteSubroutineRequestProt copy(request);
  ASSERT_EQ(copy.getParameters()->count(), 1u);
  EXPECT_EQ(copy.getParameters()->getPtr(0), nullptr);
  EXPECT_EQ(copy.getParameters()->isNull(0), 1);
  EXPECT_EQ(copy.getParameters()->getParameterType(0), 5);
}

TEST(RemoteSubroutineRequest, ReadsACountThatItsBytesDoNotJustifyWithoutAllocatingForIt) {
  test::Classes<RemoteSubroutineRequestProt, ACEBinaryFormatParameterListProt> factory;
  const auto error = test::caught<UnexpectedChar>([&] {
    test::readFrame(framed(bytes("4C  49 00 00 00 D1  49 00 00 00 00  73 00 01 53 3B"
                                 "4C  49 00 00 00 67  49 00 00 00 00  49 7F FF FF FF  3B  3B")),
                    factory);
  });
  EXPECT_NE(error, nullptr);
}

TEST(RemoteSubroutineRequest, SaysWhenItEnds) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build writes no log lines";
  EXPECT_THAT(logged([] { RemoteSubroutineRequestProt request; }),
              ElementsAre("RemoteSubroutineRequestProt::~RemoteSubroutineRequestProt\n"));
}

TEST(RemoteInputRequest, TravelsAsInputData) {
  NOXPString data("yes");
  expectTravelsAs(RemoteInputRequestProt(&data),
                  "4C  49 00 00 00 D2  49 00 00 00 00  73 00 03 79 65 73 3B  3B");
  expectTravelsAs(RemoteInputRequestProt(), "4C  49 00 00 00 D2  49 00 00 00 00  73 00 00 3B  3B");
  RemoteInputRequestProt request(&data);
  EXPECT_THAT(fieldsOf(request), ElementsAre("string _inputData=yes"));
}

TEST(RemoteInputRequest, CopiesItsArguments) {
  NOXPString data("yes");
  RemoteInputRequestProt request(&data);
  data = "changed";
  EXPECT_STREQ(request.getInputData()->c_str(), "yes");
  expectCopies(request);
}

TEST(RemoteInputRequest, TakesThatManyBytesOfItsText) {
  RemoteInputRequestProt request("yes, all", 3);
  EXPECT_STREQ(request.getInputData()->c_str(), "yes");
  EXPECT_EQ(request.getInputData()->getType(), NOXPString::Narrow);
  RemoteInputRequestProt withNul("a\0b", 3);
  EXPECT_EQ(withNul.getInputData()->length(), 3u);
}

TEST(RemoteInputRequest, TakesNullAndNegativeLengthsAsEmpty) {
  const char* noText = nullptr;
  EXPECT_STREQ(RemoteInputRequestProt(nullptr).getInputData()->c_str(), "");
  EXPECT_STREQ(RemoteInputRequestProt(noText, 3).getInputData()->c_str(), "");
  EXPECT_STREQ(RemoteInputRequestProt("yes", 0).getInputData()->c_str(), "");
  EXPECT_STREQ(RemoteInputRequestProt("yes", -1).getInputData()->c_str(), "");
}

TEST(RemoteInputRequest, SaysNothingWhenItEnds) {
  EXPECT_THAT(logged([] { RemoteInputRequestProt request; }), IsEmpty());
}

}  // namespace
}  // namespace nox::noxp::remote
