#include "nox/protocol/remote/statement_requests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "tests/protocol/remote/list_of_a.h"
#include "tests/support/contents.h"
#include "tests/support/log_capture.h"
#include "tests/support/messages.h"
#include "tests/support/recording_archive.h"

namespace nox::noxp::remote {
namespace {

using test::bytes;
using test::contentOf;
using test::expectCopies;
using test::expectTravelsAs;
using test::fieldsOf;
using test::framed;
using test::logged;
using test::readAs;
using ::testing::ElementsAre;

/// Gives every text field the same text.
class TextReader : public test::RecordingReader {
public:
  using test::RecordingReader::process;
  explicit TextReader(std::string text) : text_(std::move(text)) {}
  Archive& process(std::string& value, const char* name) override {
    value = text_;
    return test::RecordingReader::process(value, name);
  }

private:
  std::string text_;
};

TEST(StatementExecuteQueryRequest, TravelsAsQueryAndListFromVersionOneOn) {
  SelectListProt list = listOfA();
  StatementExecuteQueryRequestProt request("GET", &list);
  const std::string afterVersion =
      "6A 62 00 00 00 03 47 45 54 3B 3B"    // "_query" GET
      "4C  49 00 00 01 94  49 00 00 00 00"  // "selectList", type 404
      "49 00 00 00 00  49 00 00 00 01"      // "id" 0, "numKeys" 1
      "73 00 01 41 3B  49 00 00 00 00  3B"  // A, "hasRecords" 0
      "3B";
  request.setClassVersion(1);
  expectTravelsAs<SelectListProt>(request, "4C  49 00 00 00 E2  49 00 00 00 01" + afterVersion);
  request.setClassVersion(2);
  expectTravelsAs<SelectListProt>(request, "4C  49 00 00 00 E2  49 00 00 00 02" + afterVersion);
  request.setClassVersion(-1);
  expectTravelsAs<SelectListProt>(request, "4C  49 00 00 00 E2  49 FF FF FF FF" + afterVersion);
}

TEST(StatementExecuteQueryRequest, TravelsAsTextAloneInVersionZero) {
  SelectListProt list = listOfA();
  expectTravelsAs<SelectListProt>(StatementExecuteQueryRequestProt("GET", &list),
                                  "4C  49 00 00 00 E2  49 00 00 00 00  73 00 03 47 45 54 3B  3B");
  expectTravelsAs<SelectListProt>(StatementExecuteQueryRequestProt(),
                                  "4C  49 00 00 00 E2  49 00 00 00 00  73 00 00 3B  3B");
}

TEST(StatementExecuteQueryRequest, NamesItsFieldsAlikeInAllVersions) {
  SelectListProt list;
  StatementExecuteQueryRequestProt request("GET", &list);
  EXPECT_THAT(fieldsOf(request, 0), ElementsAre("text _query=GET"));
  EXPECT_THAT(fieldsOf(request, 1),
              ElementsAre("blob _query=47 45 54", "object selectList=type 404 version 0",
                          "int id=-1", "end"));
}

TEST(StatementExecuteQueryRequest, HandsAllBytesOfItsQueryToTheArchiveInVersionZero) {
  StatementExecuteQueryRequestProt request(new NOXPBlob("a\0\xFE", 3), nullptr);
  EXPECT_THAT(fieldsOf(request, 0), ElementsAre(std::string("text _query=a\0\xFE", 15)));

  TextReader reader(std::string("b\0c", 3));
  request.serialize(reader, 0);
  EXPECT_EQ(contentOf(request.getQuery()), std::string("b\0c", 3));
  EXPECT_THAT(reader.lines(), ElementsAre("text _query"));
}

TEST(StatementExecuteQueryRequest, KeepsItsListWhenVersionZeroIsRead) {
  SelectListProt list = listOfA();
  StatementExecuteQueryRequestProt request("OLD", &list);
  TextReader reader("NEW");
  request.serialize(reader, 0);
  EXPECT_EQ(contentOf(request.getQuery()), "NEW");
  EXPECT_EQ(request.getSelectList(), &list);
  EXPECT_EQ(list.size(), 1u);
}

TEST(StatementExecuteQueryRequest, KeepsTheVersionItWasSerializedWith) {
  StatementExecuteQueryRequestProt request;
  fieldsOf(request, 2);
  EXPECT_EQ(request.getSerializedVersion(), 2u);
  test::Classes<StatementExecuteQueryRequestProt> factory;
  const auto read = readAs<StatementExecuteQueryRequestProt>(
      framed(bytes("4C  49 00 00 00 E2  49 00 00 00 07"
                   "6A 62 00 00 00 01 51 3B 3B  4C 49 00 00 00 01 3B  3B")),
      factory);
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(read->getSerializedVersion(), 7u);
  EXPECT_EQ(contentOf(read->getQuery()), "Q");
  ASSERT_NE(read->getSelectList(), nullptr);
  EXPECT_EQ(read->getSelectList()->getId(), -1);
}

TEST(StatementExecuteQueryRequest, TakesTheBlobAndBorrowsTheList) {
  auto* query = new NOXPBlob("GET");
  SelectListProt list;
  StatementExecuteQueryRequestProt request(query, &list);
  EXPECT_EQ(request.getQuery(), query);
  EXPECT_EQ(request.getSelectList(), &list);
  EXPECT_FALSE(request.ownsSelectList());
  EXPECT_FALSE(request.isServerSide());
}

TEST(StatementExecuteQueryRequest, OwnsAnEmptyListByDefault) {
  StatementExecuteQueryRequestProt request;
  ASSERT_NE(request.getSelectList(), nullptr);
  EXPECT_EQ(request.getSelectList()->getId(), -1);
  EXPECT_TRUE(request.ownsSelectList());
  EXPECT_TRUE(request.isServerSide());
  EXPECT_EQ(request.getQuery()->length(), 0u);
}

TEST(StatementExecuteQueryRequest, TakesNullAsAnEmptyQueryAndNoList) {
  NOXPBlob* noBlob = nullptr;
  const char* noText = nullptr;
  StatementExecuteQueryRequestProt fromBlob(noBlob, nullptr);
  StatementExecuteQueryRequestProt fromText(noText, nullptr);
  EXPECT_THAT(fieldsOf(fromBlob, 1), ElementsAre("blob _query=", "object selectList=null"));
  EXPECT_THAT(fieldsOf(fromText, 1), ElementsAre("blob _query=", "object selectList=null"));
}

TEST(StatementExecuteQueryRequest, CopiesDeeplyAndOwnsTheCopy) {
  auto list = std::make_unique<SelectListProt>(listOfA());
  auto original = std::make_unique<StatementExecuteQueryRequestProt>("GET", list.get());
  expectCopies(*original);

  StatementExecuteQueryRequestProt fromReference(*original);
  StatementExecuteQueryRequestProt fromPointer(original.get());
  SelectListProt ownList;
  StatementExecuteQueryRequestProt assigned("OLD", &ownList);
  assigned = *original;
  original.reset();
  list.reset();
  const auto fields =
      ElementsAre("blob _query=47 45 54", "object selectList=type 404 version 0", "int id=0",
                  "int numKeys=1", "text -=A", "int hasRecords=0", "end");
  for (StatementExecuteQueryRequestProt* copy : {&fromReference, &fromPointer, &assigned}) {
    EXPECT_THAT(fieldsOf(*copy, 1), fields);
    EXPECT_TRUE(copy->ownsSelectList());
  }

  const StatementExecuteQueryRequestProt* nothing = nullptr;
  EXPECT_EQ(StatementExecuteQueryRequestProt(nothing).getQuery()->length(), 0u);
  EXPECT_FALSE(
      (std::is_convertible_v<StatementExecuteQueryRequestProt*, StatementExecuteQueryRequestProt>));
}

TEST(StatementExecuteQueryRequest, GoesOnBorrowingWhenAssignedToItself) {
  SelectListProt list;
  StatementExecuteQueryRequestProt request("GET", &list);
  const StatementExecuteQueryRequestProt& itself = request;
  request = itself;
  EXPECT_EQ(request.getSelectList(), &list);
  EXPECT_EQ(contentOf(request.getQuery()), "GET");
}

TEST(StatementExecuteQueryRequest, LeavesTheLastWordToItsList) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build writes no log lines";
  EXPECT_THAT(logged([] { StatementExecuteQueryRequestProt request; }),
              ElementsAre("SelectListProt::~SelectListProt() [id = -1]"));
}

TEST(StatementFetchRequest, TravelsAsStatementIdAndRowsToFetch) {
  expectTravelsAs(StatementFetchRequestProt(3, -1),
                  "4C  49 00 00 00 E3  49 00 00 00 00  49 00 00 00 03  49 FF FF FF FF  3B");
  expectTravelsAs(StatementFetchRequestProt(),
                  "4C  49 00 00 00 E3  49 00 00 00 00  49 00 00 00 00  49 00 00 00 00  3B");
}

TEST(StatementFetchRequest, NamesGivesAndCopiesItsFields) {
  StatementFetchRequestProt request(3, 100);
  EXPECT_THAT(fieldsOf(request), ElementsAre("int _statementId=3", "int _rowsToFetch=100"));
  EXPECT_EQ(request.getStatementId(), 3);
  EXPECT_EQ(request.getRowsToFetch(), 100);
  expectCopies(request);
  const StatementFetchRequestProt copy(&request);
  EXPECT_EQ(copy.getStatementId(), 3);
  EXPECT_EQ(copy.getRowsToFetch(), 100);

  const StatementFetchRequestProt* nothing = nullptr;
  EXPECT_EQ(StatementFetchRequestProt(nothing).getRowsToFetch(), 0);
  EXPECT_FALSE((std::is_convertible_v<StatementFetchRequestProt*, StatementFetchRequestProt>));
}

}  // namespace
}  // namespace nox::noxp::remote
