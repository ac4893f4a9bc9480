#include "nox/protocol/sql/result_set_metadata.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "nox/core/exceptions.h"
#include "tests/support/caught.h"
#include "tests/support/messages.h"
#include "tests/support/recording_archive.h"

namespace nox::noxp::sql {
namespace {

using test::bytes;
using test::framed;
using test::frameOf;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

ColumnMetaDataProt* named(const char* name) {
  auto* const column = new ColumnMetaDataProt;
  column->setColumnName(name);
  return column;
}

// The rest of every column string that has a name alone.
constexpr char kNoMore[] =
    ",tableName:,scale:,precision:,displayWidth:,indexable:,inputConversion:,outputConversion:,"
    "datatype:,nullable:,readOnly:,blob:,autoIncrement:,explicitSelect:,nullFldDesc:,chapter:,"
    "hidden:";

// A column of a one-letter name as a nested object: 189 bytes of text, ":X" and what follows.
std::string columnObject(char name) {
  return bytes("4C  49 00 00 00 69  49 00 00 00 00  73 00 BC") + ":" + name + kNoMore + ";;";
}

TEST(ResultSetMetaData, IsEmptyByDefault) {
  ResultSetMetaDataProt empty;
  EXPECT_EQ(empty.getType(), 104);
  EXPECT_EQ(empty.getNumberOfColumns(), 0);
  EXPECT_EQ(empty.getNumberOfParameters(), 0);
  test::expectTravelsAs(empty, "4C  49 00 00 00 68  49 00 00 00 00  49 00 00 00 00  3B");
}

TEST(ResultSetMetaData, TravelsAsCountAndColumns) {
  ResultSetMetaDataProt two;
  two.addColumn(named("A"));
  two.addColumn(named("B"));
  two.addParameter(named("P"));
  const std::string frame = framed(bytes("4C  49 00 00 00 68  49 00 00 00 00  49 00 00 00 02") +
                                   columnObject('A') + columnObject('B') + ";");
  EXPECT_BYTES(frameOf(two), frame);

  test::Classes<ResultSetMetaDataProt, ColumnMetaDataProt> factory;
  const auto read = test::readAs<ResultSetMetaDataProt>(frame, factory);
  ASSERT_NE(read, nullptr);
  ASSERT_EQ(read->getNumberOfColumns(), 2);
  EXPECT_EQ(read->getNumberOfParameters(), 0);
  EXPECT_STREQ(read->getColumnMetaDataProt(1)->getColumnName()->c_str(), "B");
  test::expectSurvivesDamage(frame, factory);
}

TEST(ResultSetMetaData, CarriesParametersFromVersionTwoOn) {
  ResultSetMetaDataProt description;
  description.addColumn(named("A"));
  description.addParameter(named("P"));
  test::Classes<ResultSetMetaDataProt, ColumnMetaDataProt> factory;

  description.setClassVersion(2);
  EXPECT_BYTES(frameOf(description),
               framed(bytes("4C  49 00 00 00 68  49 00 00 00 02  49 00 00 00 01") +
                      columnObject('A') + bytes("49 00 00 00 01") + columnObject('P') + ";"));
  const auto withParameters = test::readAs<ResultSetMetaDataProt>(frameOf(description), factory);
  ASSERT_EQ(withParameters->getNumberOfParameters(), 1);
  EXPECT_STREQ(withParameters->getParameterMetaDataProt(0)->getColumnName()->c_str(), "P");

  // Any later version counts, also one that is negative as a signed number.
  description.setClassVersion(-1);
  EXPECT_EQ(
      test::readAs<ResultSetMetaDataProt>(frameOf(description), factory)->getNumberOfParameters(),
      1);
  for (const int older : {0, 1}) {
    description.setClassVersion(older);
    EXPECT_EQ(
        test::readAs<ResultSetMetaDataProt>(frameOf(description), factory)->getNumberOfParameters(),
        0);
  }
}

TEST(ResultSetMetaData, NamesItsColumnsWhenReadingOnly) {
  ResultSetMetaDataProt description;
  description.addColumn(nullptr);
  description.setClassVersion(2);
  EXPECT_THAT(test::fieldsOf(description, 2),
              ElementsAre("int numberOfColumns=1", "object -=null", "int numberOfParameters=0"));

  test::RecordingReader reader;
  reader.setInt(1);
  ResultSetMetaDataProt empty;
  empty.serialize(reader, 2);
  EXPECT_THAT(reader.lines(), ElementsAre("int numberOfColumns", "object colMD",
                                          "int numberOfParameters", "object colMD"));
}

TEST(ResultSetMetaData, ANullColumnArrivesAsAnEmptyOne) {
  test::Classes<ResultSetMetaDataProt> factory;
  const auto read = test::readAs<ResultSetMetaDataProt>(
      framed(bytes("4C  49 00 00 00 68  49 00 00 00 00  49 00 00 00 01  4C 49 00 00 00 01 3B  3B")),
      factory);
  ASSERT_EQ(read->getNumberOfColumns(), 1);
  EXPECT_EQ(read->getColumnMetaDataProt(0)->getColumnName()->length(), 0u);
}

TEST(ResultSetMetaData, FindsAColumnByItsWholeName) {
  ResultSetMetaDataProt description;
  description.addColumn(nullptr);
  description.addColumn(named("NAME"));
  description.addColumn(named("NUMBER"));
  description.addColumn(named("NAME"));
  EXPECT_EQ(description.findColumnByName("NAME"), 1);
  EXPECT_EQ(description.findColumnByName("NUMBER"), 2);
  EXPECT_EQ(description.findColumnByName("N"), -1);
  EXPECT_EQ(description.findColumnByName(nullptr), -1);
  EXPECT_EQ(ResultSetMetaDataProt().findColumnByName("NAME"), -1);
}

TEST(ResultSetMetaData, GivesNullOutsideItsColumns) {
  ResultSetMetaDataProt description;
  description.addColumn(named("A"));
  EXPECT_NE(description.getColumnMetaDataProt(0), nullptr);
  EXPECT_EQ(description.getColumnMetaDataProt(1), nullptr);
  EXPECT_EQ(description.getColumnMetaDataProt(-1), nullptr);
  EXPECT_EQ(description.getParameterMetaDataProt(0), nullptr);
}

TEST(ResultSetMetaData, CopiesDeeply) {
  ResultSetMetaDataProt description;
  description.addColumn(named("A"));
  description.addParameter(named("P"));
  description.setClassVersion(2);
  ResultSetMetaDataProt constructed(description);
  ResultSetMetaDataProt assigned;
  assigned.addColumn(named("OLD"));
  assigned = description;
  const ResultSetMetaDataProt& itself = assigned;
  assigned = itself;
  description.getColumnMetaDataProt(0)->setColumnName("X");
  for (ResultSetMetaDataProt* copy : {&constructed, &assigned}) {
    EXPECT_EQ(copy->findColumnByName("A"), 0);
    EXPECT_EQ(copy->getNumberOfParameters(), 1);
    EXPECT_EQ(copy->getClassVersion(), 2);
  }
}

TEST(ResultSetMetaData, AFalseCountEndsWhereTheColumnsEnd) {
  test::Classes<ResultSetMetaDataProt> factory;
  const auto read = [&](const char* count) {
    return test::outcomeOf(
        framed(bytes(std::string("4C 49 00 00 00 68 49 00 00 00 00 49 ") + count + " 3B")),
        factory);
  };
  EXPECT_EQ(read("7F FF FF FF"), "UnexpectedChar");
  EXPECT_EQ(read("FF FF FF FF"), "object");
}

}  // namespace
}  // namespace nox::noxp::sql
