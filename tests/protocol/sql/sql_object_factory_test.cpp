#include "nox/protocol/sql/sql_object_factory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "nox/core/exceptions.h"
#include "tests/support/caught.h"
#include "tests/support/log_capture.h"

namespace nox::noxp::sql {
namespace {

using ::testing::Contains;

struct Row {
  int code;
  const char* name;
};

// In the order of registration.
constexpr Row kCatalogue[] = {
    {503, "OKResponse"},
    {102, "ErrorResponse"},
    {229, "SetPropertiesRequestProt"},
    {312, "SetPropertiesResponseProt"},
    {2, "CompileRequest"},
    {3, "PrecompileRequest"},
    {4, "ExecuteRequest"},
    {5, "BindRequest"},
    {6, "FetchRequest"},
    {16, "DatabaseMetaDataRequest"},
    {7, "MetaDataRequest"},
    {8, "ReleaseStatementRequest"},
    {9, "LoadSubroutineRequest"},
    {10, "CallSubroutineRequest"},
    {11, "TransactionStartRequest"},
    {12, "TransactionCommitRequest"},
    {13, "TransactionRollbackRequest"},
    {14, "CompileAndExecuteRequest"},
    {103, "ACEBinaryFormatParameterListProt"},
    {113, "SQLResponseProt"},
    {119, "SQLErrorResponseProtProt"},
    {403, "SQLErrorResponseProt"},
    {106, "ResultSetProt"},
    {107, "RowProt"},
    {114, "SQLOKResponse"},
    {115, "SQLUpdateResponse"},
    {116, "SQLResultResponse"},
    {117, "SQLRSMDResponse"},
    {118, "SQLParamsResponse"},
    {104, "ResultSetMetaDataProt"},
    {105, "ColumnMetaDataProt"},
    {305, "InputOutputResponseProt"},
};

TEST(SQLObjectFactory, KnowsItsCatalogueAndNothingElse) {
  SQLObjectFactory factory;
  std::vector<const char*> names(1000);
  for (const Row& row : kCatalogue) names[row.code] = row.name;
  for (int code = 0; code < 1000; ++code) {
    if (names[code]) {
      EXPECT_STREQ(factory.getTypeName(code), names[code]);
      const std::unique_ptr<Serializable> object(factory.createObject(code));
      ASSERT_NE(object, nullptr);
      EXPECT_EQ(object->getType(), code);
    } else {
      EXPECT_EQ(factory.getTypeName(code), nullptr);
      EXPECT_NE(test::caught<UnknownType>([&] { factory.createObject(code); }), nullptr) << code;
    }
  }
}

TEST(SQLObjectFactory, RegistersInOrder) {
  const auto lines = test::logged([] { SQLObjectFactory(); });
  if (!kLoggerOutput) return;
  std::vector<std::string> expected;
  for (const Row& row : kCatalogue) {
    expected.push_back("ObjectFactory::registerType: (" + std::to_string(row.code) + ") " +
                       row.name);
  }
  std::vector<std::string> registered;
  for (const std::string& line : lines) {
    if (line.rfind("ObjectFactory::registerType: ", 0) == 0) registered.push_back(line);
  }
  EXPECT_EQ(registered, expected);
}

TEST(SQLObjectFactory, MakesAnotherOfItself) {
  SQLObjectFactory factory;
  std::unique_ptr<Serializable> another;
  const auto lines = test::logged([&] { another.reset(factory.create()); });
  EXPECT_NE(dynamic_cast<SQLObjectFactory*>(another.get()), nullptr);
  if (kLoggerOutput) {
    EXPECT_THAT(lines, Contains("SQLObjectFactory::create()"));
  }
}

TEST(SQLObjectFactory, CopiesAndMoves) {
  SQLObjectFactory factory;
  SQLObjectFactory copy(factory);
  SQLObjectFactory moved(std::move(factory));
  EXPECT_STREQ(copy.getTypeName(2), "CompileRequest");
  EXPECT_STREQ(moved.getTypeName(2), "CompileRequest");
  EXPECT_EQ(factory.getTypeName(2), nullptr);  // NOLINT(bugprone-use-after-move): it is left empty
  factory = copy;
  const SQLObjectFactory& itself = factory;
  factory = itself;
  const std::unique_ptr<Serializable> object(factory.createObject(16));
  EXPECT_EQ(object->getType(), 16);
}

}  // namespace
}  // namespace nox::noxp::sql
