#include "nox/protocol/sql/row.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <type_traits>

#include "nox/protocol/sql/result_set.h"
#include "tests/support/contents.h"
#include "tests/support/messages.h"
#include "tests/support/recording_archive.h"

namespace nox::noxp::sql {
namespace {

using test::bytes;
using test::contentOf;
using test::framed;
using test::frameOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

NOXPBlob** blobs(std::initializer_list<const char*> values) {
  auto** const data = new NOXPBlob*[values.size() + 1];
  std::size_t i = 0;
  for (const char* value : values) data[i++] = new NOXPBlob(value);
  data[i] = nullptr;
  return data;
}

constexpr char kTwoValues[] =
    "4C  49 00 00 00 6B  49 00 00 00 00"
    "49 00 00 00 02"                 // "numberOfFields"
    "6A 62 00 00 00 01 41 3B 3B"     // A
    "6A 62 00 00 00 02 42 43 3B 3B"  // BC
    "3B";

TEST(Row, WithoutValuesWritesNotEvenACount) {
  RowProt row;
  EXPECT_EQ(row.getType(), 107);
  EXPECT_EQ(row.getData(), nullptr);
  EXPECT_EQ(row.getColumnValue(0), nullptr);
  EXPECT_THAT(test::fieldsOf(row), IsEmpty());
  EXPECT_BYTES(frameOf(row), framed(bytes("4C  49 00 00 00 6B  49 00 00 00 00  3B")));
}

TEST(Row, TravelsAsCountAndValues) {
  RowProt ofBlobs(blobs({"A", "BC"}), static_cast<ResultSetProt*>(nullptr));
  test::expectTravelsAs(ofBlobs, kTwoValues);

  RowProt ofTexts;
  ofTexts.addColumnValue("A");
  ofTexts.addColumnValue("BC");
  test::expectTravelsAs(ofTexts, kTwoValues);
}

TEST(Row, NamesItsValuesWhenReadingOnly) {
  RowProt row;
  row.addColumnValue("A");
  row.addColumnValue("BC");
  EXPECT_THAT(test::fieldsOf(row),
              ElementsAre("int numberOfFields=2", "blob -=41", "blob -=42 43"));

  test::RecordingReader reader;
  reader.setInt(2);
  row.serialize(reader, 0);
  EXPECT_THAT(reader.lines(),
              ElementsAre("int numberOfFields", "blob ColumnData", "blob ColumnData"));
}

TEST(Row, ShowsItsValuesAsViewsAndAsBlobs) {
  test::Classes<RowProt> factory;
  const auto row = test::readAs<RowProt>(framed(bytes(kTwoValues)), factory);
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(row->getNumberOfFields(), 2);
  EXPECT_EQ(row->getColumnView(1), "BC");
  EXPECT_EQ(row->getColumnView(0), "A");
  EXPECT_EQ(row->getColumnView(2), "");
  EXPECT_EQ(row->getColumnView(-1), "");

  NOXPBlob** const data = row->getData();
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(contentOf(data[0]), "A");
  EXPECT_EQ(contentOf(data[1]), "BC");
  EXPECT_EQ(data[2], nullptr);
  EXPECT_EQ(row->getColumnValue(1), data[1]);
  EXPECT_EQ(row->getColumnValue(2), nullptr);
  EXPECT_EQ(row->getColumnValue(-1), nullptr);
  EXPECT_EQ(row->getColumnView(1), "BC");
}

TEST(Row, BlobsThatWereAskedForHoldFromThenOn) {
  test::Classes<RowProt> factory;
  const auto row = test::readAs<RowProt>(framed(bytes(kTwoValues)), factory);
  row->getColumnValue(0)->assign("changed", 7);
  EXPECT_EQ(row->getColumnView(0), "changed");
  EXPECT_THAT(test::fieldsOf(*row),
              ElementsAre("int numberOfFields=2", "blob -=63 68 61 6E 67 65 64", "blob -=42 43"));
}

TEST(Row, EndsWhereItsArrayWasShortened) {
  test::Classes<RowProt> factory;
  const auto row = test::readAs<RowProt>(framed(bytes(kTwoValues)), factory);
  row->getColumnValue(1)->assign(std::string(5000, 'x').data(), 5000);
  row->getData()[1] = nullptr;
  EXPECT_EQ(row->getNumberOfFields(), 1);
  EXPECT_EQ(row->getColumnValue(1), nullptr);
  EXPECT_EQ(row->getColumnView(1), "");
}

TEST(Row, OutlivesTheFrameItCameIn) {
  test::Classes<RowProt> factory;
  std::string first = framed(bytes(kTwoValues));
  std::string second =
      framed(bytes("4C 49 00 00 00 6B 49 00 00 00 00 49 00 00 00 01"
                   "6A 62 00 00 00 01 5A 3B 3B 3B"));
  auto stream = std::make_unique<MemoryBufferInputStream>(first.data(), first.size());
  auto reader = std::make_unique<BinaryReader>(&factory, stream.get());
  const std::unique_ptr<Serializable> kept(reader->readRootObject());
  MemoryBufferInputStream more(second.data(), second.size());
  BinaryReader another(&factory, &more);
  const std::unique_ptr<Serializable> other(another.readRootObject());
  reader.reset();
  stream.reset();
  first.assign(first.size(), 'x');
  EXPECT_EQ(dynamic_cast<RowProt&>(*kept).getColumnView(1), "BC");
  EXPECT_EQ(dynamic_cast<RowProt&>(*other).getColumnView(0), "Z");
}

TEST(Row, ANullValueArrivesEmptyAndDoesNotEndTheRow) {
  test::Classes<RowProt> factory;
  const auto row =
      test::readAs<RowProt>(framed(bytes("4C  49 00 00 00 6B  49 00 00 00 00  49 00 00 00 03"
                                         "6A 62 00 00 00 01 41 3B 3B"  // A
                                         "4C 49 00 00 00 01 3B"        // null
                                         "6A 62 00 00 00 01 43 3B 3B"  // C
                                         "3B")),
                            factory);
  ASSERT_EQ(row->getNumberOfFields(), 3);
  EXPECT_EQ(row->getColumnView(0), "A");
  EXPECT_EQ(row->getColumnView(1), "");
  EXPECT_EQ(row->getColumnView(2), "C");
  EXPECT_EQ(contentOf(row->getColumnValue(1)), "");
}

TEST(Row, AFalseCountEndsWhereTheValuesEnd) {
  test::Classes<RowProt> factory;
  const auto read = [&](const char* count) {
    return test::outcomeOf(framed(bytes(std::string("4C 49 00 00 00 6B 49 00 00 00 00 49 ") +
                                        count + " 6A 62 00 00 00 01 41 3B 3B 3B")),
                           factory);
  };
  EXPECT_EQ(read("7F FF FF FF"), "UnexpectedChar");
  EXPECT_EQ(read("00 00 00 01"), "object");
  EXPECT_EQ(
      test::outcomeOf(framed(bytes("4C 49 00 00 00 6B 49 00 00 00 00 49 FF FF FF FF 3B")), factory),
      "object");
}

TEST(Row, GrowsInEveryForm) {
  RowProt row(blobs({"A"}), static_cast<ResultSetMetaDataProt*>(nullptr));
  row.addColumnValue("B");
  EXPECT_EQ(row.getNumberOfFields(), 2);
  row.addColumnValue(row.getColumnView(0));
  EXPECT_EQ(row.getColumnView(2), "A");
  row.getData();
  row.addColumnValue("");
  ASSERT_EQ(row.getNumberOfFields(), 4);
  EXPECT_EQ(row.getColumnView(0), "A");
  EXPECT_EQ(row.getColumnView(1), "B");
  EXPECT_EQ(row.getColumnView(3), "");

  test::Classes<RowProt> factory;
  const auto read = test::readAs<RowProt>(framed(bytes(kTwoValues)), factory);
  read->addColumnValue("D");
  EXPECT_EQ(read->getColumnView(0), "A");
  EXPECT_EQ(read->getColumnView(2), "D");
}

TEST(Row, TakesAValueOfItsOwnBlobs) {
  RowProt row(blobs({"A", "BC"}), static_cast<ResultSetProt*>(nullptr));
  row.addColumnValue(row.getColumnView(1));
  EXPECT_EQ(row.getColumnView(2), "BC");
  row.getData();
  row.addColumnValue(row.getColumnView(0));
  ASSERT_EQ(row.getNumberOfFields(), 4);
  EXPECT_EQ(row.getColumnView(3), "A");
}

TEST(Row, KeepsValuesOfAnySize) {
  RowProt row;
  const std::string large(100000, 'x');
  for (int i = 0; i < 3; ++i) {
    row.addColumnValue(large);
    row.addColumnValue(std::to_string(i));
  }
  ASSERT_EQ(row.getNumberOfFields(), 6);
  EXPECT_EQ(row.getColumnView(5), "2");
  EXPECT_EQ(row.getColumnView(0), large);
  EXPECT_EQ(row.getColumnView(3), "1");
  EXPECT_EQ(contentOf(row.getColumnValue(4)), large);
}

TEST(Row, OfASubclassWritesItself) {
  struct Silent : RowProt {
    Archive& serialize(Archive& ar, unsigned int) override { return ar; }
  };
  ResultSetProt set;
  auto* const row = new Silent;
  row->addColumnValue("A");
  set.addRow(row);
  EXPECT_BYTES(frameOf(set), framed(bytes("4C  49 00 00 00 6A  49 00 00 00 00  49 00 00 00 01"
                                          "4C  49 00 00 00 6B  49 00 00 00 00  3B  3B")));
}

TEST(Row, TakesValuesAlsoInsideASet) {
  ResultSetProt set;
  auto* const row = new RowProt(&set);
  row->addColumnValue("A");
  set.addRow(row);
  row->addColumnValue("BC");
  EXPECT_EQ(row->getColumnView(0), "A");
  EXPECT_EQ(row->getColumnView(1), "BC");
  EXPECT_EQ(set.next(), row);
  EXPECT_EQ(row->getColumnView(1), "BC");
}

TEST(Row, OfOneValueTakesIt) {
  RowProt row(new NOXPBlob("only"));
  EXPECT_EQ(contentOf(row.getColumnValue(0)), "only");
  EXPECT_EQ(row.getResultSet(), nullptr);
  EXPECT_THAT(test::fieldsOf(row), ElementsAre("int numberOfFields=1", "blob -=6F 6E 6C 79"));
}

TEST(Row, OfNoArrayHasNoValues) {
  ResultSetProt set;
  RowProt row(static_cast<NOXPBlob**>(nullptr), &set);
  EXPECT_EQ(row.getNumberOfFields(), 0);
  EXPECT_EQ(row.getColumnValue(0), nullptr);
  EXPECT_EQ(row.getColumnView(0), "");
}

TEST(Row, FindsValuesByTheNamesOfItsDescription) {
  ResultSetMetaDataProt description;
  for (const char* name : {"ID", "CITY"}) {
    auto* const column = new ColumnMetaDataProt;
    column->setColumnName(name);
    description.addColumn(column);
  }
  RowProt row(blobs({"1", "Rome"}), &description);
  EXPECT_EQ(contentOf(row.getColumnValue("CITY")), "Rome");
  EXPECT_EQ(row.getColumnValue("NAME"), nullptr);
  RowProt alone(blobs({"1"}), static_cast<ResultSetProt*>(nullptr));
  EXPECT_EQ(alone.getColumnValue("ID"), nullptr);
}

TEST(Row, IsNotCopied) { EXPECT_FALSE(std::is_copy_constructible_v<RowProt>); }

}  // namespace
}  // namespace nox::noxp::sql
