#include "agent/store/file_columns.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

namespace nox::agent {
namespace {

std::string item(std::initializer_list<const char*> attributes) {
  std::string text;
  for (const char* const& attribute : attributes) {
    if (&attribute != attributes.begin()) text += '\xFE';
    text += attribute;
  }
  return text;
}

std::string described(const std::vector<FileColumn>& columns) {
  std::string text;
  for (const FileColumn& column : columns) {
    text += column.name + ":" + std::to_string(column.attribute);
    if (!column.conversion.empty()) text += "(" + column.conversion + ")";
    if (column.numeric) text += "#";
    if (column.width > 0) text += " " + std::to_string(column.width);
    text += ";";
  }
  return text;
}

TEST(FileColumns, ComeByAttributeAndThenByName) {
  FileColumnsReader reader;
  reader.add("A", item({"D", "3"}));
  reader.add("B", item({"D", "1"}));
  reader.add("C", item({"D", "1"}));
  reader.add("D", item({"D", "0"}));
  EXPECT_EQ(described(reader.finish().single), "D:0;B:1;C:1;A:3;");
}

TEST(FileColumns, MultivaluedItemsStandApart) {
  FileColumnsReader reader;
  reader.add("ONE", item({"D", "1", "", "", "5L", "S"}));
  reader.add("MANY", item({"D", "2", "MD2", "", "", "M"}));
  const FileColumns columns = reader.finish();
  EXPECT_EQ(described(columns.single), "ONE:1 5;");
  EXPECT_EQ(described(columns.multivalued), "MANY:2(MD2)#;");
}

TEST(FileColumns, OnlyDatesTimesAndDecimalsAreConverted) {
  FileColumnsReader reader;
  for (const char* const code : {"D", "DI", "MTH", "MD0", "MCU", "MX", "G1*1", "MCU\xFDMD2"}) {
    reader.add(code, item({"D", "1", code}));
  }
  EXPECT_EQ(described(reader.finish().single),
            "D:1(D);DI:1(DI);MTH:1(MTH);MD0:1(MD0)#;MCU:1;MX:1;G1*1:1;"
            "MCU\xFDMD2:1(MCU\xFDMD2);");
}

TEST(FileColumns, RightJustifiedItemsAreNumeric) {
  FileColumnsReader reader;
  reader.add("L", item({"D", "1", "", "", "8L"}));
  reader.add("R", item({"D", "1", "", "", "8R"}));
  reader.add("T", item({"D", "1", "D", "", "8R"}));
  EXPECT_EQ(described(reader.finish().single), "L:1 8;R:1# 8;T:1(D) 8;");
}

TEST(FileColumns, WhatDefinesNoAttributeIsPassedOver) {
  FileColumnsReader reader;
  reader.add("", item({"D", "1"}));
  reader.add("@ID", item({"D", "0"}));
  reader.add("CALC", item({"I", "1 + 1"}));
  reader.add("DATE", item({"Date", "1"}));
  reader.add("NONE", "");
  reader.add("NEGATIVE", item({"D", "-1"}));
  reader.add("WORD", item({"D", "1x"}));
  reader.add("HUGE", item({"D", "65536"}));
  reader.add("TOLD", item({"D the one that counts", "7"}));
  EXPECT_EQ(described(reader.finish().single), "TOLD:7;");
}

TEST(FileColumns, NamesThatAreTakenGetTheNextFreeNumber) {
  FileColumnsReader reader;
  for (const char* const name : {"ID", "Id_2", "NAME", "Name", "name", "name_2"}) {
    reader.add(name, item({"D", "1"}));
  }
  EXPECT_EQ(described(reader.finish().single),
            "ID_2:1;Id_2_2:1;NAME:1;Name_2:1;name_3:1;name_2_2:1;");
}

TEST(FileColumns, ManySpellingsOfANameTakeNoTime) {
  FileColumnsReader reader;
  for (int i = 0; i < 2'048; ++i) {
    std::string name = "abcdefghijk";
    for (int bit = 0; bit < 11; ++bit) {
      if ((i >> bit & 1) != 0) name[static_cast<std::size_t>(bit)] -= 'a' - 'A';
    }
    reader.add(name, item({"D", "1"}));
  }
  EXPECT_EQ(reader.finish().single.size(), 1'999u) << "and the id";
}

TEST(FileColumns, SqlNamesIgnoreTheCaseOfAsciiLettersOnly) {
  EXPECT_TRUE(isSameSqlName("Name_1", "nAME_1"));
  EXPECT_FALSE(isSameSqlName("Ä", "ä"));
  EXPECT_FALSE(isSameSqlName("a", "ab"));
}

}  // namespace
}  // namespace nox::agent
