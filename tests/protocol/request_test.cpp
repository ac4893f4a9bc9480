#include "nox/protocol/request.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <memory>
#include <new>

#include "nox/protocol/status_replies.h"
#include "tests/support/log_capture.h"

namespace {

bool noMemory = false;

}  // namespace

// The library's own allocations of replies come through here.
void* operator new(std::size_t n, const std::nothrow_t&) noexcept {
  if (noMemory) return nullptr;
  try {
    return ::operator new(n);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

namespace nox {
namespace {

using ::testing::ElementsAre;

// What a request handler sees of the base.
class Handler : public noxp::DummyRequestProt {
public:
  using RequestProt::error;
  using RequestProt::OK;
  using RequestProt::serializedVersion;
  using RequestProt::serverSide;
};

/// Class, subclass and message of the error in a reply, which it deletes.
std::string errorIn(noxp::ResponseProt* reply) {
  const std::unique_ptr<noxp::ResponseProt> owned(reply);
  auto* error = dynamic_cast<ErrorResponseProt*>(reply);
  if (!error) return "no error reply";
  SQLExtError& content = *error->getError();
  return content.getSqlState().sqlClass + "/" + content.getSqlState().sqlSubClass + " " +
         content.getMsg();
}

TEST(Request, BelongsToTheSenderAndHasNoVersionAtFirst) {
  const Handler handler;
  EXPECT_FALSE(handler.isServerSide());
  EXPECT_EQ(handler.getSerializedVersion(), 0U);
}

TEST(Request, CopiesWhatItKnowsOfItself) {
  Handler handler;
  handler.serverSide = true;
  handler.serializedVersion = 3;
  handler.setClassVersion(2);
  const Handler copy(handler);
  EXPECT_TRUE(copy.isServerSide());
  EXPECT_EQ(copy.getSerializedVersion(), 3U);
  EXPECT_EQ(copy.getClassVersion(), 2);
}

TEST(Request, AnswersOk) {
  const std::unique_ptr<noxp::ResponseProt> reply(Handler().OK());
  EXPECT_NE(dynamic_cast<OKResponseProt*>(reply.get()), nullptr);
}

TEST(Request, AnswersWithAnError) {
  SQLExtError error("08", "004", "go away");
  EXPECT_EQ(errorIn(Handler().error(error)), "08/004 go away");
  EXPECT_EQ(errorIn(Handler().error(error, "file.cpp", 12)), "08/004 go away");
}

TEST(Request, AnswersWithTheCataloguesMessageOfACode) {
  EXPECT_EQ(errorIn(Handler().error("IE", "008")), "IE/008 An error occurred while reading file");
}

TEST(Request, AnswersWithATextAsAnInternalError) {
  std::string msg = "it broke";
  EXPECT_EQ(errorIn(Handler().error(msg)), "IE/000 it broke");
  EXPECT_EQ(msg, "it broke");
}

TEST(Request, AppendsAStatusToTheCataloguesMessage) {
  EXPECT_EQ(errorIn(Handler().error(19, "IE", "005")),
            "IE/005 An error occurred while opening the file (Status = 0x13)");
  EXPECT_EQ(SQLExtError("IE", "005").getMsg(), "An error occurred while opening the file");
}

TEST(Request, AppendsAStatusToATextAndToTheCallersString) {
  std::string msg = "Cannot open file";
  EXPECT_EQ(errorIn(Handler().error(19, msg)), "IE/000 Cannot open file (Status = 0x13)");
  EXPECT_EQ(msg, "Cannot open file (Status = 0x13)");
  EXPECT_EQ(errorIn(Handler().error(1, msg)),
            "IE/000 Cannot open file (Status = 0x13) (Status = 0x1)");
}

TEST(Request, WritesTheStatusAsUnsignedLowerCaseHexadecimal) {
  EXPECT_EQ(errorIn(Handler().error(255, "x")), "IE/000 x (Status = 0xff)");
  EXPECT_EQ(errorIn(Handler().error(0, "x")), "IE/000 x (Status = 0x0)");
  EXPECT_EQ(errorIn(Handler().error(-1, "x")), "IE/000 x (Status = 0xffffffff)");
  EXPECT_EQ(errorIn(Handler().error(INT_MIN, "x")), "IE/000 x (Status = 0x80000000)");
}

TEST(Request, TurnsMarksIntoTabsInTheReplyAlone) {
  std::string msg =
      "A\xFE"
      "B";
  EXPECT_EQ(errorIn(Handler().error(1, msg)), "IE/000 A\tB (Status = 0x1)");
  EXPECT_EQ(msg,
            "A\xFE"
            "B (Status = 0x1)");
}

TEST(Request, TakesNullTextsAsEmpty) {
  EXPECT_EQ(errorIn(Handler().error(2, static_cast<const char*>(nullptr))),
            "IE/000  (Status = 0x2)");
  EXPECT_EQ(errorIn(Handler().error(static_cast<const char*>(nullptr), nullptr)),
            "/ Unknown SQLSTATE");
}

TEST(Request, AnswersAnEmptyTextAsUnknownAndLeavesThatTextAlone) {
  std::string empty;
  EXPECT_EQ(errorIn(Handler().error(empty)), "IE/000 Unknown internal error");
  EXPECT_EQ(errorIn(Handler().error(7, "99", "999")), "99/999 Unknown SQLSTATE (Status = 0x7)");
  EXPECT_EQ(SQLExtError("99", "999").getMsg(), "Unknown SQLSTATE");
  EXPECT_EQ(SQLExtError("").getMsg(), "Unknown internal error");
}

TEST(Request, HasNoReplyWhenThereIsNoMemoryForIt) {
  Handler handler;
  SQLExtError error("22", "012");
  std::string msg = "x";
  noMemory = true;
  EXPECT_EQ(handler.OK(), nullptr);
  EXPECT_EQ(handler.error(error), nullptr);
  EXPECT_EQ(handler.error(error, "file.cpp", 1), nullptr);
  EXPECT_EQ(handler.error("22", "012"), nullptr);
  EXPECT_EQ(handler.error(msg), nullptr);
  EXPECT_EQ(handler.error(1, "22", "012"), nullptr);
  EXPECT_EQ(handler.error(1, msg), nullptr);
  EXPECT_EQ(handler.error(1, "x"), nullptr);
  noMemory = false;
}

TEST(Request, SaysInTheLogWhichAnswerItGave) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build discards log lines";
  SQLExtError error("22", "012");
  std::string msg = "m";
  test::LogCapture log;
  errorIn(Handler().error(error));
  errorIn(Handler().error(error, "file.cpp", 12));
  errorIn(Handler().error("22", "012"));
  errorIn(Handler().error(msg));
  errorIn(Handler().error(1, "22", "012"));
  errorIn(Handler().error(2, msg));
  errorIn(Handler().error(3, "n"));
  EXPECT_THAT(log.texts(nox::error),
              ElementsAre(" Division by zero", "Division by zerofile.cpp12",
                          "Division by zeroRequestProt75", "mRequestProt125",
                          "Division by zero (Status = 0x1)RequestProt106",
                          "m (Status = 0x2)RequestProt152", "n (Status = 0x3)RequestProt152"));
}

}  // namespace
}  // namespace nox
