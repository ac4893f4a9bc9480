#include "nox/protocol/parameter_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>

#include "nox/core/exceptions.h"
#include "tests/protocol/protocol_classes.h"
#include "tests/support/bytes.h"
#include "tests/support/caught.h"
#include "tests/support/contents.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording_archive.h"

namespace nox {
namespace {

using noxp::ACEBinaryFormatParameterListProt;
using noxp::ParameterListProt;
using test::bytes;
using test::caught;
using test::contentOf;
using test::expectSurvivesDamage;
using test::fieldsOf;
using test::framed;
using test::frameOf;
using test::readMessage;
using ::testing::ElementsAre;

// The address of a private member function may be named where a template is instantiated; this
// reaches the list's own rendering rule, which nothing in the library calls.
bool needsQuoting(ACEBinaryFormatParameterListProt& list, int i);
template <bool (ACEBinaryFormatParameterListProt::*Member)(int)>
struct Reach {
  friend bool needsQuoting(ACEBinaryFormatParameterListProt& list, int i) {
    return (list.*Member)(i);
  }
};
template struct Reach<&ACEBinaryFormatParameterListProt::needsQuoting>;

// A list of an application's own: slot i is of type 10 + i, every third slot holds no value.
class OtherList : public ParameterListProt {
public:
  explicit OtherList(unsigned int n = 0) : values_(n) {
    for (unsigned int i = 0; i < n; ++i)
      values_[i].append(static_cast<int>(i) % 2 ? "odd" : "even");
  }
  Serializable* create() override { return new OtherList; }
  Archive& serialize(Archive& ar, unsigned int) override { return ar; }
  unsigned int count() override { return static_cast<unsigned int>(values_.size()); }
  NOXPBlob* get(unsigned int i) override { return new NOXPBlob(values_[i]); }
  NOXPBlob* getPtr(unsigned int i) override { return i % 3 == 2 ? nullptr : &values_[i]; }
  int getParameterType(int i) override { return 10 + i; }
  int isNull(int i) override { return i % 3 == 2 ? 5 : 0; }

private:
  std::vector<NOXPBlob> values_;
};

TEST(ParameterList, TravelsAsCountThenTypeNullFlagAndValue) {
  ACEBinaryFormatParameterListProt list(2);
  list.setString(0, "AB", 108);
  list.setNull(1, 4);
  const std::string frame = bytes(
      "00 00 00 38  5B"
      "4C  49 00 00 00 67  49 00 00 00 00"                             // type 103, version 0
      "49 00 00 00 02"                                                 // 2 slots
      "49 00 00 00 6C  49 00 00 00 00  6A 62 00 00 00 02 41 42 3B 3B"  // 108, not null, AB
      "49 00 00 00 04  49 00 00 00 01  4C 49 00 00 00 01 3B"           // 4, null
      "3B  5D");
  EXPECT_BYTES(frameOf(list), frame);
  EXPECT_THAT(fieldsOf(list), ElementsAre("int -=2", "int -=108", "int -=0", "blob -=41 42",
                                          "int -=4", "int -=1", "blob -=null"));

  const auto read = readMessage<ACEBinaryFormatParameterListProt>(frame);
  ASSERT_TRUE(read);
  ASSERT_EQ(read->count(), 2U);
  EXPECT_EQ(read->getParameterType(0), 108);
  EXPECT_EQ(read->isNull(0), 0);
  EXPECT_EQ(contentOf(read->getPtr(0)), "AB");
  EXPECT_EQ(read->getParameterType(1), 4);
  EXPECT_EQ(read->isNull(1), 1);
  EXPECT_EQ(contentOf(read->getPtr(1)), "");
  expectSurvivesDamage(frame);
}

TEST(ParameterList, WritesANullThatItReadAsAnEmptyBlob) {
  ACEBinaryFormatParameterListProt list(1);
  list.setNull(0, 4);
  const auto read = test::roundTrip(list);
  ASSERT_TRUE(read);
  EXPECT_THAT(fieldsOf(*read), ElementsAre("int -=1", "int -=4", "int -=1", "blob -="));
}

TEST(ParameterList, OfNoParametersTravelsAsTheIntegerZero) {
  ACEBinaryFormatParameterListProt list;
  const std::string frame =
      bytes("00 00 00 13  5B  4C 49 00 00 00 67 49 00 00 00 00  49 00 00 00 00  3B  5D");
  EXPECT_BYTES(frameOf(list), frame);
  EXPECT_BYTES(frameOf(ACEBinaryFormatParameterListProt(0)), frame);
  const auto read = readMessage<ACEBinaryFormatParameterListProt>(frame);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->count(), 0U);
  expectSurvivesDamage(frame);
}

TEST(ParameterList, KeepsNullFlagsAsTheyWereSent) {
  const auto read = readMessage<ACEBinaryFormatParameterListProt>(
      framed(bytes("4C 49 00 00 00 67 49 00 00 00 00 49 00 00 00 01"
                   "49 FF FF FF FE 49 00 00 00 07 6A 62 00 00 00 01 41 3B 3B 3B")));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->getParameterType(0), -2);
  EXPECT_EQ(read->isNull(0), 7);
  EXPECT_EQ(contentOf(read->getPtr(0)), "A");
}

TEST(ParameterList, HasSlotsThatWereNeverSet) {
  ACEBinaryFormatParameterListProt list(2);
  ASSERT_EQ(list.count(), 2U);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(list.getPtr(static_cast<unsigned int>(i)), nullptr);
    EXPECT_EQ(list.getParameterType(i), -1);
    EXPECT_EQ(list.isNull(i), -1);
  }
  EXPECT_THAT(fieldsOf(list), ElementsAre("int -=2", "int -=-1", "int -=-1", "blob -=null",
                                          "int -=-1", "int -=-1", "blob -=null"));
}

TEST(ParameterList, ClaimingMoreSlotsThanItHasEndsAtTheFirstThatIsMissing) {
  const auto error = caught<UnexpectedChar>([] {
    readMessage<ACEBinaryFormatParameterListProt>(
        framed(bytes("4C 49 00 00 00 67 49 00 00 00 00 49 7F FF FF FF 3B")));
  });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->getChar(), ';');
  EXPECT_EQ(error->getExpectedChar(), 'I');
}

TEST(ParameterList, KeepsTheSlotsThatCameBeforeAReadFailed) {
  const std::string text = bytes(
      "00 00 00 00 5B 4C 49 00 00 00 67 49 00 00 00 00 49 7F FF FF FF"
      "49 00 00 00 01 49 00 00 00 00 6A 62 00 00 00 01 41 3B 3B 3B");
  ACEBinaryFormatParameterListProt list;
  MemoryBufferInputStream in(text.data() + 5, text.size() - 5);
  test::ProtocolClasses factory;
  BinaryReader reader(&factory, &in);
  EXPECT_TRUE(caught<UnexpectedChar>([&] { reader.readObject(&list); }));
  ASSERT_EQ(list.count(), 2U);
  EXPECT_EQ(contentOf(list.getPtr(0)), "A");
  EXPECT_EQ(contentOf(list.getPtr(1)), "");
}

TEST(ParameterList, OfANegativeCountIsEmpty) {
  ACEBinaryFormatParameterListProt made(-1);
  EXPECT_EQ(made.count(), 0U);
  const auto read = readMessage<ACEBinaryFormatParameterListProt>(
      framed(bytes("4C 49 00 00 00 67 49 00 00 00 00 49 FF FF FF FF 3B")));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->count(), 0U);
}

TEST(ParameterList, ReadAgainForgetsWhatItHeld) {
  ACEBinaryFormatParameterListProt list(2);
  list.setString(0, "old", 1);
  test::RecordingReader archive;
  archive.setInt(1);
  list.serialize(archive, 0);
  EXPECT_THAT(archive.lines(), ElementsAre("int -", "int -", "int -", "blob -"));
  ASSERT_EQ(list.count(), 1U);
  EXPECT_EQ(contentOf(list.getPtr(0)), "");
}

TEST(ParameterList, StoresStringsWithTheirNulBytes) {
  ACEBinaryFormatParameterListProt list(1);
  list.setString(0, std::string("A\0B", 3), 9);
  EXPECT_EQ(contentOf(list.getPtr(0)), std::string("A\0B", 3));
  EXPECT_EQ(list.isNull(0), 0);
  EXPECT_EQ(list.getParameterType(0), 9);
}

TEST(ParameterList, StoresWideStringsInTheProcessCodePage) {
  ACEBinaryFormatParameterListProt list(1);
  list.setStringW(0, L"caf\u00E9", 9);
  EXPECT_EQ(contentOf(list.getPtr(0)), "caf\xC3\xA9");
  list.setStringW(0, std::wstring(1, static_cast<wchar_t>(0x1F600)), 9);
  EXPECT_EQ(contentOf(list.getPtr(0)), "\xF0\x9F\x98\x80");
  list.setStringW(0, L"", 9);
  EXPECT_EQ(contentOf(list.getPtr(0)), "");
  EXPECT_EQ(list.isNull(0), 0);
}

TEST(ParameterList, StoresTheVeryBlobItIsGiven) {
  ACEBinaryFormatParameterListProt list(2);
  auto* blob = new NOXPBlob("A");
  list.setBlob(1, blob, 9);
  EXPECT_EQ(list.getPtr(1), blob);
  EXPECT_EQ(list[1], blob);
  EXPECT_EQ(list.isNull(1), 0);
  list.setBlob(1, nullptr, 8);
  EXPECT_EQ(list.getPtr(1), nullptr);
  EXPECT_EQ(list.isNull(1), 1);
  EXPECT_EQ(list.getParameterType(1), 8);
}

TEST(ParameterList, GivenTheBlobItHoldsChangesTypeAndFlagAlone) {
  ACEBinaryFormatParameterListProt list(1);
  list.setString(0, "A", 9);
  NOXPBlob* blob = list.getPtr(0);
  list.setBlob(0, blob, 10);
  EXPECT_EQ(list.getPtr(0), blob);
  EXPECT_EQ(contentOf(blob), "A");
  EXPECT_EQ(list.getParameterType(0), 10);
}

TEST(ParameterList, SetsSlotsToNullAndBack) {
  ACEBinaryFormatParameterListProt list(3);
  list.setNull(2, 6);
  EXPECT_EQ(list.getPtr(2), nullptr);
  EXPECT_EQ(list.isNull(2), 1);
  EXPECT_EQ(list.getParameterType(2), 6);
  list.setString(2, "A", 7);
  list.setString(2, "B", 7);
  EXPECT_EQ(contentOf(list.getPtr(2)), "B");
  EXPECT_EQ(list.isNull(2), 0);
}

TEST(ParameterList, GivesCopiesOfItsValues) {
  ACEBinaryFormatParameterListProt list(2);
  list.setString(0, "A", 9);
  const std::unique_ptr<NOXPBlob> value(list.get(0));
  EXPECT_NE(value.get(), list.getPtr(0));
  list.getPtr(0)->append("B");
  EXPECT_EQ(contentOf(value.get()), "A");
  EXPECT_EQ(list.get(1), nullptr);
}

TEST(ParameterList, ThrowsWhereASetterLeavesTheList) {
  ACEBinaryFormatParameterListProt list(2);
  list.setString(1, "A", 9);
  NOXPBlob blob("mine");
  for (const int i : {-1, 2, INT_MIN, INT_MAX}) {
    try {
      list.setBlob(i, &blob, 1);
      ADD_FAILURE() << "index " << i;
    } catch (const IndexOutOfBound& error) {
      EXPECT_STREQ(error.what(), "Parameter index out of bounds.");
    }
    EXPECT_THROW(list.setString(i, "x", 1), IndexOutOfBound);
    EXPECT_THROW(list.setStringW(i, L"x", 1), IndexOutOfBound);
    EXPECT_THROW(list.setNull(i, 1), IndexOutOfBound);
  }
  EXPECT_EQ(contentOf(&blob), "mine");
  EXPECT_EQ(contentOf(list.getPtr(1)), "A");
  EXPECT_EQ(list.getParameterType(1), 9);
  EXPECT_EQ(list.getParameterType(0), -1);
}

TEST(ParameterList, GivesNullAndMinusOneOutsideTheList) {
  ACEBinaryFormatParameterListProt list(1);
  list.setString(0, "A", 9);
  for (const unsigned int i : {1U, UINT_MAX}) {
    EXPECT_EQ(list.get(i), nullptr);
    EXPECT_EQ(list.getPtr(i), nullptr);
  }
  for (const int i : {-1, 1, INT_MIN, INT_MAX}) {
    EXPECT_EQ(list.getParameterType(i), -1);
    EXPECT_EQ(list.isNull(i), -1);
  }
}

TEST(ParameterList, CopiesDeeply) {
  ACEBinaryFormatParameterListProt list(3);
  list.setClassVersion(2);
  list.setString(0, "A", 9);
  list.setNull(1, 8);
  ACEBinaryFormatParameterListProt copy(list);
  ACEBinaryFormatParameterListProt fromPointer(&list);
  ACEBinaryFormatParameterListProt assigned(1);
  assigned.setString(0, "old", 1);
  assigned = list;
  ACEBinaryFormatParameterListProt pointerAssigned(1);
  pointerAssigned.setString(0, "old", 1);
  pointerAssigned = &list;
  list.getPtr(0)->append("B");
  for (auto* each : {&copy, &fromPointer, &assigned, &pointerAssigned}) {
    ASSERT_EQ(each->count(), 3U);
    EXPECT_EQ(contentOf(each->getPtr(0)), "A");
    EXPECT_EQ(each->getParameterType(0), 9);
    EXPECT_EQ(each->isNull(0), 0);
    EXPECT_EQ(each->getPtr(1), nullptr);
    EXPECT_EQ(each->isNull(1), 1);
    EXPECT_EQ(each->getPtr(2), nullptr);
    EXPECT_EQ(each->isNull(2), -1);
    EXPECT_EQ(each->getClassVersion(), 2);
  }
}

TEST(ParameterList, AssignedToItselfStaysAsItIs) {
  ACEBinaryFormatParameterListProt list(1);
  list.setString(0, "A", 9);
  NOXPBlob* blob = list.getPtr(0);
  list = *&list;
  list = &list;
  EXPECT_EQ(list.getPtr(0), blob);
  EXPECT_EQ(contentOf(blob), "A");
}

TEST(ParameterList, CopiedFromNullIsEmpty) {
  const ACEBinaryFormatParameterListProt* none = nullptr;
  ACEBinaryFormatParameterListProt copy(none);
  EXPECT_EQ(copy.count(), 0U);
  ACEBinaryFormatParameterListProt assigned(2);
  assigned.setString(0, "A", 9);
  assigned = none;
  EXPECT_EQ(assigned.count(), 0U);
}

TEST(ParameterListField, StartsAsAnEmptyListOfTheKindThatIsSent) {
  const Owned<ParameterListProt> field;
  EXPECT_NE(dynamic_cast<ACEBinaryFormatParameterListProt*>(field.get()), nullptr);
  EXPECT_EQ(field->count(), 0U);
}

TEST(ParameterListField, CopiesAListOfAnyKindValueByValue) {
  OtherList list(4);
  list.setClassVersion(3);
  const Owned<ParameterListProt> field{Copied<ParameterListProt>(&list)};
  const Owned<ParameterListProt> copy(field);
  list.getPtr(0)->append("!");
  for (ParameterListProt* each : {field.get(), copy.get()}) {
    ASSERT_NE(dynamic_cast<ACEBinaryFormatParameterListProt*>(each), nullptr);
    EXPECT_EQ(each->getClassVersion(), 3);
    ASSERT_EQ(each->count(), 4U);
    EXPECT_EQ(contentOf(each->getPtr(0)), "even");
    EXPECT_EQ(contentOf(each->getPtr(1)), "odd");
    EXPECT_EQ(each->getPtr(2), nullptr);
    EXPECT_EQ(contentOf(each->getPtr(3)), "odd");
    for (int i = 0; i < 4; ++i) {
      EXPECT_EQ(each->getParameterType(i), 10 + i);
      EXPECT_EQ(each->isNull(i), i == 2 ? 5 : 0);
    }
  }
}

TEST(ParameterListField, StaysNullWhenItsSourceIs) {
  const Owned<ParameterListProt> field{Copied<ParameterListProt>(nullptr)};
  EXPECT_EQ(field.get(), nullptr);
  EXPECT_EQ(Owned<ParameterListProt>(field).get(), nullptr);
}

TEST(ParameterListField, IsFilledInPlaceWhenItIsRead) {
  const std::string object = bytes(
      "4C 49 00 00 00 67 49 00 00 00 00 49 00 00 00 01"
      "49 00 00 00 01 49 00 00 00 00 6A 62 00 00 00 01 41 3B 3B 3B");
  test::Classes<> knowsNothing;
  MemoryBufferInputStream in(object.data(), object.size());
  BinaryReader reader(&knowsNothing, &in);
  Owned<ParameterListProt> field = nullptr;
  static_cast<Archive&>(reader).process(field, "list");
  ASSERT_TRUE(field);
  ASSERT_EQ(field->count(), 1U);
  EXPECT_EQ(contentOf(field->getPtr(0)), "A");
}

TEST(ParameterList, QuotesNonNullValuesOfSixTypes) {
  ACEBinaryFormatParameterListProt list(1);
  for (const int type : {108, 123, 124, 125, 184, 191}) {
    list.setString(0, "x", type);
    EXPECT_TRUE(needsQuoting(list, 0)) << type;
    list.setNull(0, type);
    EXPECT_FALSE(needsQuoting(list, 0)) << type;
  }
  for (const int type : {-1, 0, 107, 109, 122, 126, 183, 185, 190, 192}) {
    list.setString(0, "x", type);
    EXPECT_FALSE(needsQuoting(list, 0)) << type;
  }
  list.setString(0, "x", 108);
  EXPECT_FALSE(needsQuoting(list, 1));
  EXPECT_FALSE(needsQuoting(list, -1));
}

TEST(ParameterList, LogsItsCountWhenEmptyAndEachSlot) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build discards log lines";
  EXPECT_THAT(test::logged([] {
                ACEBinaryFormatParameterListProt list;
                test::RecordingWriter archive;
                list.serialize(archive, 0);
              }),
              ElementsAre("ACEBinaryFormatParameterListProt::serialize: _numberOfParameters =0"));
  EXPECT_THAT(test::logged([] {
                ACEBinaryFormatParameterListProt list;
                test::RecordingWriter unread;
                list = ACEBinaryFormatParameterListProt(2);
                list.serialize(unread, 0);
              }),
              ElementsAre("ACEBinaryFormatParameterListProt::serialize: parameters[0]",
                          "ACEBinaryFormatParameterListProt::serialize: parameters[1]"));
}

TEST(ParameterList, LogsANegativeCountAsItWasRead) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build discards log lines";
  const std::string frame = framed(bytes("4C 49 00 00 00 67 49 00 00 00 00 49 FF FF FF FF 3B"));
  EXPECT_THAT(
      test::logged([&] { readMessage<ACEBinaryFormatParameterListProt>(frame); }),
      ::testing::Contains("ACEBinaryFormatParameterListProt::serialize: _numberOfParameters =-1"));
}

}  // namespace
}  // namespace nox
