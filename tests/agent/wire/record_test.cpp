// Requests about records as noxd answers them: 201 to 204, and 221.
#include <gtest/gtest.h>

#include <ctime>
#include <memory>
#include <string>

#include "tests/agent/wire/shared_noxd.h"
#include "tests/support/frames.h"

namespace nox::agent::test {
namespace {

using namespace noxp::remote;
using nox::test::frameOf;

class WireRecords : public SharedNoxd {
protected:
  /// The frame that answers `request`.
  static std::string answerTo(noxp::RequestProt&& request) {
    ann().send(request);
    return ann().receiveFrame();
  }
};

TEST_F(WireRecords, WhatIsWrittenIsRead) {
  const std::string body("attribute\xFEvalue\xFDvalue\xFCsub\0[];", 30);
  EXPECT_EQ(ann().write(file(), "K", body), "0");
  EXPECT_EQ(ann().read(file(), "K"), "0 '" + body + "'");
  EXPECT_EQ(bob().read(file(), "K"), "0 '" + body + "'");
}

TEST_F(WireRecords, ARecordTravelsBesideANullList) {
  ann().write(file(), "K", "body");
  EXPECT_EQ(answerTo(ReadRecordRequestProt(0, file(), "K")),
            frameOf(ToviResponseProt(0, new NOXPBlob("body"))));
}

TEST_F(WireRecords, AnEmptyRecordIsNotANullOne) {
  ann().write(file(), "K", "");
  EXPECT_EQ(answerTo(ReadRecordRequestProt(0, file(), "K")),
            frameOf(ToviResponseProt(0, new NOXPBlob(""))));
}

TEST_F(WireRecords, WhereThereIsNothingToReadBothAreNull) {
  const std::string notThere = frameOf(ToviResponseProt(1, nullptr));
  EXPECT_EQ(answerTo(ReadRecordRequestProt(0, file(), "K")), notThere);
  EXPECT_EQ(answerTo(ExistsRecordRequestProt(file(), "K")), notThere);
  EXPECT_EQ(answerTo(DeleteRecordRequestProt(file(), "K")), notThere);
  bob().read(file(), "K", kUpdate);
  EXPECT_EQ(answerTo(ReadRecordRequestProt(kUpdate, file(), "K")),
            frameOf(ToviResponseProt(2, nullptr)));
}

TEST_F(WireRecords, WhatIsDoneIsAnsweredWithoutARecord) {
  const std::string done = frameOf(ToviResponseProt(0, nullptr));
  EXPECT_EQ(answerTo(WriteRecordRequestProt(0, file(), "K", "body")), done);
  EXPECT_EQ(answerTo(ExistsRecordRequestProt(file(), "K")), done);
  EXPECT_EQ(answerTo(DeleteRecordRequestProt(file(), "K")), done);
}

TEST_F(WireRecords, ReadingSaysWhetherARecordIsThere) {
  EXPECT_EQ(ann().read(file(), "K"), "1");
  EXPECT_EQ(ann().exists(file(), "K"), "1");
  ann().write(file(), "K", "x");
  EXPECT_EQ(ann().exists(file(), "K"), "0");
}

TEST_F(WireRecords, WritingReplaces) {
  ann().write(file(), "K", "long body");
  EXPECT_EQ(bob().write(file(), "K", "x"), "0");
  EXPECT_EQ(ann().read(file(), "K"), "0 'x'");
}

TEST_F(WireRecords, WritingOnlyNewOnesLeavesOthersAlone) {
  EXPECT_EQ(ann().write(file(), "K", "first", kOnlyNew), "0");
  EXPECT_EQ(bob().write(file(), "K", "second", kOnlyNew), "1");
  EXPECT_EQ(ann().read(file(), "K"), "0 'first'");
}

TEST_F(WireRecords, DeletingSaysWhetherTheRecordWasThere) {
  ann().write(file(), "K", "x");
  EXPECT_EQ(ann().remove(file(), "K"), "0");
  EXPECT_EQ(ann().remove(file(), "K"), "1");
  EXPECT_EQ(bob().read(file(), "K"), "1");
}

TEST_F(WireRecords, WhatAnotherHasLockedIsAStatus) {
  ann().read(file(), "K", kUpdate);
  EXPECT_EQ(bob().read(file(), "K", kShared), "2");
  EXPECT_EQ(bob().write(file(), "K", "x"), "2");
  EXPECT_EQ(bob().write(file(), "K", "x", kKeep), "2");
  EXPECT_EQ(bob().write(file(), "K", "x", kOnlyNew), "2");
  EXPECT_EQ(bob().remove(file(), "K"), "2");
  EXPECT_EQ(bob().read(file(), "K"), "1");
  EXPECT_EQ(bob().exists(file(), "K"), "1");
}

TEST_F(WireRecords, AMissingFileHasACodePerRequest) {
  EXPECT_EQ(ann().read("NONE", "K"), "IE/008");
  EXPECT_EQ(ann().exists("NONE", "K"), "IE/008");
  EXPECT_EQ(ann().write("NONE", "K", "x"), "IE/009");
  EXPECT_EQ(ann().remove("NONE", "K"), "IE/010");
  EXPECT_EQ(ann().read("", "K"), "IE/008");
  EXPECT_EQ(ann().write("no name", "K", "x"), "IE/009");
  EXPECT_EQ(ann().remove("../users", "K"), "IE/010");
}

TEST_F(WireRecords, TheMessageSaysWhatIsWrong) {
  ReadRecordRequestProt request(0, "NONE", "K");
  EXPECT_EQ(messageOf(*ann().ask(request)),
            "An error occurred while reading file: there is no file NONE");
}

TEST_F(WireRecords, IdsAreUtf8TextWithoutMarks) {
  EXPECT_EQ(ann().write(file(), "\xE2\x82\xAC", "euro"), "0");
  EXPECT_EQ(bob().read(file(), "\xE2\x82\xAC"), "0 'euro'");
  for (const char* id : {"", "\xFE", "a\xFF", "\xE2\x82", "\xF4\x90\x80\x80"}) {
    EXPECT_EQ(ann().read(file(), id), "22/021");
    EXPECT_EQ(ann().write(file(), id, "x"), "22/021");
    EXPECT_EQ(ann().remove(file(), id), "22/021");
    EXPECT_EQ(ann().exists(file(), id), "22/021");
  }
}

TEST_F(WireRecords, AnIdWithANulIsRefused) {
  std::string frame = frameOf(ReadRecordRequestProt(0, file(), "K?K"));
  frame[frame.find("K?K") + 1] = '\0';
  ann().sendBytes(frame);
  EXPECT_EQ(errorOf(*ann().receive()), "22/021");
}

TEST_F(WireRecords, IdsHaveAtMost255Bytes) {
  EXPECT_EQ(ann().write(file(), std::string(255, 'k').c_str(), "x"), "0");
  EXPECT_EQ(ann().read(file(), std::string(255, 'k').c_str()), "0 'x'");
  EXPECT_EQ(ann().write(file(), std::string(256, 'k').c_str(), "x"), "22/001");
  EXPECT_EQ(ann().read(file(), std::string(256, 'k').c_str()), "22/001");
}

TEST_F(WireRecords, RecordsHaveAtMost8MiB) {
  constexpr std::size_t kMost = 8u * 1024 * 1024;
  EXPECT_EQ(ann().write(file(), "K", std::string(kMost, 'x')), "0");
  EXPECT_EQ(bob().read(file(), "K"), "0 '" + std::string(kMost, 'x') + "'");
  EXPECT_EQ(ann().write(file(), "K", std::string(kMost + 1, 'x')), "22/001");
}

TEST_F(WireRecords, OtherModesAreRefused) {
  ann().write(file(), "K", "x");
  for (const int mode : {-1, 3, 7, 8}) EXPECT_EQ(ann().read(file(), "K", mode), "22/003") << mode;
  for (const int mode : {-1, 3, 4}) {
    EXPECT_EQ(ann().write(file(), "K", "y", mode), "22/003") << mode;
  }
  EXPECT_EQ(ann().read(file(), "K"), "0 'x'");
}

TEST_F(WireRecords, TheDictionaryHasRecordsOfItsOwn) {
  EXPECT_EQ(ann().write(dict().c_str(), "NAME",
                        "D\xFE"
                        "1"),
            "0");
  EXPECT_EQ(ann().exists(file(), "NAME"), "1");
  EXPECT_EQ(bob().exists(dict().c_str(), "NAME"), "0");
}

TEST_F(WireRecords, CommonsSayWhoAsksAndWhen) {
  EXPECT_EQ(ann().common("@USER"), "ann");
  EXPECT_EQ(ann().common("@ACCOUNT"), "MAIN");
  EXPECT_NE(ann().common("@SESSION"), bob().common("@SESSION"));
  // Day 0 is 31 December 1967, 732 days before the epoch of the system's clock.
  const long today = static_cast<long>(std::time(nullptr) / 86400) + 732;
  const long day = std::stol(ann().common("@DATE"));
  EXPECT_TRUE(day == today || day == today + 1) << day;
  EXPECT_LT(std::stol(ann().common("@TIME")), 86400);
  EXPECT_EQ(ann().common("@LAST"), "0");
  EXPECT_EQ(ann().common("NEVER SET"), "");
}

TEST_F(WireRecords, ACommonIsWhatASubroutineSet) {
  EXPECT_NE(ann().run("CREATE-FILE NOX.SUBS"), "IE/011");
  EXPECT_EQ(ann().write("NOX.SUBS", "SETS", "nox.common['COLOUR'] = 'red'"), "0");
  ann().run("RUN SETS");
  EXPECT_EQ(ann().common("COLOUR"), "red");
  EXPECT_EQ(bob().common("COLOUR"), "") << "each session has its own";
}

/// Who may read and not write.
TEST_F(WireRecords, AReaderChangesNothing) {
  noxd().addUser("rex", "may only look", {"MAIN=read"});
  Client rex(noxd().plainPort());
  ASSERT_EQ(rex.logIn("rex", "may only look"), "OK");
  ann().write(file(), "K", "x");
  EXPECT_EQ(rex.read(file(), "K", kShared), "0 'x'");
  EXPECT_EQ(rex.exists(file(), "K"), "0");
  EXPECT_EQ(rex.write(file(), "K", "y"), "42/000");
  EXPECT_EQ(rex.write(file(), "L", "y", kOnlyNew), "42/000");
  EXPECT_EQ(rex.remove(file(), "K"), "42/000");
  EXPECT_EQ(ann().read(file(), "K"), "0 'x'");
}

}  // namespace
}  // namespace nox::agent::test
