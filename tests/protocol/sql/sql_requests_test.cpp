#include "nox/protocol/sql/sql_requests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "nox/diag/logger.h"
#include "tests/support/allocation_counter.h"
#include "tests/support/messages.h"
#include "tests/support/recording_archive.h"

namespace nox::noxp::sql {
namespace {

using test::bytes;
using test::expectCopies;
using test::expectTravelsAs;
using test::fieldsOf;
using ::testing::ElementsAre;

ACEBinaryFormatParameterListProt* oneParameter() {
  auto* const list = new ACEBinaryFormatParameterListProt(1);
  list->setString(0, "x", 12);
  return list;
}

TEST(CompileRequest, SendsItsTextWithoutAName) {
  expectTravelsAs(CompileRequestProt(new NOXPString("SELECT")),
                  "4C  49 00 00 00 02  49 00 00 00 00  73 00 06 53 45 4C 45 43 54 3B  3B");
  CompileRequestProt request(new NOXPString("Q"));
  EXPECT_THAT(fieldsOf(request), ElementsAre("string -=Q"));
}

TEST(PrecompileRequest, SendsItsTextAsSql) {
  expectTravelsAs(PrecompileRequestProt(new NOXPString("Q")),
                  "4C  49 00 00 00 03  49 00 00 00 00  73 00 01 51 3B  3B");
  PrecompileRequestProt request(new NOXPString("Q"));
  EXPECT_THAT(fieldsOf(request), ElementsAre("string sql=Q"));
}

TEST(CompileAndExecuteRequest, SendsItsTextAsSql) {
  expectTravelsAs(CompileAndExecuteRequestProt(new NOXPString("Q")),
                  "4C  49 00 00 00 0E  49 00 00 00 00  73 00 01 51 3B  3B");
  CompileAndExecuteRequestProt request(new NOXPString("Q"));
  EXPECT_THAT(fieldsOf(request), ElementsAre("string sql=Q"));
}

TEST(SQLRequestStart, KeepsThePointerItIsGiven) {
  auto* const text = new NOXPString("Q");
  const CompileRequestProt request(text);
  EXPECT_EQ(request.getSQL(), text);
}

TEST(SQLRequestStart, MayLackItsText) {
  CompileRequestProt request(nullptr);
  EXPECT_EQ(request.getSQL(), nullptr);
  EXPECT_THAT(fieldsOf(request), ElementsAre("string -=null"));
  // Read into, it has one.
  const std::string body = bytes("4C 49 00 00 00 02 49 00 00 00 00 73 00 01 51 3B 3B");
  MemoryBufferInputStream in(body.data(), body.size());
  BinaryReader(nullptr, &in).readObject(&request);
  ASSERT_NE(request.getSQL(), nullptr);
  EXPECT_STREQ(request.getSQL()->c_str(), "Q");
}

/// An application's own request on the library's roots.
class OwnRequest : public Message<OwnRequest, 900, SQLRequestProt> {
public:
  OwnRequest() = default;
  using Message::Message;
  Archive& serialize(Archive& ar, unsigned int) override { return ar; }
};

TEST(SQLRequest, RootsServeApplicationsToo) {
  OwnRequest plain;
  EXPECT_EQ(plain.getStatementId(), 0);
  EXPECT_EQ(plain.getSQL()->length(), 0u);
  OwnRequest idOnly(4);
  EXPECT_EQ(idOnly.getStatementId(), 4);
  EXPECT_EQ(idOnly.getSQL(), nullptr);
  idOnly.setStatementId(5);
  EXPECT_EQ(idOnly.getStatementId(), 5);
  OwnRequest withText(6, std::string("Q"));
  EXPECT_EQ(withText.getStatementId(), 6);
  EXPECT_STREQ(withText.getSQL()->c_str(), "Q");
  OwnRequest adopting(7, new NOXPString("R"));
  EXPECT_STREQ(adopting.getSQL()->c_str(), "R");
  EXPECT_FALSE(plain.isServerSide());
}

TEST(ExecuteRequest, SendsTheStatementAlone) {
  ExecuteRequestProt request(5);
  EXPECT_EQ(request.getSQL(), nullptr);
  EXPECT_THAT(fieldsOf(request), ElementsAre("int statementId=5"));
  expectTravelsAs(request, "4C  49 00 00 00 04  49 00 00 00 00  49 00 00 00 05  3B");
  EXPECT_EQ(ExecuteRequestProt().getSQL()->length(), 0u);
}

TEST(BindRequest, SendsStatementAndParameters) {
  expectTravelsAs<ACEBinaryFormatParameterListProt>(
      BindRequestProt(7, new ACEBinaryFormatParameterListProt),
      "4C  49 00 00 00 05  49 00 00 00 00  49 00 00 00 07"
      "4C  49 00 00 00 67  49 00 00 00 00  49 00 00 00 00  3B  3B");
  expectTravelsAs<ACEBinaryFormatParameterListProt>(
      BindRequestProt(7, oneParameter()),
      "4C  49 00 00 00 05  49 00 00 00 00  49 00 00 00 07"
      "4C  49 00 00 00 67  49 00 00 00 00  49 00 00 00 01"
      "49 00 00 00 0C  49 00 00 00 00  6A 62 00 00 00 01 78 3B 3B  3B  3B");
  BindRequestProt request(7, nullptr);
  EXPECT_THAT(fieldsOf(request), ElementsAre("int statementId=7", "object params=null"));
  EXPECT_EQ(BindRequestProt().getParams()->count(), 0u);
}

TEST(BindRequest, NeedsNoFactoryForItsList) {
  BindRequestProt request(7, oneParameter());
  const auto read = test::roundTrip(request);
  ASSERT_EQ(read->getParams()->count(), 1u);
  EXPECT_EQ(read->getParams()->getParameterType(0), 12);
}

TEST(BindRequest, ANullListLeavesTheEmptyOne) {
  test::Classes<BindRequestProt> factory;
  const auto read = test::readAs<BindRequestProt>(
      test::framed(
          bytes("4C 49 00 00 00 05 49 00 00 00 00 49 00 00 00 01 4C 49 00 00 00 01 3B 3B")),
      factory);
  ASSERT_NE(read->getParams(), nullptr);
  EXPECT_EQ(read->getParams()->count(), 0u);
}

TEST(BindRequest, AFalseParameterCountAllocatesNothingAhead) {
  test::Classes<BindRequestProt> factory;
  const std::string frame =
      test::framed(bytes("4C 49 00 00 00 05 49 00 00 00 00 49 00 00 00 01"
                         "4C 49 00 00 00 67 49 00 00 00 00 49 7F FF FF FF 3B 3B"));
  const test::AllocationScope allocated;
  EXPECT_EQ(test::outcomeOf(frame, factory), "UnexpectedChar");
  EXPECT_LT(allocated.bytes(), (kLoggerOutput ? 1024u : 64u) << 10);  // log lines allocate
}

TEST(CallSubroutineRequest, TravelsAsABindRequestOfVersionZero) {
  CallSubroutineRequestProt request(9, oneParameter());
  request.setClassVersion(3);
  expectTravelsAs<ACEBinaryFormatParameterListProt>(
      request,
      "4C  49 00 00 00 0A  49 00 00 00 03  49 00 00 00 09"
      "4C  49 00 00 00 67  49 00 00 00 00  49 00 00 00 01"
      "49 00 00 00 0C  49 00 00 00 00  6A 62 00 00 00 01 78 3B 3B  3B  3B");
  EXPECT_EQ(CallSubroutineRequestProt().getParams()->count(), 0u);
}

TEST(FetchRequest, AsksForAThousandRowsByDefault) {
  FetchRequestProt request;
  EXPECT_EQ(request.getFetchSize(), 1000);
  expectTravelsAs(request,
                  "4C  49 00 00 00 06  49 00 00 00 00  49 00 00 00 00  49 00 00 03 E8  3B");
  FetchRequestProt other(3, 20);
  EXPECT_THAT(fieldsOf(other), ElementsAre("int statementId=3", "int fetchSize=20"));
}

TEST(FetchRequest, CutsItsSizeTo32Bits) {
  EXPECT_EQ(FetchRequestProt(1, 0xFFFFFFFFul).getFetchSize(), -1);
#if defined(__LP64__)
  EXPECT_EQ(FetchRequestProt(1, 0x100000005ul).getFetchSize(), 5);
#endif
}

TEST(MetaDataRequest, SendsTheStatement) {
  expectTravelsAs(MetaDataRequestProt(5), "4C  49 00 00 00 07  49 00 00 00 00  49 00 00 00 05  3B");
}

TEST(ReleaseStatementRequest, SendsTheStatement) {
  expectTravelsAs(ReleaseStatementRequestProt(5),
                  "4C  49 00 00 00 08  49 00 00 00 00  49 00 00 00 05  3B");
}

TEST(LoadSubroutineRequest, SendsTheSubroutineWithoutAName) {
  auto* const name = new NOXPString("SUB");
  LoadSubroutineRequestProt request(name);
  EXPECT_EQ(request.getSubroutine(), name);
  EXPECT_EQ(request.getSQL()->length(), 0u);
  EXPECT_THAT(fieldsOf(request), ElementsAre("string -=SUB"));
  expectTravelsAs(request, "4C  49 00 00 00 09  49 00 00 00 00  73 00 03 53 55 42 3B  3B");
}

TEST(DatabaseMetaDataRequest, SendsPropertyAndParameters) {
  DatabaseMetaDataRequestProt request("tables", oneParameter());
  EXPECT_EQ(request.getRequestProtedProperty(), "tables");
  EXPECT_EQ(fieldsOf(request)[0], "text requestedProperty=tables");
  EXPECT_EQ(fieldsOf(request)[1], "object params=type 103 version 0");
  expectTravelsAs<ACEBinaryFormatParameterListProt>(
      request,
      "4C  49 00 00 00 10  49 00 00 00 00  73 00 06 74 61 62 6C 65 73 3B"
      "4C  49 00 00 00 67  49 00 00 00 00  49 00 00 00 01"
      "49 00 00 00 0C  49 00 00 00 00  6A 62 00 00 00 01 78 3B 3B  3B  3B");
  request.getRequestProtedProperty() = "other";
  EXPECT_EQ(fieldsOf(request)[0], "text requestedProperty=other");
}

TEST(SqlRequests, CopyDeeply) {
  expectCopies(CompileRequestProt(new NOXPString("Q")));
  expectCopies(CompileRequestProt(nullptr));
  expectCopies(PrecompileRequestProt(new NOXPString("Q")));
  expectCopies(CompileAndExecuteRequestProt(new NOXPString("Q")));
  expectCopies(ExecuteRequestProt(5));
  expectCopies(BindRequestProt(7, oneParameter()));
  expectCopies(BindRequestProt(7, nullptr));
  expectCopies(CallSubroutineRequestProt(7, oneParameter()));
  expectCopies(FetchRequestProt(7, 8));
  expectCopies(MetaDataRequestProt(7));
  expectCopies(ReleaseStatementRequestProt(7));
  expectCopies(LoadSubroutineRequestProt(new NOXPString("S")));
  expectCopies(DatabaseMetaDataRequestProt("p", oneParameter()));
}

}  // namespace
}  // namespace nox::noxp::sql
