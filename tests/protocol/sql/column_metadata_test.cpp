#include "nox/protocol/sql/column_metadata.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>

#include "tests/support/log_capture.h"
#include "tests/support/messages.h"
#include "tests/support/recording_archive.h"

namespace nox::noxp::sql {
namespace {

using test::bytes;
using test::framed;
using test::frameOf;
using ::testing::Contains;
using ::testing::ElementsAre;

constexpr char kNameOnly[] =
    "3:NAME,tableName:,scale:,precision:,displayWidth:,indexable:,inputConversion:,"
    "outputConversion:,datatype:,nullable:,readOnly:,blob:,autoIncrement:,explicitSelect:,"
    "nullFldDesc:,chapter:,hidden:";

ColumnMetaDataPtr column() { return ColumnMetaDataPtr(new ColumnMetaDataProt); }

ColumnMetaDataPtr parsed(const char* text) {
  ColumnMetaDataPtr result = column();
  NOXPString string(text);
  result->fromString(string);
  return result;
}

std::string frameWithText(const std::string& text) {
  std::string body = bytes("4C  49 00 00 00 69  49 00 00 00 00  73");
  body += static_cast<char>(text.size() >> 8);
  body += static_cast<char>(text.size() & 0xFF);
  return framed(body + text + ";;");
}

TEST(ColumnMetaData, StartsWithEighteenEmptyAttributes) {
  const ColumnMetaDataPtr c = column();
  for (NOXPString* attribute :
       {c->getColumnNumber(), c->getColumnName(), c->getTableName(), c->getScale(),
        c->getPrecision(), c->getDisplayWidth(), c->getIndexable(), c->getInputConversion(),
        c->getOutputConversion(), c->getDatatype(), c->isNullable(), c->isReadOnly(), c->isBlob(),
        c->isAutoIncrement(), c->isExplicitSelect(), c->isNullFldDesc(), c->isChapter(),
        c->isHidden()}) {
    EXPECT_EQ(attribute->length(), 0u);
  }
  EXPECT_EQ(c->getType(), 105);
}

TEST(ColumnMetaData, TravelsAsOneColumnString) {
  const ColumnMetaDataPtr c = column();
  c->setColumnNumber("3");
  c->setColumnName("NAME");
  EXPECT_BYTES(frameOf(*c), frameWithText(kNameOnly));

  test::Classes<ColumnMetaDataProt> factory;
  const auto root = test::readFrame(frameWithText(kNameOnly), factory);
  auto* const read = dynamic_cast<ColumnMetaDataProt*>(root.get());
  ASSERT_NE(read, nullptr);
  EXPECT_STREQ(read->getColumnNumber()->c_str(), "3");
  EXPECT_STREQ(read->getColumnName()->c_str(), "NAME");
  EXPECT_STREQ(read->isHidden()->c_str(), "");
  EXPECT_EQ(read->getColumnName()->getType(), NOXPString::Narrow);
  test::expectSurvivesDamage(frameOf(*c), factory);
}

TEST(ColumnMetaData, NamesEveryAttributeByItsKeyInOrder) {
  const ColumnMetaDataPtr c = column();
  c->setColumnNumber("a");
  c->setColumnName("b");
  c->setTableName("c");
  c->setScale("d");
  c->setPrecision("e");
  c->setDisplayWidth("f");
  c->setIndexable("g");
  c->setInputConversion("h");
  c->setOutputConversion("i");
  c->setDatatype("j");
  c->setIsNullable("k");
  c->setIsReadOnly("l");
  c->setIsBlob("m");
  c->setIsAutoIncrement("n");
  c->setIsExplicitSelect("o");
  c->setIsNullFldDesc("p");
  c->setIsChapter("q");
  c->setIsHidden("r");
  EXPECT_STREQ(c->toString().c_str(),
               "a:b,tableName:c,scale:d,precision:e,displayWidth:f,indexable:g,inputConversion:h,"
               "outputConversion:i,datatype:j,nullable:k,readOnly:l,blob:m,autoIncrement:n,"
               "explicitSelect:o,nullFldDesc:p,chapter:q,hidden:r");

  const ColumnMetaDataPtr again = parsed(c->toString().c_str());
  EXPECT_STREQ(again->toString().c_str(), c->toString().c_str());
}

TEST(ColumnMetaData, IsWrittenWithoutANameAndReadUnderOne) {
  const ColumnMetaDataPtr c = column();
  c->setColumnNumber("3");
  c->setColumnName("NAME");
  EXPECT_THAT(test::fieldsOf(*c), ElementsAre(std::string("string -=") + kNameOnly));
  test::RecordingReader reader;
  c->serialize(reader, 0);
  EXPECT_THAT(reader.lines(), ElementsAre("string ColumnData"));
}

TEST(ColumnMetaData, MissingPartsLeaveAttributesEmpty) {
  const ColumnMetaDataPtr c = parsed("7:CITY,tableName:T");
  EXPECT_STREQ(c->getColumnNumber()->c_str(), "7");
  EXPECT_STREQ(c->getColumnName()->c_str(), "CITY");
  EXPECT_STREQ(c->getTableName()->c_str(), "T");
  EXPECT_STREQ(c->getScale()->c_str(), "");

  const ColumnMetaDataPtr none = parsed("");
  EXPECT_STREQ(none->getColumnNumber()->c_str(), "");
  EXPECT_STREQ(none->isHidden()->c_str(), "");
}

TEST(ColumnMetaData, AColonStaysInAValueAndACommaCutsIt) {
  const ColumnMetaDataPtr c = parsed("1:N,tableName:a:b,scale:1,2,precision:9");
  EXPECT_STREQ(c->getTableName()->c_str(), "a:b");
  EXPECT_STREQ(c->getScale()->c_str(), "1");
  // "2,precision" is skipped up to its colon.
  EXPECT_STREQ(c->getPrecision()->c_str(), "9");
}

TEST(ColumnMetaData, CopiesItsStrings) {
  const ColumnMetaDataPtr c = parsed(kNameOnly);
  const ColumnMetaDataPtr copy(new ColumnMetaDataProt(*c));
  c->setColumnName("OTHER");
  EXPECT_STREQ(copy->getColumnName()->c_str(), "NAME");
}

TEST(ColumnMetaData, SettersLeavePointersIntoTheOldTextReadable) {
  const ColumnMetaDataPtr c = column();
  const std::string first(100, 'a');
  c->setTableName(NOXPString(first));
  const char* const before = c->getTableName()->c_str();
  c->setTableName("short");
  EXPECT_EQ(before, first);
  EXPECT_STREQ(c->getTableName()->c_str(), "short");
}

TEST(ColumnMetaData, OnlyItsRootDestroysIt) {
  EXPECT_FALSE(std::is_destructible_v<ColumnMetaDataProt>);
  EXPECT_TRUE(std::is_destructible_v<Serializable>);
}

TEST(ColumnMetaData, SaysWhatItWrites) {
  const ColumnMetaDataPtr c = parsed(kNameOnly);
  const auto lines = test::logged([&] { test::fieldsOf(*c); });
  if (kLoggerOutput) {
    EXPECT_THAT(lines, Contains(std::string("ColumnMetaDataProt::serialize: ") + kNameOnly));
  }
}

}  // namespace
}  // namespace nox::noxp::sql
