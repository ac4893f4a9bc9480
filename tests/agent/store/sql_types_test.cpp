#include "agent/store/sqlite/sql_types.h"

#include <gtest/gtest.h>

namespace nox::agent {
namespace {

TEST(SqlTypes, ATypeIsKnownByTheWordsInIt) {
  const auto code = [](const char* declaration) { return columnOfType(declaration).dataType; };
  EXPECT_EQ(code("BIGINT"), SqlType::kInteger);
  EXPECT_EQ(code("CHARINT"), SqlType::kInteger) << "the first rule that fits";
  EXPECT_EQ(code("varchar(20)"), SqlType::kText);
  EXPECT_EQ(code("CLOB"), SqlType::kText);
  EXPECT_EQ(code("BLOB"), SqlType::kBlob);
  EXPECT_EQ(code(""), SqlType::kText);
  EXPECT_EQ(code("any"), SqlType::kText);
  EXPECT_EQ(code("DOUBLE PRECISION"), SqlType::kReal);
  EXPECT_EQ(code("float"), SqlType::kReal);
  EXPECT_EQ(code("DECIMAL(10,2)"), SqlType::kNumeric);
  EXPECT_EQ(code("DATE"), SqlType::kNumeric);
}

TEST(SqlTypes, PrecisionAndScaleAreThoseOfTheDeclaration) {
  const SqlColumn column = columnOfType("DECIMAL( 10 , 2 )");
  EXPECT_EQ(column.precision, 10);
  EXPECT_EQ(column.scale, 2);
  EXPECT_EQ(column.displayWidth, 10);
  EXPECT_EQ(columnOfType("VARCHAR(").precision, 0);
  EXPECT_EQ(columnOfType("VARCHAR(x)").precision, 0);
  EXPECT_EQ(columnOfType("VARCHAR(-5)").precision, 0);
  EXPECT_EQ(columnOfType("VARCHAR(99999999999999)").precision, 0);
}

TEST(SqlTypes, TheNameIsTheDeclarationOrTheType) {
  EXPECT_EQ(columnOfType("Varchar(20)").typeName, "Varchar(20)");
  EXPECT_EQ(columnOfType("").typeName, "TEXT");
}

}  // namespace
}  // namespace nox::agent
