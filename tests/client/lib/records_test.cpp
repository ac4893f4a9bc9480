// What files ask for records, and what they make of the answers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "nox/client/file.h"
#include "tests/client/lib/recorder.h"

namespace nox::client {
namespace {

using noxp::remote::ToviResponseProt;
using testing::ElementsAre;
using testing::IsEmpty;

class Records : public test::RecordedSession {
protected:
  Records() : file_(connection_.file("PERSON")) { asked(); }

  void replyStatus(int status) { reply<ToviResponseProt>(status, nullptr, nullptr); }
  void replyRecord(const char* body) { reply<ToviResponseProt>(0, new NOXPBlob(body), nullptr); }

  static Error errorOf(const std::function<void()>& action) {
    try {
      action();
    } catch (const Error& error) {
      return error;
    }
    ADD_FAILURE() << "nothing was thrown";
    return Error("00000", "", Outcome::Unknown);
  }

  File file_;
};

TEST_F(Records, AreReadWithoutALock) {
  replyRecord("SMITH\xFEOslo");
  const std::optional<Record> record = file_.read("4711");
  ASSERT_TRUE(record);
  EXPECT_EQ(record->value(2), "Oslo");
  EXPECT_THAT(asked(), ElementsAre("Read 0 PERSON/4711"));
}

TEST_F(Records, AreNothingWhereTheyAreNot) {
  replyStatus(1);
  EXPECT_FALSE(file_.read("4711"));
}

TEST_F(Records, MayBeEmpty) {
  replyRecord("");
  const std::optional<Record> record = file_.read("4711");
  ASSERT_TRUE(record);
  EXPECT_TRUE(record->empty());
}

TEST_F(Records, KeepEveryByteOnTheWay) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  reply<ToviResponseProt>(0, new NOXPBlob(all.data(), all.size()), nullptr);
  EXPECT_EQ(file_.read("1")->bytes(), all);
  replyStatus(0);
  file_.write("1", Record(all));
  EXPECT_EQ(asked().back(), "Write 0 PERSON/1=" + all);
}

TEST_F(Records, AreLockedAsTheyAreRead) {
  for (int i = 0; i < 4; ++i) replyRecord("x");
  EXPECT_TRUE(file_.read("1", Lock::Shared));
  EXPECT_TRUE(file_.read("2", Lock::Update));
  EXPECT_TRUE(file_.read("3", Lock::Shared, Wait::No));
  EXPECT_TRUE(file_.read("4", Lock::Update, Wait::No));
  EXPECT_THAT(asked(), ElementsAre("Read 1 PERSON/1", "Read 2 PERSON/2", "Read 5 PERSON/3",
                                   "Read 6 PERSON/4"));
}

TEST_F(Records, SayWhetherTheyAreThereOrLocked) {
  replyStatus(1);
  replyStatus(2);
  EXPECT_EQ(file_.read("1", Lock::Update).status, Status::NotDone);
  EXPECT_EQ(file_.read("1", Lock::Update).status, Status::Locked);
}

TEST_F(Records, AreWrittenInThreeWays) {
  for (int i = 0; i < 3; ++i) replyStatus(0);
  file_.write("1", Record{"a", "b"});
  file_.writeAndKeepLock("2", Record{"c"});
  EXPECT_TRUE(file_.writeNew("3", Record()));
  EXPECT_THAT(asked(), ElementsAre("Write 0 PERSON/1=a\xFE"
                                   "b",
                                   "Write 1 PERSON/2=c", "Write 2 PERSON/3="));
}

TEST_F(Records, AreNotWrittenAsNewTwice) {
  replyStatus(1);
  EXPECT_FALSE(file_.writeNew("3", Record{"x"}));
}

TEST_F(Records, ThrowWhereSomebodyElseHasLockedThem) {
  for (int i = 0; i < 3; ++i) replyStatus(2);
  const Error error = errorOf([&] { file_.write("1", Record{"x"}); });
  EXPECT_EQ(error.sqlState(), sqlstate::kLocked);
  EXPECT_EQ(error.outcome(), Outcome::Rejected);
  EXPECT_EQ(error.message(), "another session has locked record \"1\" of PERSON");
  EXPECT_EQ(errorOf([&] { file_.remove("1"); }).sqlState(), sqlstate::kLocked);
  EXPECT_EQ(errorOf([&] { file_.writeAndKeepLock("1", Record()); }).sqlState(), sqlstate::kLocked);
  EXPECT_TRUE(connection_.isUsable());
}

TEST_F(Records, SayThatTheyAreLockedWhereTheyAreOnlyTried) {
  replyStatus(2);
  replyStatus(2);
  EXPECT_EQ(file_.tryWrite("1", Record{"x"}), Status::Locked);
  EXPECT_EQ(file_.tryRemove("1"), Status::Locked);
}

TEST_F(Records, AreDeletedAndLookedFor) {
  replyStatus(0);
  replyStatus(1);
  replyStatus(0);
  replyStatus(1);
  EXPECT_TRUE(file_.remove("1"));
  EXPECT_FALSE(file_.remove("1"));
  EXPECT_TRUE(file_.exists("2"));
  EXPECT_FALSE(file_.exists("1"));
  EXPECT_THAT(asked(), ElementsAre("Delete PERSON/1", "Delete PERSON/1", "Exists PERSON/2",
                                   "Exists PERSON/1"));
}

TEST_F(Records, AreReleasedOneByOneByFileAndAltogether) {
  file_.release("1");
  file_.releaseAll();
  connection_.releaseLocks();
  EXPECT_THAT(asked(), ElementsAre("Release 0 PERSON/1", "Release 1 PERSON/", "Release 2 /"));
}

TEST_F(Records, AreClearedWithTheirFile) {
  file_.clear();
  EXPECT_THAT(asked(), ElementsAre("Clear PERSON"));
}

TEST_F(Records, HaveIdsInUtf8) {
  replyStatus(0);
  file_.write("Ünï-漢", Record{"x"});
  EXPECT_THAT(asked(), ElementsAre("Write 0 PERSON/Ünï-漢=x"));
}

TEST_F(Records, CannotHaveAnIdWithANul) {
  EXPECT_EQ(errorOf([&] { file_.read(std::string_view("a\0b", 3)); }).message(),
            "the record's id has a NUL, which cannot travel");
  EXPECT_TRUE(asked().empty());
}

TEST_F(Records, FilesAreOpenedAndClosed) {
  {
    File dictionary = connection_.file("DICT PERSON");
    EXPECT_EQ(dictionary.name(), "DICT PERSON");
  }
  EXPECT_THAT(asked(), ElementsAre("Open DICT PERSON", "Close DICT PERSON"));
}

TEST_F(Records, FilesAreClosedOnce) {
  File first = connection_.file("A");
  File second = connection_.file("B");
  second = std::move(first);
  second.close();
  second.close();
  EXPECT_THAT(asked(), ElementsAre("Open A", "Open B", "Close B", "Close A"));
  first.close();
  EXPECT_THAT(asked(), IsEmpty());
  EXPECT_EQ(errorOf([&] { second.exists("1"); }).message(), "the file was closed");
}

TEST_F(Records, FilesStayWhereTheyAreAssignedToThemselves) {
  File file = connection_.file("A");
  File& same = file;
  file = std::move(same);
  EXPECT_EQ(file.name(), "A");
  EXPECT_THAT(asked(), ElementsAre("Open A"));
}

TEST_F(Records, ManyFilesMayCloseWithoutAnAnswerInBetween) {
  std::vector<File> files;
  for (int i = 0; i < 200; ++i) files.push_back(connection_.file("F" + std::to_string(i)));
  asked();
  files.clear();
  EXPECT_EQ(asked().size(), 200u);
}

}  // namespace
}  // namespace nox::client
