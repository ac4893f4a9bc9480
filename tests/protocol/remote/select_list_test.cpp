#include "nox/protocol/remote/select_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "nox/core/exceptions.h"
#include "nox/protocol/sql_ext_error.h"
#include "tests/support/allocation_counter.h"
#include "tests/support/caught.h"
#include "tests/support/contents.h"
#include "tests/support/log_capture.h"
#include "tests/support/messages.h"
#include "tests/support/recording_archive.h"

namespace nox::noxp::remote {
namespace {

using test::bytes;
using test::caught;
using test::contentOf;
using test::expectTravelsAs;
using test::fieldsOf;
using test::framed;
using test::frameOf;
using test::logged;
using test::readAs;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

NOXPBlob blobOf(std::string_view content) { return NOXPBlob(content.data(), content.size()); }

/// A list of the keys in `keys`, between which attribute marks stand.
SelectListProt listOf(std::string_view keys, int id = 7) {
  const NOXPBlob blob = blobOf(keys);
  SelectListProt list(&blob);
  list.setId(id);
  return list;
}

constexpr char kThreeKeys[] =
    "A\xFE"
    "B\xFE"
    "C";
constexpr char kFiveKeys[] =
    "A\xFE"
    "B\xFE"
    "C\xFE"
    "D\xFE"
    "E";

/// The keys in order; the cursor goes to the last one.
std::vector<std::string> keysOf(SelectListProt& list) {
  std::vector<std::string> keys;
  list.goToPosition(0);
  while (list.next()) keys.push_back(list.getKey());
  return keys;
}

/// "class/subclass text" of the SQLExtError that `action` throws by value.
template <class Action>
std::string cursorErrorOf(Action&& action) {
  try {
    action();
  } catch (SQLExtError& error) {
    return error.getSqlState().sqlClass + "/" + error.getSqlState().sqlSubClass + " " +
           error.getMsg();
  }
  return "nothing was thrown";
}

/// Reads an object without a frame into `list`; what the reader throws passes.
void readInto(SelectListProt& list, std::string_view hexObject) {
  const std::string object = bytes(hexObject);
  MemoryBufferInputStream in(object.data(), object.size());
  BinaryReader reader(nullptr, &in);
  reader.readObject(&list);
}

std::unique_ptr<SelectListProt> readList(std::string_view hexBody) {
  test::Classes<SelectListProt> factory;
  return readAs<SelectListProt>(framed(bytes(hexBody)), factory);
}

/// Keys A, B and C, records a, b and c, position 2 modified.
constexpr char kThreeRecords[] =
    "4C  49 00 00 01 94  49 00 00 00 00"              // object, type 404, class version 0
    "49 00 00 00 07"                                  // "id" 7
    "49 00 00 00 03"                                  // "numKeys" 3
    "73 00 01 41 3B  73 00 01 42 3B  73 00 01 43 3B"  // A, B, C
    "49 00 00 00 01  49 00 00 00 03"                  // "hasRecords" 1, "numRecords" 3
    "6A 62 00 00 00 01 61 3B 3B"                      // a
    "6A 62 00 00 00 01 62 3B 3B"                      // b
    "6A 62 00 00 00 01 63 3B 3B"                      // c
    "49 00 00 00 01  49 00 00 00 02"                  // "numUpdatedRecords" 1, "updatedPos" 2
    "3B";

/// Keys A and B, the record a alone.
constexpr char kOneRecordForTwoKeys[] =
    "4C  49 00 00 01 94  49 00 00 00 00  49 00 00 00 07"
    "49 00 00 00 02  73 00 01 41 3B  73 00 01 42 3B"
    "49 00 00 00 01  49 00 00 00 01  6A 62 00 00 00 01 61 3B 3B"
    "49 00 00 00 00  3B";

TEST(SelectList, TravelsAsItsIdAloneByDefault) {
  expectTravelsAs(SelectListProt(), "4C  49 00 00 01 94  49 00 00 00 00  49 FF FF FF FF  3B");
  const auto read = readList("4C  49 00 00 01 94  49 00 00 00 00  49 FF FF FF FF  3B");
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(read->getId(), -1);
  EXPECT_EQ(read->size(), 0u);
  EXPECT_EQ(read->getPosition(), 0u);
}

TEST(SelectList, TravelsAsIdCountKeysAndNoRecords) {
  expectTravelsAs(listOf(kThreeKeys),
                  "4C  49 00 00 01 94  49 00 00 00 00"
                  "49 00 00 00 07"                                  // "id" 7
                  "49 00 00 00 03"                                  // "numKeys" 3
                  "73 00 01 41 3B  73 00 01 42 3B  73 00 01 43 3B"  // A, B, C
                  "49 00 00 00 00"                                  // "hasRecords" 0
                  "3B");
  expectTravelsAs(listOf("", 0),
                  "4C  49 00 00 01 94  49 00 00 00 00"
                  "49 00 00 00 00  49 00 00 00 00  49 00 00 00 00  3B");
}

TEST(SelectList, TravelsWithRecordsAndModifiedPositions) {
  const auto list = readList(kThreeRecords);
  ASSERT_NE(list, nullptr);
  expectTravelsAs(*list, kThreeRecords);
  EXPECT_THAT(keysOf(*list), ElementsAre("A", "B", "C"));
  EXPECT_TRUE(list->hasRecordData());
  list->goToPosition(2);
  EXPECT_EQ(contentOf(list->getRecord()), "b");
  EXPECT_TRUE(list->isModified());
  list->goToPosition(3);
  EXPECT_EQ(contentOf(list->getRecord()), "c");
  EXPECT_FALSE(list->isModified());
}

TEST(SelectList, NamesItsFieldsDifferentlyInEachDirection) {
  const auto list = readList(kThreeRecords);
  EXPECT_THAT(fieldsOf(*list),
              ElementsAre("int id=7", "int numKeys=3", "text -=A", "text -=B", "text -=C",
                          "int hasRecords=1", "int numRecords=3", "blob -=61", "blob -=62",
                          "blob -=63", "int numUpdatedRecords=1", "int updatedPos=2"));
  test::RecordingReader reader;
  reader.setInt(1);
  SelectListProt read;
  read.serialize(reader, 0);
  EXPECT_THAT(reader.lines(),
              ElementsAre("int id", "int numKeys", "text key", "int hasRecords", "int numRecords",
                          "blob record", "int numUpdatedRecords", "int updatedRecord"));
}

TEST(SelectList, KeepsKeysOnItsSideOfAnyNegativeId) {
  expectTravelsAs(listOf(kThreeKeys, -5), "4C  49 00 00 01 94  49 00 00 00 00  49 FF FF FF FB  3B");

  auto list = readList(kThreeRecords);
  list->goToPosition(2);
  readInto(*list, "4C  49 00 00 01 94  49 00 00 00 00  49 FF FF FF FE  3B");
  EXPECT_EQ(list->getId(), -2);
  EXPECT_EQ(list->getPosition(), 0u);
  EXPECT_THAT(keysOf(*list), ElementsAre("A", "B", "C"));
  EXPECT_EQ(contentOf(list->getRecord()), "c");
}

TEST(SelectList, TakesAnyOtherMarkThanOneForNoRecords) {
  for (const char* hasRecords : {"49 00 00 00 02", "49 FF FF FF FF", "49 01 00 00 01"}) {
    SCOPED_TRACE(hasRecords);
    const auto list = readList(std::string("4C  49 00 00 01 94  49 00 00 00 00  49 00 00 00 07"
                                           "49 00 00 00 01  73 00 01 41 3B") +
                               hasRecords + "3B");
    ASSERT_NE(list, nullptr);
    EXPECT_FALSE(list->hasRecordData());
    EXPECT_EQ(list->size(), 1u);
  }
}

TEST(SelectList, ReadsModifiedPositionsAsUnsigned32BitNumbersInOrder) {
  const auto list = readList(
      "4C  49 00 00 01 94  49 00 00 00 00  49 00 00 00 07  49 00 00 00 00"
      "49 00 00 00 01  49 00 00 00 00"  // records, but none
      "49 00 00 00 04  49 FF FF FF FF  49 00 00 00 03  49 00 00 00 01  49 00 00 00 03  3B");
  ASSERT_NE(list, nullptr);
  EXPECT_THAT(*list->getAllModified(), ElementsAre(1u, 3u, 4294967295u));
  EXPECT_THAT(fieldsOf(*list),
              ElementsAre("int id=7", "int numKeys=0", "int hasRecords=1", "int numRecords=0",
                          "int numUpdatedRecords=3", "int updatedPos=1", "int updatedPos=3",
                          "int updatedPos=-1"));
}

TEST(SelectList, ForgetsModifiedPositionsWhenItReadsNone) {
  for (const char* count : {"49 00 00 00 00", "49 FF FF FF FF"}) {
    SCOPED_TRACE(count);
    auto list = readList(kThreeRecords);
    readInto(*list, std::string("4C  49 00 00 01 94  49 00 00 00 00  49 00 00 00 07  49 00 00 00 00"
                                "49 00 00 00 01  49 00 00 00 00") +
                        count + "3B");
    EXPECT_THAT(*list->getAllModified(), IsEmpty());
  }
}

TEST(SelectList, KeepsItsRecordsWhenItReadsAListWithout) {
  auto list = readList(kThreeRecords);
  readInto(*list,
           "4C  49 00 00 01 94  49 00 00 00 00  49 00 00 00 08"
           "49 00 00 00 01  73 00 01 5A 3B  49 00 00 00 00  3B");
  EXPECT_FALSE(list->hasRecordData());
  EXPECT_THAT(keysOf(*list), ElementsAre("Z"));
  EXPECT_EQ(contentOf(list->getRecord()), "a");
  EXPECT_THAT(*list->getAllModified(), ElementsAre(2u));
}

TEST(SelectList, ReadsANullRecordAsAnEmptyOne) {
  auto list = listOf(kThreeKeys);
  list.setHasRecordData(true);
  list.goToPosition(2);
  list.setRecord(new NOXPBlob("b"));
  const std::string frame =
      framed(bytes("4C  49 00 00 01 94  49 00 00 00 00  49 00 00 00 07"
                   "49 00 00 00 03  73 00 01 41 3B  73 00 01 42 3B  73 00 01 43 3B"
                   "49 00 00 00 01  49 00 00 00 03"
                   "4C 49 00 00 00 01 3B  6A 62 00 00 00 01 62 3B 3B  4C 49 00 00 00 01 3B"
                   "49 00 00 00 01  49 00 00 00 02  3B"));
  EXPECT_BYTES(frameOf(list), frame);

  test::Classes<SelectListProt> factory;
  const auto read = readAs<SelectListProt>(frame, factory);
  ASSERT_NE(read, nullptr);
  read->goToPosition(1);
  EXPECT_EQ(contentOf(read->getRecord()), "");
  test::expectSurvivesDamage(frame, factory);
}

TEST(SelectList, EndsAKeyAtItsFirstNulOnTheWire) {
  auto list = listOf(std::string_view("A\0B", 3));
  list.next();
  EXPECT_EQ(list.getKey(), std::string("A\0B", 3));
  EXPECT_BYTES(frameOf(list), framed(bytes("4C  49 00 00 01 94  49 00 00 00 00  49 00 00 00 07"
                                           "49 00 00 00 01  73 00 01 41 3B  49 00 00 00 00  3B")));
}

TEST(SelectList, EndsAFalseCountWhereItsBytesEnd) {
  struct Case {
    const char* what;
    const char* frame;
    char missing;
  };
  constexpr Case kCases[] = {
      {"numKeys",
       "00 00 00 18 5B 4C 49 00 00 01 94 49 00 00 00 00 49 00 00 00 07 49 7F FF FF FF 3B 5D", 's'},
      {"numRecords",
       "00 00 00 22 5B 4C 49 00 00 01 94 49 00 00 00 00 49 00 00 00 07 49 00 00 00 00"
       "49 00 00 00 01 49 7F FF FF FF 3B 5D",
       'j'},
      {"numUpdatedRecords",
       "00 00 00 27 5B 4C 49 00 00 01 94 49 00 00 00 00 49 00 00 00 07 49 00 00 00 00"
       "49 00 00 00 01 49 00 00 00 00 49 7F FF FF FF 3B 5D",
       'I'},
  };
  test::Classes<SelectListProt> factory;
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.what);
    const test::AllocationScope scope;
    const auto error = caught<UnexpectedChar>([&] { test::readFrame(bytes(c.frame), factory); });
    EXPECT_LT(scope.bytes(), std::size_t{256} << 10);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getChar(), ';');
    EXPECT_EQ(error->getExpectedChar(), c.missing);
  }
}

TEST(SelectList, TakesANegativeCountForNone) {
  const auto noKeys = readList(
      "4C  49 00 00 01 94  49 00 00 00 00  49 00 00 00 07  49 FF FF FF FF  49 00 00 00 00  3B");
  ASSERT_NE(noKeys, nullptr);
  EXPECT_EQ(noKeys->size(), 0u);

  const auto noRecords = readList(
      "4C  49 00 00 01 94  49 00 00 00 00  49 00 00 00 07  49 00 00 00 01  73 00 01 41 3B"
      "49 00 00 00 01  49 80 00 00 00  49 00 00 00 00  3B");
  ASSERT_NE(noRecords, nullptr);
  noRecords->goToPosition(1);
  EXPECT_EQ(cursorErrorOf([&] { noRecords->getRecord(); }),
            "IE/001 Error while accessing select list record.");
}

TEST(SelectList, SplitsDynamicArraysLikeLines) {
  struct Case {
    std::string_view text;
    std::vector<std::string> keys;
  };
  const Case cases[] = {
      {"", {}},
      {"A", {"A"}},
      {"A\xFE", {"A"}},
      {"\xFE", {""}},
      {"\xFE\xFE", {"", ""}},
      {"A\xFE\xFE"
       "B",
       {"A", "", "B"}},
      {kThreeKeys, {"A", "B", "C"}},
      {std::string_view("A\0\xFE\0", 4), {std::string("A\0", 2), std::string("\0", 1)}},
      {"A\xFD"
       "B\xFE\xFF",
       {"A\xFD"
        "B",
        "\xFF"}},
  };
  for (const Case& c : cases) {
    SelectListProt list = listOf(c.text);
    EXPECT_EQ(keysOf(list), c.keys);
  }
}

TEST(SelectList, OfKeysHasIdZeroAndLeavesTheBlobAlone) {
  NOXPBlob keys = blobOf(kThreeKeys);
  SelectListProt list(&keys);
  EXPECT_EQ(list.getId(), 0);
  EXPECT_EQ(list.getPosition(), 0u);
  EXPECT_FALSE(list.hasRecordData());
  EXPECT_EQ(contentOf(&keys), kThreeKeys);
  keys.clear();
  EXPECT_EQ(list.size(), 3u);

  const NOXPBlob* nothing = nullptr;
  SelectListProt empty(nothing);
  EXPECT_EQ(empty.getId(), 0);
  EXPECT_EQ(empty.size(), 0u);
}

TEST(SelectList, JoinsItsKeysWithAttributeMarks) {
  std::string out = "before";
  listOf(kThreeKeys).keysToString(&out);
  EXPECT_EQ(out, kThreeKeys);
  listOf("\xFE\xFE").keysToString(&out);
  EXPECT_EQ(out, "\xFE");
  SelectListProt().keysToString(&out);
  EXPECT_EQ(out, "");
}

TEST(SelectList, IsWalkedByItsCursor) {
  SelectListProt list = listOf(kThreeKeys);
  EXPECT_FALSE(list.previous());
  EXPECT_FALSE(list.hasPrevious());
  EXPECT_TRUE(list.hasNext());
  EXPECT_TRUE(list.next());
  EXPECT_EQ(list.getKey(), "A");
  EXPECT_FALSE(list.hasPrevious());
  EXPECT_FALSE(list.previous());
  EXPECT_EQ(list.getPosition(), 1u);
  EXPECT_TRUE(list.next());
  EXPECT_TRUE(list.hasPrevious());
  EXPECT_TRUE(list.next());
  EXPECT_FALSE(list.hasNext());
  EXPECT_FALSE(list.next());
  EXPECT_EQ(list.getPosition(), 3u);
  EXPECT_TRUE(list.previous());
  EXPECT_EQ(list.getKey(), "B");
}

TEST(SelectList, GoesToPositionsInItsRangeAlone) {
  constexpr char kOutOfRange[] = "IE/001 Error while accessing select list, position not in range.";
  SelectListProt list = listOf(kThreeKeys);
  list.goToPosition(3);
  EXPECT_EQ(list.getKey(), "C");
  EXPECT_EQ(cursorErrorOf([&] { list.goToPosition(4); }), kOutOfRange);
  EXPECT_EQ(list.getPosition(), 3u);
  list.goToPosition(0);
  EXPECT_EQ(list.getPosition(), 0u);
  EXPECT_EQ(cursorErrorOf([&] { list.goToPosition(ULONG_MAX); }), kOutOfRange);
  if (sizeof(unsigned long) > 4) {
    const auto beyond32Bits = static_cast<unsigned long>((std::uint64_t{1} << 32) + 1);
    EXPECT_EQ(cursorErrorOf([&] { list.goToPosition(beyond32Bits); }), kOutOfRange);
  }
  EXPECT_EQ(list.getPosition(), 0u);
}

TEST(SelectList, GivesNoKeyAndNoRecordOutsideItsEntries) {
  constexpr char kNoRecord[] = "IE/001 Error while accessing select list record.";
  SelectListProt list = listOf(kThreeKeys);
  EXPECT_EQ(cursorErrorOf([&] { list.getKey(); }), "IE/001 Error while accessing select list key.");
  EXPECT_EQ(cursorErrorOf([&] { list.getRecord(); }), kNoRecord);
  EXPECT_EQ(cursorErrorOf([&] { list.extractRecord(); }), kNoRecord);
  list.next();
  EXPECT_EQ(cursorErrorOf([&] { list.getRecord(); }), kNoRecord);

  const auto shortOfRecords = readList(kOneRecordForTwoKeys);
  shortOfRecords->goToPosition(2);
  EXPECT_EQ(cursorErrorOf([&] { shortOfRecords->getRecord(); }), kNoRecord);
}

TEST(SelectList, HandsTheVeryRecordOverThatNobodyShares) {
  auto list = readList(kThreeRecords);
  list->goToPosition(2);
  NOXPBlob* const record = list->getRecord();
  const std::unique_ptr<NOXPBlob> extracted(list->extractRecord());
  EXPECT_EQ(extracted.get(), record);
  EXPECT_EQ(list->getRecord(), nullptr);
  EXPECT_EQ(list->extractRecord(), nullptr);
  list.reset();
  EXPECT_EQ(contentOf(extracted.get()), "b");
}

TEST(SelectList, HandsASharedRecordOverAsACopy) {
  auto list = readList(kThreeRecords);
  SelectListProt copy(*list);
  list->goToPosition(2);
  copy.goToPosition(2);
  NOXPBlob* const record = list->getRecord();
  const std::unique_ptr<NOXPBlob> extracted(copy.extractRecord());
  EXPECT_NE(extracted.get(), record);
  EXPECT_EQ(contentOf(extracted.get()), "b");
  EXPECT_EQ(copy.getRecord(), nullptr);
  EXPECT_EQ(list->getRecord(), record);
  EXPECT_EQ(contentOf(record), "b");
}

TEST(SelectList, StoresARecordAndMarksItsPosition) {
  auto list = readList(kThreeRecords);
  list->goToPosition(3);
  auto* record = new NOXPBlob("new");
  list->setRecord(record);
  EXPECT_EQ(list->getRecord(), record);
  EXPECT_TRUE(list->isModified());
  EXPECT_THAT(*list->getAllModified(), ElementsAre(2u, 3u));
  list->setRecord(nullptr);
  EXPECT_EQ(list->getRecord(), nullptr);
}

TEST(SelectList, OnlyMarksThePositionOfARecordItHolds) {
  auto list = readList(kThreeRecords);
  list->goToPosition(1);
  NOXPBlob* const record = list->getRecord();
  list->setRecord(record);
  EXPECT_EQ(list->getRecord(), record);
  EXPECT_EQ(contentOf(record), "a");
  EXPECT_TRUE(list->isModified());
}

TEST(SelectList, LeavesARecordToItsCallerThatItCannotStore) {
  SelectListProt list = listOf(kThreeKeys);
  const auto record = std::make_unique<NOXPBlob>("r");
  EXPECT_EQ(cursorErrorOf([&] { list.setRecord(record.get()); }),
            "IE/001 Error while accessing select list record.");
  EXPECT_EQ(contentOf(record.get()), "r");
  EXPECT_THAT(*list.getAllModified(), IsEmpty());
  // By then every key has an entry.
  list.goToPosition(3);
  EXPECT_EQ(list.getRecord(), nullptr);
}

TEST(SelectList, ForgetsItsRecordsWhereTheyAreTooFew) {
  const auto list = readList(kOneRecordForTwoKeys);
  list->goToPosition(1);
  const NOXPBlob* const before = list->getRecord();
  list->goToPosition(2);
  list->setRecord(new NOXPBlob("b"));
  EXPECT_EQ(contentOf(list->getRecord()), "b");
  list->goToPosition(1);
  EXPECT_EQ(list->getRecord(), nullptr);
  EXPECT_EQ(contentOf(before), "a") << "the forgotten record lives as long as the list";
}

TEST(SelectList, KeepsTheRecordsOfAnEarlierReadReadable) {
  auto list = readList(kThreeRecords);
  list->goToPosition(1);
  const NOXPBlob* const before = list->getRecord();
  readInto(*list, kOneRecordForTwoKeys);
  list->goToPosition(1);
  EXPECT_NE(list->getRecord(), before);
  EXPECT_EQ(contentOf(before), "a");
}

TEST(SelectList, SendsChangedRecordsOnlyWhenToldThatItHasSome) {
  SelectListProt list = listOf("A");
  list.next();
  list.setRecord(new NOXPBlob("r"));
  EXPECT_FALSE(list.hasRecordData());
  EXPECT_THAT(fieldsOf(list),
              ElementsAre("int id=7", "int numKeys=1", "text -=A", "int hasRecords=0"));
  list.setHasRecordData(true);
  EXPECT_THAT(fieldsOf(list), ElementsAre("int id=7", "int numKeys=1", "text -=A",
                                          "int hasRecords=1", "int numRecords=1", "blob -=72",
                                          "int numUpdatedRecords=1", "int updatedPos=1"));
}

TEST(SelectList, SharesItsRecordsWithItsCopies) {
  auto list = readList(kThreeRecords);
  list->setClassVersion(3);
  list->goToPosition(2);
  NOXPBlob* const record = list->getRecord();
  SelectListProt copy(*list);
  EXPECT_EQ(copy.getPosition(), 0u);
  EXPECT_EQ(copy.getClassVersion(), 3);
  copy.goToPosition(2);
  EXPECT_EQ(copy.getRecord(), record);
  copy.setClassVersion(0);
  list.reset();
  EXPECT_EQ(contentOf(copy.getRecord()), "b");
  EXPECT_BYTES(frameOf(copy), framed(bytes(kThreeRecords)));
}

TEST(SelectList, ReplacesASharedRecordForItselfAlone) {
  const auto list = readList(kThreeRecords);
  SelectListProt copy(*list);
  copy.goToPosition(1);
  copy.setRecord(new NOXPBlob("new"));
  list->goToPosition(1);
  EXPECT_EQ(contentOf(list->getRecord()), "a");
  EXPECT_FALSE(list->isModified());
}

TEST(SelectList, LeavesTheTargetOfAnAssignmentAlone) {
  const SelectListProt source = listOf(kThreeKeys, 9);
  SelectListProt target = listOf("Z", 4);
  target.next();
  const std::unique_ptr<SelectListProt> copy(&(target = source));
  EXPECT_NE(copy.get(), &target);
  EXPECT_EQ(copy->getId(), 9);
  EXPECT_THAT(keysOf(*copy), ElementsAre("A", "B", "C"));
  EXPECT_EQ(target.getId(), 4);
  EXPECT_EQ(target.getKey(), "Z");

  const SelectListProt& itself = target;
  const std::unique_ptr<SelectListProt> own(&(target = itself));
  EXPECT_NE(own.get(), &target);
  EXPECT_THAT(keysOf(*own), ElementsAre("Z"));
  EXPECT_TRUE(
      (std::is_same_v<decltype(std::declval<SelectListProt&>() = source), SelectListProt&>));
}

TEST(SelectListChunk, TakesTheNextEntriesAndMovesTheSource) {
  SelectListProt source = listOf(kFiveKeys);
  source.goToPosition(1);
  SelectListProt chunk(source, 2, false);
  EXPECT_EQ(source.getPosition(), 3u);
  EXPECT_EQ(chunk.getId(), 7);
  EXPECT_EQ(chunk.getPosition(), 0u);
  EXPECT_THAT(keysOf(chunk), ElementsAre("B", "C"));

  SelectListProt rest(source, ULONG_MAX, false);
  EXPECT_THAT(keysOf(rest), ElementsAre("D", "E"));
  SelectListProt nothing(source, 5, false);
  EXPECT_EQ(nothing.size(), 0u);
  source.goToPosition(0);
  SelectListProt none(source, 0, false);
  EXPECT_EQ(none.size(), 0u);
  EXPECT_EQ(source.getPosition(), 0u);
}

TEST(SelectListChunk, SharesRecordsAndNotesTheSourcesPositions) {
  SelectListProt source = listOf(kFiveKeys);
  source.setHasRecordData(true);
  source.goToPosition(3);
  source.setRecord(new NOXPBlob("c"));
  NOXPBlob* const record = source.getRecord();
  source.goToPosition(1);

  SelectListProt chunk(source, 2, true);
  EXPECT_THAT(keysOf(chunk), ElementsAre("B", "C"));
  EXPECT_TRUE(chunk.hasRecordData());
  EXPECT_THAT(*chunk.getAllModified(), ElementsAre(3u));
  chunk.goToPosition(2);
  EXPECT_EQ(chunk.getRecord(), record);
  EXPECT_FALSE(chunk.isModified()) << "3 is a position of the source";
  chunk.goToPosition(1);
  EXPECT_EQ(chunk.getRecord(), nullptr);
}

TEST(SelectListChunk, OutlivesItsSource) {
  auto source = readList(kThreeRecords);
  SelectListProt chunk(*source, 2, true);
  source.reset();
  chunk.goToPosition(2);
  EXPECT_EQ(contentOf(chunk.getRecord()), "b");
}

TEST(SelectListChunk, ClaimsRecordsAlsoWhenItTookNone) {
  const auto source = readList(kThreeRecords);
  SelectListProt chunk(*source, 2, false);
  EXPECT_TRUE(chunk.hasRecordData());
  expectTravelsAs(chunk,
                  "4C  49 00 00 01 94  49 00 00 00 00  49 00 00 00 07"
                  "49 00 00 00 02  73 00 01 41 3B  73 00 01 42 3B"
                  "49 00 00 00 01  49 00 00 00 00  49 00 00 00 00"  // records, 0 of them, 0 changed
                  "3B");
}

TEST(SelectListChunk, TakesNoRecordsFromASourceWithoutRecordData) {
  SelectListProt source = listOf("A");
  source.next();
  source.setRecord(new NOXPBlob("a"));
  source.goToPosition(0);
  SelectListProt chunk(source, 1, true);
  EXPECT_FALSE(chunk.hasRecordData());
  EXPECT_THAT(*chunk.getAllModified(), IsEmpty());
  chunk.goToPosition(1);
  EXPECT_EQ(cursorErrorOf([&] { chunk.getRecord(); }),
            "IE/001 Error while accessing select list record.");
}

TEST(SelectListChunk, HasANullEntryWhereItsSourceHasNone) {
  const auto source = readList(kOneRecordForTwoKeys);
  SelectListProt chunk(*source, 2, true);
  chunk.goToPosition(1);
  EXPECT_EQ(contentOf(chunk.getRecord()), "a");
  chunk.goToPosition(2);
  EXPECT_EQ(chunk.getRecord(), nullptr);
}

TEST(SelectListChunk, IsEmptyWhenTheSourcesCursorIsBehindItsKeys) {
  auto source = readList(kThreeRecords);
  source->goToPosition(3);
  const auto error = caught<UnexpectedChar>([&] {
    readInto(*source,
             "4C  49 00 00 01 94  49 00 00 00 00  49 00 00 00 07"
             "49 00 00 00 01  73 00 01 41 3B  3B");
  });
  ASSERT_NE(error, nullptr);
  SelectListProt chunk(*source, ULONG_MAX, true);
  EXPECT_EQ(chunk.size(), 0u);
  EXPECT_EQ(cursorErrorOf([&] { source->getKey(); }),
            "IE/001 Error while accessing select list key.");
}

TEST(SelectList, SaysWhatItSendsAndWhenItEnds) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build writes no log lines";
  SelectListProt list = listOf(kThreeKeys);
  EXPECT_THAT(logged([&] { fieldsOf(list); }),
              ElementsAre("FETCH 3 item(s) from select list [id = 7]."));
  list.setId(-1);
  EXPECT_THAT(logged([&] { fieldsOf(list); }), IsEmpty());
  test::RecordingReader reader;
  EXPECT_THAT(logged([&] { list.serialize(reader, 0); }), IsEmpty());
  EXPECT_THAT(logged([] { SelectListProt ends; }),
              ElementsAre("SelectListProt::~SelectListProt() [id = -1]"));
}

TEST(SelectList5, TravelsAsOneBlobOfKeys) {
  expectTravelsAs(SelectListProt5(new NOXPBlob("A\xFE"
                                               "B")),
                  "4C  49 00 00 01 91  49 00 00 00 00  6A 62 00 00 00 03 41 FE 42 3B 3B  3B");
  expectTravelsAs(SelectListProt5(),
                  "4C  49 00 00 01 91  49 00 00 00 00  6A 62 00 00 00 00 3B 3B  3B");
  SelectListProt5 list(new NOXPBlob("A"));
  EXPECT_THAT(fieldsOf(list), ElementsAre("blob _keys=41"));
}

TEST(SelectList5, TakesItsBlobOver) {
  auto* keys = new NOXPBlob("A");
  SelectListProt5 list(keys);
  EXPECT_EQ(list.getKeys(), keys);
  NOXPBlob* nothing = nullptr;
  EXPECT_EQ(contentOf(SelectListProt5(nothing).getKeys()), "");
}

TEST(SelectList5, CountsItsKeys) {
  const std::pair<std::string_view, int> cases[] = {
      {"", 0},
      {"A", 1},
      {"A\xFE"
       "B",
       2},
      {"A\xFE", 2},
      {"\xFE", 2},
      {std::string_view("A\xFE"
                        "B\0\xFE"
                        "C",
                        6),
       2},  // a NUL ends the text
      {std::string_view("\0\xFE", 2), 0},
  };
  for (const auto& [keys, count] : cases) {
    EXPECT_EQ(SelectListProt5(new NOXPBlob(keys.data(), keys.size())).count(), count);
  }
}

TEST(SelectList5, CountsNothingBehindTheEndOfItsBlob) {
  SelectListProt5 list(
      new NOXPBlob("A\xFE"
                   "B\xFE"
                   "C"));
  list.getKeys()->setSize(1);
  EXPECT_EQ(list.count(), 1);
  list.getKeys()->setSize(0);
  EXPECT_EQ(list.count(), 0);
}

TEST(SelectList5, GivesKeysFromIndexZeroAsNewStrings) {
  SelectListProt5 list(
      new NOXPBlob("A\xFE"
                   "B1\xFD"
                   "B2\xFE\xFE"
                   "D"));
  const std::pair<unsigned int, std::string> cases[] = {
      {0, "A"},
      {1,
       "B1\xFD"
       "B2"},
      {2, ""},
      {3, "D"},
      {4, ""},
  };
  for (const auto& [index, key] : cases) {
    SCOPED_TRACE(index);
    const std::unique_ptr<NOXPString> got(list.get(index));
    ASSERT_NE(got, nullptr);
    EXPECT_EQ(std::string(got->c_str()), key);
  }
}

TEST(SelectList5, GivesAnEmptyKeyForIndexesThatNoAttributeHas) {
  SelectListProt5 list(new NOXPBlob("A"));
  for (const unsigned int index : {1u, 2147483646u, 2147483647u, 2147483648u, 4294967295u}) {
    SCOPED_TRACE(index);
    const std::unique_ptr<NOXPString> key(list.get(index));
    ASSERT_NE(key, nullptr);
    EXPECT_STREQ(key->c_str(), "");
    EXPECT_EQ(key->length(), 0u);
  }
  const std::unique_ptr<NOXPString> none(SelectListProt5().get(0));
  EXPECT_STREQ(none->c_str(), "");
}

TEST(SelectList5, CopiesDeeply) {
  test::expectCopies(SelectListProt5(new NOXPBlob("A")));
  auto original = std::make_unique<SelectListProt5>(new NOXPBlob("A"));
  original->setClassVersion(2);
  const SelectListProt5 copy(original.get());
  original.reset();
  EXPECT_EQ(contentOf(copy.getKeys()), "A");
  EXPECT_EQ(copy.getClassVersion(), 2);

  const SelectListProt5* nothing = nullptr;
  EXPECT_EQ(contentOf(SelectListProt5(nothing).getKeys()), "");
}

TEST(SelectList5, SaysWhichKeyItGivesAndWhenItEnds) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build writes no log lines";
  SelectListProt5 list(
      new NOXPBlob("A\xFE"
                   "B"));
  EXPECT_THAT(logged([&] { delete list.get(1); }),
              ElementsAre("SelectListProt5::get(index=1", "SelectListProt5::get(index=1) OK: 'B'"));
  EXPECT_THAT(logged([&] { delete list.get(2); }),
              ElementsAre("SelectListProt5::get(index=2", "SelectListProt5::get(index=2) OK: ''"));
  EXPECT_THAT(logged([] { SelectListProt5 ends; }),
              ElementsAre("SelectListProt5::~SelectListProt5 ()"));
}

}  // namespace
}  // namespace nox::noxp::remote
