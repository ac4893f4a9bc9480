// Records of select lists that hold fewer of them than keys, as a peer can send them.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "nox/protocol/remote/select_list.h"
#include "tests/support/contents.h"
#include "tests/support/frames.h"
#include "tests/support/messages.h"

namespace nox::noxp::remote {
namespace {

using test::bytes;
using test::contentOf;
using test::framed;

/// Three keys and two records, "one" and "two".
std::unique_ptr<SelectListProt> listShortOfARecord() {
  test::Classes<SelectListProt> factory;
  return test::readAs<SelectListProt>(
      framed(bytes("4C  49 00 00 01 94  49 00 00 00 00"
                   "49 00 00 00 05"
                   "49 00 00 00 03  73 00 01 61 3B  73 00 01 62 3B  73 00 01 63 3B"
                   "49 00 00 00 01"
                   "49 00 00 00 02  6A 62 00 00 00 03 6F 6E 65 3B 3B"
                   "                6A 62 00 00 00 03 74 77 6F 3B 3B"
                   "49 00 00 00 00"
                   "3B")),
      factory);
}

TEST(SelectListRecords, SettingTheRecordThatIsThereMarksItAndForgetsTheOthers) {
  const auto list = listShortOfARecord();
  ASSERT_NE(list, nullptr);
  list->goToPosition(1);
  NOXPBlob* const record = list->getRecord();
  list->setRecord(record);
  EXPECT_EQ(list->getRecord(), record);
  EXPECT_EQ(contentOf(record), "one");
  EXPECT_TRUE(list->isModified());
  list->goToPosition(2);
  EXPECT_EQ(list->getRecord(), nullptr);
  EXPECT_FALSE(list->isModified());
}

TEST(SelectListRecords, ARecordThatTheListForgotCanBeSetAgain) {
  const auto list = listShortOfARecord();
  ASSERT_NE(list, nullptr);
  list->goToPosition(2);
  NOXPBlob* const second = list->getRecord();
  list->goToPosition(1);
  list->setRecord(new NOXPBlob("new"));
  list->goToPosition(2);
  list->setRecord(second);
  EXPECT_EQ(list->getRecord(), second);
  // The list holds it once: it is handed over as it is.
  const std::unique_ptr<NOXPBlob> extracted(list->extractRecord());
  EXPECT_EQ(extracted.get(), second);
  EXPECT_EQ(contentOf(second), "two");
}

TEST(SelectListRecords, ARecordThatACopyHoldsToStaysThereWhenItIsForgottenAndSetAgain) {
  auto list = listShortOfARecord();
  ASSERT_NE(list, nullptr);
  SelectListProt copy(*list);
  list->goToPosition(1);
  list->setRecord(list->getRecord());
  const NOXPBlob* const record = list->getRecord();
  list.reset();
  copy.goToPosition(1);
  EXPECT_EQ(copy.getRecord(), record);
  EXPECT_EQ(contentOf(copy.getRecord()), "one");
}

}  // namespace
}  // namespace nox::noxp::remote
