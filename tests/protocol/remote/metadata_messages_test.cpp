#include "nox/protocol/remote/metadata_messages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "nox/core/exceptions.h"
#include "tests/protocol/remote/list_of_a.h"
#include "tests/support/caught.h"
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
using test::frameOf;
using test::logged;
using test::readAs;
using ::testing::Contains;
using ::testing::ElementsAre;

const std::string kProductNameKey =
    "6A 62 00 00 00 10  45 49 53 5F 50 52 4F 44 55 43 54 5F 4E 41 4D 45  3B 3B";
const std::string kProductVersionKey =
    "6A 62 00 00 00 13  45 49 53 5F 50 52 4F 44 55 43 54 5F 56 45 52 53 49 4F 4E  3B 3B";
const std::string kMaxConnectionsKey =
    "6A 62 00 00 00 13  45 49 53 5F 4D 41 58 5F 43 4F 4E 4E 45 43 54 49 4F 4E 53  3B 3B";
const std::string kUserNameKey = "6A 62 00 00 00 0D  45 49 53 5F 55 53 45 52 5F 4E 41 4D 45  3B 3B";

/// Name N, version V, 9 connections; the user is not known.
const std::string kThreeFacts =
    "4C  49 00 00 01 39  49 00 00 00 00"
    "49 00 00 00 04" +  // "numberOfRows" 4
    kProductNameKey +
    "6A 62 00 00 00 01 4E 3B 3B" + kProductVersionKey + "6A 62 00 00 00 01 56 3B 3B" +
    kMaxConnectionsKey + "6A 62 00 00 00 01 39 3B 3B" + kUserNameKey;

MetaDataRepositoryProt threeFacts() {
  MetaDataRepositoryProt repository;
  repository.setRepositoryEntry("EIS_PRODUCT_NAME", std::string("N"));
  repository.setRepositoryEntry("EIS_PRODUCT_VERSION", std::string("V"));
  repository.setRepositoryEntry("EIS_MAX_CONNECTIONS", std::string("9"));
  return repository;
}

TEST(EISMetaDataRequest, TravelsAsItsTypeAlone) {
  expectTravelsAs(EISMetaDataRequestProt(), "4C  49 00 00 00 DE  49 00 00 00 00  3B");
  expectCopies(EISMetaDataRequestProt());
}

TEST(EISMetaDataRequest, NamesAnotherClassWhenItEnds) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build writes no log lines";
  EXPECT_THAT(logged([] { EISMetaDataRequestProt request; }),
              ElementsAre("RollbackTransactionRequestProt::~EISMetaDataRequestProt\n"));
}

TEST(EISMetaDataResponse, TravelsAsFourFactsEachBehindItsKey) {
  MetaDataRepositoryProt repository = threeFacts();
  repository.setRepositoryEntry("ANOTHER", std::string("fact"));
  EISMetaDataResponseProt response(&repository);
  EXPECT_BYTES(frameOf(response), framed(bytes(kThreeFacts + kNull + "3B")));
  // The repository is as before: the next reply says the same.
  EXPECT_BYTES(frameOf(response), framed(bytes(kThreeFacts + kNull + "3B")));
  repository.setRepositoryEntry("EIS_USER_NAME", std::string("U"));
  EXPECT_BYTES(frameOf(response), framed(bytes(kThreeFacts + "6A 62 00 00 00 01 55 3B 3B" + "3B")));
}

TEST(EISMetaDataResponse, SendsNullsWithoutARepository) {
  EISMetaDataResponseProt response;
  EXPECT_EQ(response.getRepository(), nullptr);
  EXPECT_BYTES(frameOf(response),
               framed(bytes("4C  49 00 00 01 39  49 00 00 00 00  49 00 00 00 04" + kProductNameKey +
                            kNull + kProductVersionKey + kNull + kMaxConnectionsKey + kNull +
                            kUserNameKey + kNull + "3B")));
}

TEST(EISMetaDataResponse, NamesItsFields) {
  MetaDataRepositoryProt repository = threeFacts();
  EISMetaDataResponseProt response(&repository);
  EXPECT_THAT(
      fieldsOf(response),
      ElementsAre("int numberOfRows=4",
                  "blob productNameKey=45 49 53 5F 50 52 4F 44 55 43 54 5F 4E 41 4D 45",
                  "blob productName=4E",
                  "blob productVersionKey=45 49 53 5F 50 52 4F 44 55 43 54 5F 56 45 52 53 49 4F 4E",
                  "blob productVersion=56",
                  "blob maxConnectionsKey=45 49 53 5F 4D 41 58 5F 43 4F 4E 4E 45 43 54 49 4F 4E 53",
                  "blob maxConnections=39",
                  "blob userNameKey=45 49 53 5F 55 53 45 52 5F 4E 41 4D 45", "blob userName=null"));
}

TEST(EISMetaDataResponse, BorrowsItsRepositoryAndSoDoItsCopies) {
  MetaDataRepositoryProt repository = threeFacts();
  {
    EISMetaDataResponseProt response(&repository);
    const EISMetaDataResponseProt copy(response);
    EXPECT_EQ(response.getRepository(), &repository);
    EXPECT_EQ(copy.getRepository(), &repository);
    expectCopies(response);
  }
  EXPECT_EQ(contentOf(repository.getRepositoryEntry("EIS_PRODUCT_NAME")), "N");
}

TEST(EISMetaDataResponse, CannotBeRead) {
  test::Classes<EISMetaDataResponseProt> factory;
  const test::LogCapture log;
  const auto error = test::caught<AssertionFailure>([&] {
    test::readFrame(bytes("00 00 00 0E 5B 4C 49 00 00 01 39 49 00 00 00 00 3B 5D"), factory);
  });
  ASSERT_NE(error, nullptr);
  EXPECT_STREQ(error->what(), "false");
  if (kLoggerOutput) {
    EXPECT_THAT(log.texts(critical), ElementsAre("false"));
  }
}

TEST(EISMetaDataReply, ReadsWhatTheServersClassSends) {
  test::Classes<EISMetaDataReplyProt> factory;
  const auto reply =
      readAs<EISMetaDataReplyProt>(framed(bytes(kThreeFacts + kNull + "3B")), factory);
  ASSERT_NE(reply, nullptr);
  EXPECT_EQ(reply->getNumberOfRows(), 4);
  EXPECT_EQ(contentOf(reply->getProductNameKey()), "EIS_PRODUCT_NAME");
  EXPECT_EQ(contentOf(reply->getProductName()), "N");
  EXPECT_EQ(contentOf(reply->getProductVersionKey()), "EIS_PRODUCT_VERSION");
  EXPECT_EQ(contentOf(reply->getProductVersion()), "V");
  EXPECT_EQ(contentOf(reply->getMaxConnectionsKey()), "EIS_MAX_CONNECTIONS");
  EXPECT_EQ(contentOf(reply->getMaxConnections()), "9");
  EXPECT_EQ(contentOf(reply->getUserNameKey()), "EIS_USER_NAME");
  EXPECT_EQ(contentOf(reply->getUserName()), "");
  EXPECT_THAT(fieldsOf(*reply), Contains("blob productVersion=56"));
  expectCopies(*reply);
  expectTravelsAs(*reply, kThreeFacts + "6A 62 00 00 00 00 3B 3B" + "3B");
}

}  // namespace
}  // namespace nox::noxp::remote
