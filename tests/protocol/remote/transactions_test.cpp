#include "nox/protocol/remote/transactions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/log_capture.h"
#include "tests/support/messages.h"
#include "tests/support/recording_archive.h"

namespace nox::noxp::remote {
namespace {

using test::bytes;
using test::expectCopies;
using test::expectTravelsAs;
using test::fieldsOf;
using test::logged;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// The body of an XA request of this type, for the branch T1 of format 7.
std::string branchBody(const char* type) {
  return std::string("4C  49 00 00 00 ") + type +
         " 49 00 00 00 00"                        // class version 0
         "4C  49 00 00 01 92  49 00 00 00 00"     // object, type 402, version 0
         "73 00 02 54 31 3B  49 00 00 00 07  3B"  // "_transactionId" T1, "_format" 7
         "3B";
}

TEST(LocalTransactionRequests, TravelAsTheirTypeAlone) {
  expectTravelsAs(BeginTransactionRequestProt(), "4C  49 00 00 00 D3  49 00 00 00 00  3B");
  expectTravelsAs(CommitTransactionRequestProt(), "4C  49 00 00 00 D4  49 00 00 00 00  3B");
  expectTravelsAs(RollbackTransactionRequestProt(), "4C  49 00 00 00 D5  49 00 00 00 00  3B");
}

TEST(LocalTransactionRequests, KeepTheirVersionWhenCopied) {
  expectCopies(BeginTransactionRequestProt());
  expectCopies(CommitTransactionRequestProt());
  expectCopies(RollbackTransactionRequestProt());
}

TEST(XAXid, TravelsAsTransactionIdAndFormat) {
  XAXidProt xid;
  xid.setTransactionId("T1");
  xid.setFormat(-2);
  expectTravelsAs(xid,
                  "4C  49 00 00 01 92  49 00 00 00 00"
                  "73 00 02 54 31 3B  49 FF FF FF FE  3B");
  EXPECT_THAT(fieldsOf(xid), ElementsAre("string _transactionId=T1", "int _format=-2"));
  expectTravelsAs(XAXidProt(),
                  "4C  49 00 00 01 92  49 00 00 00 00  73 00 00 3B  49 00 00 00 00  3B");
}

TEST(XAXid, StoresACopyOfTheTransactionId) {
  NOXPString id("T1");
  XAXidProt xid;
  xid.setTransactionId(&id);
  id = "changed";
  EXPECT_STREQ(xid.getTransactionId()->c_str(), "T1");
  xid.setTransactionId(xid.getTransactionId());
  EXPECT_STREQ(xid.getTransactionId()->c_str(), "T1");
  xid.setTransactionId(nullptr);
  EXPECT_STREQ(xid.getTransactionId()->c_str(), "");
}

TEST(XAXid, IsCopiedWithoutItsFormat) {
  auto original = std::make_unique<XAXidProt>();
  original->setTransactionId("T1");
  original->setFormat(7);
  original->setClassVersion(3);

  XAXidProt fromReference(*original);
  XAXidProt fromPointer(original.get());
  original.reset();
  EXPECT_STREQ(fromReference.getTransactionId()->c_str(), "T1");
  EXPECT_EQ(fromReference.getFormat(), 0);
  EXPECT_EQ(fromReference.getClassVersion(), 3);
  EXPECT_STREQ(fromPointer.getTransactionId()->c_str(), "T1");
  EXPECT_EQ(fromPointer.getFormat(), 0);
  EXPECT_EQ(fromPointer.getClassVersion(), 3);

  const XAXidProt* nothing = nullptr;
  EXPECT_STREQ(XAXidProt(nothing).getTransactionId()->c_str(), "");
  EXPECT_FALSE((std::is_convertible_v<XAXidProt*, XAXidProt>));
}

TEST(XAXid, KeepsItsOwnFormatWhenAssigned) {
  XAXidProt original;
  original.setTransactionId("T1");
  original.setFormat(7);
  XAXidProt target;
  target = original;
  EXPECT_STREQ(target.getTransactionId()->c_str(), "T1");
  EXPECT_EQ(target.getFormat(), 0);

  target.setFormat(5);
  target = original;
  EXPECT_EQ(target.getFormat(), 5);

  const XAXidProt& itself = original;
  original = itself;
  EXPECT_STREQ(original.getTransactionId()->c_str(), "T1");
  EXPECT_EQ(original.getFormat(), 7);
}

template <class Request>
class XARequest : public ::testing::Test {};

/// What distinguishes the five requests.
template <class Request>
struct Branch;
template <>
struct Branch<XAStartTransactionRequestProt> {
  static constexpr char kType[] = "D6", kName[] = "XAStartTransactionRequestProt";
};
template <>
struct Branch<XAEndTransactionRequestProt> {
  static constexpr char kType[] = "D7", kName[] = "XAEndTransactionRequestProt";
};
template <>
struct Branch<XAPrepareTransactionRequestProt> {
  static constexpr char kType[] = "D8", kName[] = "XAPrepareTransactionRequestProt";
};
template <>
struct Branch<XACommitTransactionRequestProt> {
  static constexpr char kType[] = "D9", kName[] = "XACommitTransactionRequestProt";
};
template <>
struct Branch<XARollbackTransactionRequestProt> {
  static constexpr char kType[] = "DA", kName[] = "XARollbackTransactionRequestProt";
};

using XARequests = ::testing::Types<XAStartTransactionRequestProt, XAEndTransactionRequestProt,
                                    XAPrepareTransactionRequestProt, XACommitTransactionRequestProt,
                                    XARollbackTransactionRequestProt>;
TYPED_TEST_SUITE(XARequest, XARequests, );

TYPED_TEST(XARequest, TravelsAsItsXid) {
  TypeParam request;
  request.getXid()->setTransactionId("T1");
  request.getXid()->setFormat(7);
  expectTravelsAs<XAXidProt>(request, branchBody(Branch<TypeParam>::kType));
}

TYPED_TEST(XARequest, LosesTheFormatInACopy) {
  auto original = std::make_unique<TypeParam>();
  original->getXid()->setTransactionId("T1");
  original->getXid()->setFormat(7);
  const TypeParam copy(*original);
  TypeParam assigned;
  assigned.getXid()->setFormat(5);
  assigned = *original;
  original.reset();
  EXPECT_STREQ(copy.getXid()->getTransactionId()->c_str(), "T1");
  EXPECT_EQ(copy.getXid()->getFormat(), 0);
  EXPECT_STREQ(assigned.getXid()->getTransactionId()->c_str(), "T1");
  EXPECT_EQ(assigned.getXid()->getFormat(), 0);
}

TYPED_TEST(XARequest, LeavesItselfAloneWhenAssignedToItself) {
  TypeParam request;
  request.getXid()->setTransactionId("T1");
  request.getXid()->setFormat(7);
  const TypeParam& itself = request;
  request = itself;
  EXPECT_STREQ(request.getXid()->getTransactionId()->c_str(), "T1");
  EXPECT_EQ(request.getXid()->getFormat(), 7);
}

TYPED_TEST(XARequest, NamesItsXidExceptForStart) {
  TypeParam request;
  const char* object = std::is_same_v<TypeParam, XAStartTransactionRequestProt>
                           ? "object -=type 402 version 0"
                           : "object _xid=type 402 version 0";
  EXPECT_THAT(fieldsOf(request),
              ElementsAre(object, "string _transactionId=", "int _format=0", "end"));
}

TYPED_TEST(XARequest, ReadsANullXidAsAnEmptyOne) {
  test::Classes<TypeParam, XAXidProt> factory;
  const auto read = test::readAs<TypeParam>(
      test::framed(bytes(std::string("4C  49 00 00 00 ") + Branch<TypeParam>::kType +
                         "49 00 00 00 00  4C 49 00 00 00 01 3B  3B")),
      factory);
  ASSERT_NE(read, nullptr);
  ASSERT_NE(read->getXid(), nullptr);
  EXPECT_STREQ(read->getXid()->getTransactionId()->c_str(), "");
}

/// Notes when the xid is passed, between the request's own lines.
class LoggingWriter : public test::RecordingWriter {
public:
  using test::RecordingWriter::process;
  Archive& process(Serializable* /*value*/, const char* /*name*/) override {
    textsBefore = log.texts();
    return *this;
  }
  test::LogCapture log;
  std::vector<std::string> textsBefore;
};

TYPED_TEST(XARequest, TracesBeforeItsXidExceptForStart) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build writes no log lines";
  TypeParam request;
  request.getXid()->setTransactionId("T1");
  LoggingWriter writer;
  request.serialize(writer, 0);
  std::ostringstream line;
  line << "<= " << Branch<TypeParam>::kName
       << "::serialize(this = " << static_cast<const void*>(&request)
       << "): _xid->getTransactionId()='T1'";
  EXPECT_THAT(writer.log.texts(), ElementsAre(line.str()));
  if (std::is_same_v<TypeParam, XAStartTransactionRequestProt>) {
    EXPECT_THAT(writer.textsBefore, IsEmpty());
  } else {
    EXPECT_THAT(writer.textsBefore, ElementsAre(line.str()));
  }
}

TYPED_TEST(XARequest, SaysWhenItEnds) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build writes no log lines";
  const std::string name = Branch<TypeParam>::kName;
  EXPECT_THAT(logged([] { TypeParam request; }), ElementsAre(name + "::~" + name + "\n"));
}

TEST(LocalTransactionRequests, SayWhenTheyEnd) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build writes no log lines";
  EXPECT_THAT(logged([] { BeginTransactionRequestProt request; }),
              ElementsAre("BeginTransactionRequestProt::~BeginTransactionRequestProt\n"));
  EXPECT_THAT(logged([] { CommitTransactionRequestProt request; }),
              ElementsAre("CommitTransactionRequestProt::~CommitTransactionRequestProt\n"));
  EXPECT_THAT(logged([] { RollbackTransactionRequestProt request; }),
              ElementsAre("RollbackTransactionRequestProt::~RollbackTransactionRequestProt\n"));
}

TEST(XAXid, SaysHowItIsCopied) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build writes no log lines";
  XAXidProt original;
  EXPECT_THAT(logged([&] { XAXidProt copy(original); }),
              ElementsAre("XAXidProt::XAXidProt(XAXidProt &rhs)"));
  EXPECT_THAT(logged([&] { XAXidProt copy(&original); }),
              ElementsAre("XAXidProt::XAXidProt(XAXidProt *rhs)"));
  EXPECT_THAT(logged([&] {
                XAXidProt copy;
                copy = original;
              }),
              IsEmpty());
}

}  // namespace
}  // namespace nox::noxp::remote
