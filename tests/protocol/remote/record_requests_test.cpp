#include "nox/protocol/remote/record_requests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>

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
using test::frameOf;
using test::logged;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(ReadRecordRequest, TravelsAsModeFileNameRecordId) {
  EXPECT_BYTES(frameOf(ReadRecordRequestProt(2, "F", "R")),
               bytes("00 00 00 1D  5B"                     // 29 bytes from '[' through ']'
                     "4C  49 00 00 00 C9  49 00 00 00 00"  // object, type 201, class version 0
                     "49 00 00 00 02"                      // "readMode" 2
                     "73 00 01 46 3B"                      // "_fileName" F
                     "73 00 01 52 3B"                      // "_recordId" R
                     "3B  5D"));
  expectTravelsAs(ReadRecordRequestProt(-2, "CUSTOMERS", "1001"),
                  "4C  49 00 00 00 C9  49 00 00 00 00"
                  "49 FF FF FF FE"
                  "73 00 09 43 55 53 54 4F 4D 45 52 53 3B"
                  "73 00 04 31 30 30 31 3B  3B");
}

TEST(ReadRecordRequest, CarriesZeroAndEmptyTextsByDefault) {
  expectTravelsAs(ReadRecordRequestProt(),
                  "4C  49 00 00 00 C9  49 00 00 00 00"
                  "49 00 00 00 00  73 00 00 3B  73 00 00 3B  3B");
}

TEST(WriteRecordRequest, TravelsAsModeFileNameRecordIdRecord) {
  NOXPString file("F");
  NOXPString key("R");
  NOXPBlob record("a\0\xFE;]", 5);
  expectTravelsAs(WriteRecordRequestProt(7, &file, &key, &record),
                  "4C  49 00 00 00 CA  49 00 00 00 00"
                  "49 00 00 00 07"                          // "writeMode" 7
                  "73 00 01 46 3B"                          // "_fileName" F
                  "73 00 01 52 3B"                          // "_recordId" R
                  "6A 62 00 00 00 05 61 00 FE 3B 5D 3B 3B"  // "_record", any bytes
                  "3B");
}

TEST(WriteRecordRequest, SendsARecordOfZeroLengthAsAnEmptyBlob) {
  expectTravelsAs(WriteRecordRequestProt(0, "F", "R", ""),
                  "4C  49 00 00 00 CA  49 00 00 00 00"
                  "49 00 00 00 00  73 00 01 46 3B  73 00 01 52 3B  6A 62 00 00 00 00 3B 3B  3B");
  expectTravelsAs(WriteRecordRequestProt(),
                  "4C  49 00 00 00 CA  49 00 00 00 00"
                  "49 00 00 00 00  73 00 00 3B  73 00 00 3B  6A 62 00 00 00 00 3B 3B  3B");
}

TEST(WriteRecordRequest, TakesARecordTextUpToItsFirstNul) {
  WriteRecordRequestProt request(0, "F", "R", "ab\0cd");
  EXPECT_EQ(contentOf(request.getRecord()), "ab");
}

TEST(WriteRecordRequest, CannotBeCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<WriteRecordRequestProt>);
  EXPECT_FALSE(std::is_copy_assignable_v<WriteRecordRequestProt>);
}

TEST(DeleteRecordRequest, TravelsAsFileNameRecordId) {
  expectTravelsAs(DeleteRecordRequestProt("F", "R"),
                  "4C  49 00 00 00 CB  49 00 00 00 00  73 00 01 46 3B  73 00 01 52 3B  3B");
  expectTravelsAs(DeleteRecordRequestProt(),
                  "4C  49 00 00 00 CB  49 00 00 00 00  73 00 00 3B  73 00 00 3B  3B");
}

TEST(ExistsRecordRequest, TravelsAsFileNameRecordId) {
  expectTravelsAs(ExistsRecordRequestProt("F", "R"),
                  "4C  49 00 00 00 CC  49 00 00 00 00  73 00 01 46 3B  73 00 01 52 3B  3B");
  expectTravelsAs(ExistsRecordRequestProt(),
                  "4C  49 00 00 00 CC  49 00 00 00 00  73 00 00 3B  73 00 00 3B  3B");
}

TEST(ReleaseRecordLockRequest, TravelsAsModeFileNameRecordId) {
  expectTravelsAs(ReleaseRecordLockRequestProt(1, "F", "R"),
                  "4C  49 00 00 00 E1  49 00 00 00 00"
                  "49 00 00 00 01  73 00 01 46 3B  73 00 01 52 3B  3B");
  expectTravelsAs(ReleaseRecordLockRequestProt(),
                  "4C  49 00 00 00 E1  49 00 00 00 00"
                  "49 00 00 00 00  73 00 00 3B  73 00 00 3B  3B");
}

TEST(ReadCommonRequest, TravelsAsName) {
  expectTravelsAs(ReadCommonRequestProt("N"),
                  "4C  49 00 00 00 DD  49 00 00 00 00  73 00 01 4E 3B  3B");
  expectTravelsAs(ReadCommonRequestProt(), "4C  49 00 00 00 DD  49 00 00 00 00  73 00 00 3B  3B");
}

TEST(RecordRequests, NameTheirFields) {
  ReadRecordRequestProt read(1, "F", "R");
  EXPECT_THAT(fieldsOf(read),
              ElementsAre("int readMode=1", "string _fileName=F", "string _recordId=R"));
  WriteRecordRequestProt write(2, "F", "R", "AB");
  EXPECT_THAT(fieldsOf(write), ElementsAre("int writeMode=2", "string _fileName=F",
                                           "string _recordId=R", "blob _record=41 42"));
  DeleteRecordRequestProt remove("F", "R");
  EXPECT_THAT(fieldsOf(remove), ElementsAre("string _fileName=F", "string _recordId=R"));
  ExistsRecordRequestProt exists("F", "R");
  EXPECT_THAT(fieldsOf(exists), ElementsAre("string _fileName=F", "string _recordId=R"));
  ReadCommonRequestProt common("N");
  EXPECT_THAT(fieldsOf(common), ElementsAre("string _name=N"));
}

TEST(ReleaseRecordLockRequest, NamesItsModeUnlikeItsSiblings) {
  ReleaseRecordLockRequestProt request(3, "F", "R");
  EXPECT_THAT(fieldsOf(request),
              ElementsAre("int lockRequestProt=3", "string _fileName=F", "string _recordId=R"));
}

TEST(RecordRequests, GiveTheirFields) {
  ReadRecordRequestProt read(1, "F", "R");
  EXPECT_EQ(read.getReadMode(), 1);
  EXPECT_STREQ(read.getFileName()->c_str(), "F");
  EXPECT_STREQ(read.getRecordId()->c_str(), "R");
  WriteRecordRequestProt write(2, "F", "R", "body");
  EXPECT_EQ(write.getWriteMode(), 2);
  EXPECT_STREQ(write.getFileName()->c_str(), "F");
  EXPECT_STREQ(write.getRecordId()->c_str(), "R");
  EXPECT_EQ(contentOf(write.getRecord()), "body");
  DeleteRecordRequestProt remove("F", "R");
  EXPECT_STREQ(remove.getFileName()->c_str(), "F");
  EXPECT_STREQ(remove.getRecordId()->c_str(), "R");
  ExistsRecordRequestProt exists("F", "R");
  EXPECT_STREQ(exists.getFileName()->c_str(), "F");
  EXPECT_STREQ(exists.getRecordId()->c_str(), "R");
  ReleaseRecordLockRequestProt release(3, "F", "R");
  EXPECT_EQ(release.getLockMode(), 3);
  EXPECT_STREQ(release.getFileName()->c_str(), "F");
  EXPECT_STREQ(release.getRecordId()->c_str(), "R");
}

TEST(RecordRequests, CopyDeeply) {
  expectCopies(ReadRecordRequestProt(1, "F", "R"));
  expectCopies(DeleteRecordRequestProt("F", "R"));
  expectCopies(ExistsRecordRequestProt("F", "R"));
  expectCopies(ReleaseRecordLockRequestProt(1, "F", "R"));
  expectCopies(ReadCommonRequestProt("N"));
}

TEST(RecordRequests, CopyTheirArguments) {
  NOXPString file("F");
  NOXPString key("R");
  NOXPBlob record("body");
  ReadRecordRequestProt read(1, &file, &key);
  WriteRecordRequestProt write(2, &file, &key, &record);
  file = "changed";
  key = "changed";
  record.clear();
  EXPECT_STREQ(read.getFileName()->c_str(), "F");
  EXPECT_STREQ(read.getRecordId()->c_str(), "R");
  EXPECT_STREQ(write.getFileName()->c_str(), "F");
  EXPECT_STREQ(write.getRecordId()->c_str(), "R");
  EXPECT_EQ(contentOf(write.getRecord()), "body");
}

TEST(RecordRequests, TakeNullAsEmptyFields) {
  NOXPString* none = nullptr;
  NOXPBlob* noBlob = nullptr;
  const std::string empty = "73 00 00 3B  73 00 00 3B ";
  expectTravelsAs(ReadRecordRequestProt(1, none, none),
                  "4C  49 00 00 00 C9  49 00 00 00 00  49 00 00 00 01 " + empty + "3B");
  expectTravelsAs(ReadRecordRequestProt(1, nullptr, "R"),
                  "4C  49 00 00 00 C9  49 00 00 00 00  49 00 00 00 01"
                  "73 00 00 3B  73 00 01 52 3B  3B");
  expectTravelsAs(WriteRecordRequestProt(1, none, none, noBlob),
                  "4C  49 00 00 00 CA  49 00 00 00 00  49 00 00 00 01 " + empty +
                      "6A 62 00 00 00 00 3B 3B  3B");
  expectTravelsAs(DeleteRecordRequestProt(none, none),
                  "4C  49 00 00 00 CB  49 00 00 00 00 " + empty + "3B");
  expectTravelsAs(ExistsRecordRequestProt(none, none),
                  "4C  49 00 00 00 CC  49 00 00 00 00 " + empty + "3B");
  expectTravelsAs(ReadCommonRequestProt(none),
                  "4C  49 00 00 00 DD  49 00 00 00 00  73 00 00 3B  3B");
}

TEST(RecordRequests, ReadTheNullObjectAsAnEmptyField) {
  test::Classes<WriteRecordRequestProt> factory;
  const auto read = test::readAs<WriteRecordRequestProt>(
      test::framed(bytes("4C  49 00 00 00 CA  49 00 00 00 00  49 00 00 00 07"
                         "4C 49 00 00 00 01 3B"  // "_fileName" null
                         "4C 49 00 00 00 01 3B"  // "_recordId" null
                         "4C 49 00 00 00 01 3B"  // "_record" null
                         "3B")),
      factory);
  ASSERT_NE(read, nullptr);
  EXPECT_STREQ(read->getFileName()->c_str(), "");
  EXPECT_STREQ(read->getRecordId()->c_str(), "");
  EXPECT_EQ(read->getRecord()->length(), 0u);
}

TEST(ReadCommonRequest, IsCopiedFromAPointer) {
  auto original = std::make_unique<ReadCommonRequestProt>("N");
  ReadCommonRequestProt copy(original.get());
  original.reset();
  EXPECT_STREQ(copy.getName()->c_str(), "N");

  const ReadCommonRequestProt* nothing = nullptr;
  EXPECT_STREQ(ReadCommonRequestProt(nothing).getName()->c_str(), "");
  EXPECT_FALSE((std::is_convertible_v<ReadCommonRequestProt*, ReadCommonRequestProt>));
}

TEST(RecordRequests, SayWhenTheyEnd) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build writes no log lines";
  EXPECT_THAT(logged([] { ReadRecordRequestProt request; }),
              ElementsAre("ReadRecordRequestProt::~ReadRecordRequestProt\n"));
  EXPECT_THAT(logged([] { WriteRecordRequestProt request; }),
              ElementsAre("WriteRecordRequestProt::~WriteRecordRequestProt\n"));
  EXPECT_THAT(logged([] { DeleteRecordRequestProt request; }),
              ElementsAre("DeleteRecordRequestProt::~DeleteRecordRequestProt\n"));
  EXPECT_THAT(logged([] { ExistsRecordRequestProt request; }),
              ElementsAre("ExistsRecordRequestProt::~ExistsRecordRequestProt\n"));
  EXPECT_THAT(logged([] { ReleaseRecordLockRequestProt request; }),
              ElementsAre("ReleaseRecordLockRequestProt::~ReleaseRecordLockRequestProt\n"));
}

TEST(ReadCommonRequest, SaysNothingWhenItEnds) {
  EXPECT_THAT(logged([] { ReadCommonRequestProt request; }), IsEmpty());
}

}  // namespace
}  // namespace nox::noxp::remote
