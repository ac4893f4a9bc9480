#include "nox/protocol/remote/file_requests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <type_traits>

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

TEST(OpenFileRequest, TravelsAsFileName) {
  expectTravelsAs(OpenFileRequestProt("CUSTOMERS"),
                  "4C  49 00 00 00 CD  49 00 00 00 00"            // object, type 205, version 0
                  "73 00 09 43 55 53 54 4F 4D 45 52 53 3B  3B");  // "_fileName" CUSTOMERS
}

TEST(CloseFileRequest, TravelsAsFileName) {
  expectTravelsAs(CloseFileRequestProt("F"),
                  "4C  49 00 00 00 CE  49 00 00 00 00  73 00 01 46 3B  3B");
}

TEST(ClearFileRequest, TravelsAsFileName) {
  expectTravelsAs(ClearFileRequestProt("F"),
                  "4C  49 00 00 00 CF  49 00 00 00 00  73 00 01 46 3B  3B");
}

TEST(SelectFileRequest, TravelsAsFileName) {
  expectTravelsAs(SelectFileRequestProt("F"),
                  "4C  49 00 00 00 D0  49 00 00 00 00  73 00 01 46 3B  3B");
}

TEST(FileRequests, CarryAnEmptyNameByDefault) {
  const std::string emptyName = " 49 00 00 00 00  73 00 00 3B  3B";
  expectTravelsAs(OpenFileRequestProt(), "4C  49 00 00 00 CD" + emptyName);
  expectTravelsAs(CloseFileRequestProt(), "4C  49 00 00 00 CE" + emptyName);
  expectTravelsAs(ClearFileRequestProt(), "4C  49 00 00 00 CF" + emptyName);
  expectTravelsAs(SelectFileRequestProt(), "4C  49 00 00 00 D0" + emptyName);
  EXPECT_EQ(OpenFileRequestProt().getFileName()->getType(), NOXPString::Narrow);
}

TEST(FileRequests, NameTheirFieldWithAnUnderscoreExceptSelect) {
  OpenFileRequestProt open("F");
  CloseFileRequestProt close("F");
  ClearFileRequestProt clear("F");
  SelectFileRequestProt select("F");
  EXPECT_THAT(fieldsOf(open), ElementsAre("string _fileName=F"));
  EXPECT_THAT(fieldsOf(close), ElementsAre("string _fileName=F"));
  EXPECT_THAT(fieldsOf(clear), ElementsAre("string _fileName=F"));
  EXPECT_THAT(fieldsOf(select), ElementsAre("string fileName=F"));
}

TEST(FileRequests, CopyDeeply) {
  expectCopies(OpenFileRequestProt("F"));
  expectCopies(CloseFileRequestProt("F"));
  expectCopies(ClearFileRequestProt("F"));
  expectCopies(SelectFileRequestProt("F"));
}

TEST(FileRequests, CopyTheirArguments) {
  NOXPString name("ORDERS");
  OpenFileRequestProt open(&name);
  CloseFileRequestProt close(&name);
  ClearFileRequestProt clear(&name);
  name = "CHANGED";
  EXPECT_STREQ(open.getFileName()->c_str(), "ORDERS");
  EXPECT_STREQ(close.getFileName()->c_str(), "ORDERS");
  EXPECT_STREQ(clear.getFileName()->c_str(), "ORDERS");
}

TEST(FileRequests, TakeNullAsAnEmptyName) {
  const char* text = nullptr;
  NOXPString* name = nullptr;
  EXPECT_STREQ(OpenFileRequestProt(text).getFileName()->c_str(), "");
  EXPECT_STREQ(OpenFileRequestProt(name).getFileName()->c_str(), "");
  EXPECT_STREQ(CloseFileRequestProt(text).getFileName()->c_str(), "");
  EXPECT_STREQ(CloseFileRequestProt(name).getFileName()->c_str(), "");
  EXPECT_STREQ(ClearFileRequestProt(text).getFileName()->c_str(), "");
  EXPECT_STREQ(ClearFileRequestProt(name).getFileName()->c_str(), "");
  EXPECT_STREQ(SelectFileRequestProt(text).getFileName()->c_str(), "");
}

TEST(FileRequests, AreNoServerSideObjects) {
  EXPECT_FALSE(OpenFileRequestProt().isServerSide());
  EXPECT_FALSE(CloseFileRequestProt().isServerSide());
  EXPECT_FALSE(ClearFileRequestProt().isServerSide());
  EXPECT_FALSE(SelectFileRequestProt().isServerSide());
}

TEST(OpenFileRequest, IsCopiedFromAPointer) {
  auto original = std::make_unique<OpenFileRequestProt>("F");
  original->setClassVersion(3);
  OpenFileRequestProt copy(original.get());
  original.reset();
  EXPECT_STREQ(copy.getFileName()->c_str(), "F");
  EXPECT_EQ(copy.getClassVersion(), 3);

  const OpenFileRequestProt* nothing = nullptr;
  EXPECT_STREQ(OpenFileRequestProt(nothing).getFileName()->c_str(), "");
  EXPECT_FALSE((std::is_convertible_v<OpenFileRequestProt*, OpenFileRequestProt>));
}

TEST(SelectFileRequest, KeepsTheVersionItWasSerializedWith) {
  SelectFileRequestProt written("F");
  EXPECT_EQ(written.getSerializedVersion(), 0u);
  test::RecordingWriter writer;
  written.serialize(writer, 7);
  EXPECT_EQ(written.getSerializedVersion(), 7u);

  SelectFileRequestProt read;
  test::RecordingReader reader;
  read.serialize(reader, 4294967295u);
  EXPECT_EQ(read.getSerializedVersion(), 4294967295u);
}

TEST(SelectFileRequest, ReadFromAFrameKeepsTheClientsVersion) {
  test::Classes<SelectFileRequestProt> factory;
  const auto read = test::readAs<SelectFileRequestProt>(
      test::framed(test::bytes("4C 49 00 00 00 D0  49 00 00 00 05  73 00 01 46 3B  3B")), factory);
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(read->getSerializedVersion(), 5u);
  EXPECT_EQ(SelectFileRequestProt(*read).getSerializedVersion(), 5u);
}

TEST(OtherFileRequests, DoNotKeepTheVersion) {
  OpenFileRequestProt request("F");
  test::RecordingWriter writer;
  request.serialize(writer, 7);
  EXPECT_EQ(request.getSerializedVersion(), 0u);
}

TEST(OpenFileRequest, TracesItsNameBeforeAndAfter) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build writes no log lines";
  OpenFileRequestProt request("GET /%s%n");
  std::ostringstream out;
  out << "OpenFileRequestProt::serialize(this = " << static_cast<const void*>(&request)
      << "): _fileName='GET /%s%n'";
  EXPECT_THAT(logged([&] { fieldsOf(request); }),
              ElementsAre("=> " + out.str(), "<= " + out.str()));
}

/// Reads every string as "NEW".
class RenamingReader : public test::RecordingReader {
public:
  using test::RecordingReader::process;
  Archive& process(NOXPString* value, const char* /*name*/) override {
    *value = "NEW";
    return *this;
  }
};

TEST(OpenFileRequest, TracesTheNameItHeldBeforeARead) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build writes no log lines";
  OpenFileRequestProt request("OLD");
  RenamingReader reader;
  std::ostringstream out;
  out << "OpenFileRequestProt::serialize(this = " << static_cast<const void*>(&request)
      << "): _fileName='";
  EXPECT_THAT(logged([&] { request.serialize(reader, 0); }),
              ElementsAre("=> " + out.str() + "OLD'", "<= " + out.str() + "NEW'"));
}

TEST(FileRequests, SayWhenTheyEnd) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build writes no log lines";
  EXPECT_THAT(logged([] { OpenFileRequestProt request; }),
              ElementsAre("OpenFileRequestProt::~OpenFileRequestProt\n"));
  EXPECT_THAT(logged([] { CloseFileRequestProt request; }),
              ElementsAre("CloseFileRequestProt::~CloseFileRequestProt\n"));
  EXPECT_THAT(logged([] { SelectFileRequestProt request; }),
              ElementsAre("SelectFileRequestProt::~SelectFileRequestProt\n"));
}

TEST(ClearFileRequest, NamesAnotherClassWhenItEnds) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build writes no log lines";
  EXPECT_THAT(logged([] { ClearFileRequestProt request; }),
              ElementsAre("ClearFileRequestProt::~CloseFileRequestProt\n"));
}

}  // namespace
}  // namespace nox::noxp::remote
