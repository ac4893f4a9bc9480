#include "nox/protocol/remote/select_list_requests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "nox/core/exceptions.h"
#include "tests/protocol/remote/list_of_a.h"
#include "tests/support/caught.h"
#include "tests/support/log_capture.h"
#include "tests/support/messages.h"
#include "tests/support/recording_archive.h"

namespace nox::noxp::remote {
namespace {

using test::bytes;
using test::expectCopies;
using test::expectTravelsAs;
using test::fieldsOf;
using test::framed;
using test::frameOf;
using test::logged;
using test::readAs;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kNoList = "4C  49 00 00 01 94  49 00 00 00 00  49 FF FF FF FF  3B";

/// Reads a body as a Message that knows select lists.
template <class Message>
std::unique_ptr<Message> readRequest(const std::string& hexBody) {
  test::Classes<Message, SelectListProt> factory;
  return readAs<Message>(framed(bytes(hexBody)), factory);
}

TEST(SelectListFetchRequest, TravelsAsIdDirectionSizeDataAndList) {
  SelectListProt list = listOfA();
  expectTravelsAs<SelectListProt>(SelectListFetchRequestProt(3, -1, 50, true, &list),
                                  "4C  49 00 00 00 E6  49 00 00 00 00"
                                  "49 00 00 00 03"    // "selectListId" 3
                                  "49 FF FF FF FF"    // "fetchDirection" -1
                                  "49 00 00 00 32"    // "fetchSize" 50
                                  "49 00 00 00 01" +  // "fetchData" 1
                                      kListOfA +
                                      "3B");
}

TEST(SelectListFetchRequest, AsksForAThousandKeysWithoutRecordsByDefault) {
  SelectListFetchRequestProt request;
  EXPECT_EQ(request.getSelectListId(), -1);
  EXPECT_EQ(request.getFetchDirection(), 1);
  EXPECT_EQ(request.getFetchSize(), 1000u);
  EXPECT_FALSE(request.getFetchData());
  expectTravelsAs<SelectListProt>(request,
                                  "4C  49 00 00 00 E6  49 00 00 00 00"
                                  "49 FF FF FF FF  49 00 00 00 01  49 00 00 03 E8  49 00 00 00 00" +
                                      kNoList + "3B");
}

TEST(SelectListFetchRequest, NamesItsFields) {
  SelectListFetchRequestProt request(3, 1, 50, true, nullptr);
  EXPECT_THAT(fieldsOf(request),
              ElementsAre("int selectListId=3", "int fetchDirection=1", "int fetchSize=50",
                          "int fetchData=1", "object modifiedSelectList=null"));
}

TEST(SelectListFetchRequest, CutsItsSizeTo32Bits) {
  SelectListFetchRequestProt largest(3, 1, 4294967295u, false, nullptr);
  EXPECT_EQ(largest.getFetchSize(), 4294967295u);
  EXPECT_EQ(fieldsOf(largest)[2], "int fetchSize=-1");
  const auto read = readRequest<SelectListFetchRequestProt>(
      "4C  49 00 00 00 E6  49 00 00 00 00"
      "49 00 00 00 03  49 00 00 00 01  49 FF FF FF FF  49 00 00 00 00" +
      kNoList + "3B");
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(read->getFetchSize(), 4294967295u);
  if (sizeof(unsigned long) > 4) {
    const auto beyond32Bits = static_cast<unsigned long>((std::uint64_t{1} << 32) + 5);
    EXPECT_EQ(SelectListFetchRequestProt(3, 1, beyond32Bits, false, nullptr).getFetchSize(), 5u);
  }
}

TEST(SelectListFetchRequest, TakesAnyOtherMarkThanOneForNoData) {
  for (const char* fetchData : {"49 00 00 00 02", "49 FF FF FF FF"}) {
    SCOPED_TRACE(fetchData);
    const auto read = readRequest<SelectListFetchRequestProt>(
        "4C  49 00 00 00 E6  49 00 00 00 00  49 00 00 00 03  49 00 00 00 01  49 00 00 00 32" +
        std::string(fetchData) + kNoList + "3B");
    ASSERT_NE(read, nullptr);
    EXPECT_FALSE(read->getFetchData());
  }
}

TEST(SelectListRequests, BorrowTheListOfAClient) {
  SelectListProt list;
  SelectListFetchRequestProt fetch(3, 1, 50, true, &list);
  SelectListCommitRequestProt commit(&list);
  EXPECT_EQ(fetch.getModifiedSelectList(), &list);
  EXPECT_EQ(commit.getModifiedSelectList(), &list);
  EXPECT_FALSE(fetch.isServerSide());
  EXPECT_FALSE(commit.isServerSide());
  EXPECT_FALSE(SelectListCloseRequestProt(3).isServerSide());
}

TEST(SelectListRequests, OwnAnEmptyListByDefault) {
  SelectListFetchRequestProt fetch;
  SelectListCommitRequestProt commit;
  ASSERT_NE(fetch.getModifiedSelectList(), nullptr);
  ASSERT_NE(commit.getModifiedSelectList(), nullptr);
  EXPECT_EQ(fetch.getModifiedSelectList()->getId(), -1);
  EXPECT_EQ(commit.getModifiedSelectList()->getId(), -1);
  EXPECT_TRUE(fetch.isServerSide());
  EXPECT_TRUE(commit.isServerSide());
  EXPECT_TRUE(SelectListCloseRequestProt().isServerSide());
}

TEST(SelectListRequests, ReadIntoTheListThatAClientLent) {
  SelectListProt list;
  SelectListCommitRequestProt request(&list);
  const std::string object = bytes("4C  49 00 00 00 E7  49 00 00 00 00" + kListOfA + "3B");
  MemoryBufferInputStream in(object.data(), object.size());
  BinaryReader(nullptr, &in).readObject(&request);
  EXPECT_EQ(request.getModifiedSelectList(), &list);
  EXPECT_EQ(list.size(), 1u);
}

TEST(SelectListRequests, OwnTheListTheyReadInPlaceOfNone) {
  SelectListCommitRequestProt request(nullptr);
  const std::string object = bytes("4C  49 00 00 00 E7  49 00 00 00 00" + kListOfA + "3B");
  MemoryBufferInputStream in(object.data(), object.size());
  BinaryReader(nullptr, &in).readObject(&request);
  ASSERT_NE(request.getModifiedSelectList(), nullptr);
  EXPECT_EQ(request.getModifiedSelectList()->size(), 1u);
}

TEST(SelectListRequests, SendNoListAsTheNullObjectAndReadItAsAnEmptyList) {
  SelectListFetchRequestProt fetch(3, 1, 50, false, nullptr);
  const std::string fetchBody =
      "4C  49 00 00 00 E6  49 00 00 00 00"
      "49 00 00 00 03  49 00 00 00 01  49 00 00 00 32  49 00 00 00 00" +
      kNull + "3B";
  EXPECT_BYTES(frameOf(fetch), framed(bytes(fetchBody)));
  const auto readFetch = readRequest<SelectListFetchRequestProt>(fetchBody);
  ASSERT_NE(readFetch, nullptr);
  EXPECT_EQ(readFetch->getModifiedSelectList()->getId(), -1);

  SelectListCommitRequestProt commit(nullptr);
  const std::string commitBody = "4C  49 00 00 00 E7  49 00 00 00 00" + kNull + "3B";
  EXPECT_BYTES(frameOf(commit), framed(bytes(commitBody)));
  const auto readCommit = readRequest<SelectListCommitRequestProt>(commitBody);
  ASSERT_NE(readCommit, nullptr);
  EXPECT_EQ(readCommit->getModifiedSelectList()->getId(), -1);
}

TEST(SelectListRequests, RefuseTheOlderKindOfList) {
  const auto error = test::caught<UnexpectedType>([] {
    test::Classes<SelectListCommitRequestProt, SelectListProt5> factory;
    test::readFrame(framed(bytes("4C  49 00 00 00 E7  49 00 00 00 00"
                                 "4C  49 00 00 01 91  49 00 00 00 00  6A 62 00 00 00 00 3B 3B  3B"
                                 "3B")),
                    factory);
  });
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->getActualType(), 401);
  EXPECT_EQ(error->getExpectedType(), 404);
}

TEST(SelectListRequests, CopyDeeplyAndOwnTheCopy) {
  auto list = std::make_unique<SelectListProt>(listOfA());
  auto fetch = std::make_unique<SelectListFetchRequestProt>(3, -1, 50, true, list.get());
  auto commit = std::make_unique<SelectListCommitRequestProt>(list.get());
  expectCopies(*fetch);
  expectCopies(*commit);
  expectCopies(SelectListCloseRequestProt(3));

  SelectListFetchRequestProt fetchCopy(*fetch);
  SelectListCommitRequestProt commitCopy(*commit);
  SelectListProt ownList;
  SelectListFetchRequestProt fetchTarget(1, 1, 1, false, &ownList);
  SelectListCommitRequestProt commitTarget(&ownList);
  fetchTarget = *fetch;
  commitTarget = *commit;
  fetch.reset();
  commit.reset();
  list.reset();
  for (SelectListProt* copy :
       {fetchCopy.getModifiedSelectList(), commitCopy.getModifiedSelectList(),
        fetchTarget.getModifiedSelectList(), commitTarget.getModifiedSelectList()}) {
    EXPECT_EQ(copy->size(), 1u);
  }
  for (const RequestProt* copy :
       {static_cast<RequestProt*>(&fetchCopy), static_cast<RequestProt*>(&commitCopy),
        static_cast<RequestProt*>(&fetchTarget), static_cast<RequestProt*>(&commitTarget)}) {
    EXPECT_TRUE(copy->isServerSide());
  }
  EXPECT_EQ(ownList.getId(), -1) << "the list that the target had borrowed";
}

TEST(SelectListRequests, GoOnBorrowingWhenAssignedToThemselves) {
  SelectListProt list;
  SelectListFetchRequestProt fetch(3, 1, 50, true, &list);
  const SelectListFetchRequestProt& sameFetch = fetch;
  fetch = sameFetch;
  EXPECT_EQ(fetch.getModifiedSelectList(), &list);
  EXPECT_FALSE(fetch.isServerSide());
  SelectListCommitRequestProt commit(&list);
  const SelectListCommitRequestProt& sameCommit = commit;
  commit = sameCommit;
  EXPECT_EQ(commit.getModifiedSelectList(), &list);
  EXPECT_FALSE(commit.isServerSide());
}

TEST(SelectListCommitRequest, TravelsAsItsList) {
  SelectListProt list = listOfA();
  SelectListCommitRequestProt request(&list);
  expectTravelsAs<SelectListProt>(request, "4C  49 00 00 00 E7  49 00 00 00 00" + kListOfA + "3B");
  expectTravelsAs<SelectListProt>(SelectListCommitRequestProt(),
                                  "4C  49 00 00 00 E7  49 00 00 00 00" + kNoList + "3B");
  EXPECT_EQ(fieldsOf(request)[0], "object modifiedSelectList=type 404 version 0");
}

TEST(SelectListCloseRequest, TravelsAsItsId) {
  SelectListCloseRequestProt request(3);
  EXPECT_EQ(request.getSelectListId(), 3);
  EXPECT_THAT(fieldsOf(request), ElementsAre("int selectListId=3"));
  expectTravelsAs(request, "4C  49 00 00 00 E8  49 00 00 00 00  49 00 00 00 03  3B");
  expectTravelsAs(SelectListCloseRequestProt(),
                  "4C  49 00 00 00 E8  49 00 00 00 00  49 FF FF FF FF  3B");
}

TEST(SelectListFetchResponse, TravelsAsTheListItTakesOver) {
  auto* list = new SelectListProt(listOfA());
  SelectListFetchResponseProt response(list);
  EXPECT_EQ(response.getSelectList(), list);
  EXPECT_EQ(fieldsOf(response)[0], "object selectList=type 404 version 0");
  expectTravelsAs<SelectListProt>(response, "4C  49 00 00 01 3A  49 00 00 00 00" + kListOfA + "3B");
  expectCopies(response);
  EXPECT_NE(SelectListFetchResponseProt(response).getSelectList(), list);
}

TEST(SelectListFetchResponse, HasNoListUntilItIsRead) {
  SelectListFetchResponseProt response;
  EXPECT_EQ(response.getSelectList(), nullptr);
  const std::string body = "4C  49 00 00 01 3A  49 00 00 00 00" + kNull + "3B";
  EXPECT_BYTES(frameOf(response), framed(bytes(body)));
  expectCopies(response);
  const auto read = readRequest<SelectListFetchResponseProt>(body);
  ASSERT_NE(read, nullptr);
  ASSERT_NE(read->getSelectList(), nullptr);
  EXPECT_EQ(read->getSelectList()->getId(), -1);
}

TEST(SelectListRequests, LeaveTheLastWordToTheirLists) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build writes no log lines";
  const auto lastWord = ElementsAre("SelectListProt::~SelectListProt() [id = -1]");
  EXPECT_THAT(logged([] { SelectListFetchRequestProt request; }), lastWord);
  EXPECT_THAT(logged([] { SelectListCommitRequestProt request; }), lastWord);
  EXPECT_THAT(logged([] { SelectListFetchResponseProt reply(new SelectListProt); }), lastWord);
  EXPECT_THAT(logged([] { SelectListCloseRequestProt request; }), IsEmpty());
  SelectListProt list;
  EXPECT_THAT(logged([&] { SelectListCommitRequestProt request(&list); }), IsEmpty());
}

}  // namespace
}  // namespace nox::noxp::remote
