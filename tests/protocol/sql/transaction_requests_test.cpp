#include "nox/protocol/sql/transaction_requests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/messages.h"
#include "tests/support/recording_archive.h"

namespace nox::noxp::sql {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(TransactionStartRequest, SendsItsLevelOnlyWithAVersion) {
  TransactionStartRequestProt start(3);
  EXPECT_THAT(test::fieldsOf(start, 0), IsEmpty());
  EXPECT_THAT(test::fieldsOf(start, 1), ElementsAre("int isolationLevel=3"));
  EXPECT_THAT(test::fieldsOf(start, 0xFFFFFFFF), ElementsAre("int isolationLevel=3"));
  test::expectTravelsAs(start, "4C  49 00 00 00 0B  49 00 00 00 00  3B");
  EXPECT_EQ(test::roundTrip(start)->getIsolationLevel(), 0);

  start.setClassVersion(1);
  test::expectTravelsAs(start, "4C  49 00 00 00 0B  49 00 00 00 01  49 00 00 00 03  3B");
  EXPECT_EQ(test::roundTrip(start)->getIsolationLevel(), 3);
  EXPECT_EQ(TransactionStartRequestProt().getIsolationLevel(), 0);
}

TEST(TransactionCommitRequest, CarriesNothing) {
  test::expectTravelsAs(TransactionCommitRequestProt(), "4C  49 00 00 00 0C  49 00 00 00 00  3B");
}

TEST(TransactionRollbackRequest, CarriesNothing) {
  test::expectTravelsAs(TransactionRollbackRequestProt(), "4C  49 00 00 00 0D  49 00 00 00 00  3B");
}

TEST(SqlTransactionRequests, Copy) {
  test::expectCopies(TransactionStartRequestProt(2));
  test::expectCopies(TransactionCommitRequestProt());
  test::expectCopies(TransactionRollbackRequestProt());
}

}  // namespace
}  // namespace nox::noxp::sql
