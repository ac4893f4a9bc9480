#include "nox/auth/authentication.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "nox/core/exceptions.h"
#include "nox/encodings/xml_object_writer.h"
#include "nox/protocol/parameter_list.h"
#include "tests/support/bytes.h"
#include "tests/support/caught.h"
#include "tests/support/contents.h"
#include "tests/support/frames.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording_archive.h"

namespace nox {
namespace {

using noxp::ACEBinaryFormatParameterListProt;
using noxp::AuthenticationRequestProt;
using noxp::auth::AuthObjectFactory;
using test::bytes;
using test::caught;
using test::contentOf;
using test::fieldsOf;
using test::framed;
using test::frameOf;
using ::testing::Contains;
using ::testing::ElementsAre;

std::unique_ptr<AuthenticationRequestProt> read(const std::string& frame) {
  AuthObjectFactory factory;
  return test::readAs<AuthenticationRequestProt>(frame, factory);
}

void expectRequestSurvivesDamage(const std::string& frame) {
  AuthObjectFactory factory;
  test::expectSurvivesDamage(frame, factory);
}

/// Credentials that count their ends.
class Counted : public LocalUserCredentials {
public:
  explicit Counted(int& ends) : ends_(ends) {}
  ~Counted() override { ++ends_; }

private:
  int& ends_;
};

TEST(AuthenticationRequest, CarriesItsCredentialsAsAnObject) {
  AuthenticationRequestProt request(new AccountUserCredentialsProt("u", "acc", nullptr));
  const std::string frame = bytes(
      "00 00 00 2D  5B"
      "4C  49 00 00 00 0F  49 00 00 00 00"  // type 15, version 0
      "4C  49 00 00 00 70  49 00 00 00 00"  // type 112, version 0
      "73 00 01 75 3B"                      // "userName" u
      "73 00 03 61 63 63 3B"                // "account" acc
      "4C  49 00 00 00 01  3B"              // "password" null
      "3B  3B  5D");
  EXPECT_BYTES(frameOf(request), frame);
  EXPECT_THAT(fieldsOf(request), ElementsAre("object -=type 112 version 0", "string userName=u",
                                             "string account=acc", "string password=null", "end"));

  const auto received = read(frame);
  ASSERT_TRUE(received);
  auto* credentials = dynamic_cast<AccountUserCredentialsProt*>(received->getCredentials());
  ASSERT_TRUE(credentials);
  EXPECT_EQ(contentOf(credentials->getUserName()), "u");
  EXPECT_EQ(contentOf(credentials->getAccount()), "acc");
  EXPECT_FALSE(received->authenticatedOK());
  expectRequestSurvivesDamage(frame);
}

TEST(AuthenticationRequest, CreatesTheKindOfCredentialsThatComes) {
  AuthenticationRequestProt request(new LocalUserCredentials(NOXPString("u"), NOXPString("p")));
  const std::string frame = bytes(
      "00 00 00 30  5B"
      "4C  49 00 00 00 0F  49 00 00 00 00"
      "4C  49 00 00 00 6F  49 00 00 00 00"  // type 111, version 0
      "73 00 01 75 3B"
      "73 00 01 70 3B"
      "4C  49 00 00 00 01  3B"
      "49 00 00 00 00"
      "3B  3B  5D");
  EXPECT_BYTES(frameOf(request), frame);
  const auto received = read(frame);
  ASSERT_TRUE(received);
  ASSERT_TRUE(received->getCredentials());
  EXPECT_EQ(received->getCredentials()->getType(), 111);
  expectRequestSurvivesDamage(frame);
}

TEST(AuthenticationRequest, WithoutCredentialsCarriesANullObject) {
  AuthenticationRequestProt request;
  EXPECT_EQ(request.getCredentials(), nullptr);
  const std::string frame = bytes(
      "00 00 00 15  5B"
      "4C  49 00 00 00 0F  49 00 00 00 00"
      "4C  49 00 00 00 01  3B"
      "3B  5D");
  EXPECT_BYTES(frameOf(request), frame);
  const auto received = read(frame);
  ASSERT_TRUE(received);
  EXPECT_EQ(received->getCredentials(), nullptr);
  expectRequestSurvivesDamage(frame);
}

TEST(AuthenticationRequest, KeepsItsVerdictToItself) {
  AuthenticationRequestProt request;
  EXPECT_FALSE(request.getauthenticationAllRight());
  request.setauthenticationAllRight(true);
  EXPECT_TRUE(request.getauthenticationAllRight());
  EXPECT_TRUE(request.authenticatedOK());
  EXPECT_TRUE(AuthenticationRequestProt(request).authenticatedOK());
  const auto received = read(frameOf(request));
  ASSERT_TRUE(received);
  EXPECT_FALSE(received->authenticatedOK());
}

TEST(AuthenticationRequest, IsOfVersionOneButTravelsAsZeroUntilToldOtherwise) {
  AuthenticationRequestProt request;
  EXPECT_EQ(request.getVersion(), 1U);
  EXPECT_EQ(request.getClassVersion(), 0);
  AuthObjectFactory factory;
  MemoryBufferOutStream xml;
  XMLObjectWriter(&factory, &xml).writeRoot(request);
  EXPECT_EQ(xml.str(),
            "<o type=\"15\" typeName=\"AuthenticationRequest\" name=\"\" version=\"1\">"
            "<nullobj name=\"\"/></o>\n");
  request.setClassVersion(1);
  EXPECT_EQ(frameOf(request).substr(11, 5), bytes("49 00 00 00 01"));
}

TEST(AuthenticationRequest, SharesItsCredentialsWithItsCopies) {
  int ends = 0;
  int others = 0;
  {
    AuthenticationRequestProt assigned(new Counted(others));
    {
      AuthenticationRequestProt request(new Counted(ends));
      AuthenticationRequestProt copy(request);
      EXPECT_EQ(copy.getCredentials(), request.getCredentials());
      assigned = request;
      EXPECT_EQ(others, 1);
      assigned = *&assigned;
      EXPECT_EQ(assigned.getCredentials(), request.getCredentials());
    }
    EXPECT_EQ(ends, 0);
  }
  EXPECT_EQ(ends, 1);
}

TEST(AuthenticationRequest, ReadsIntoTheCredentialsItHas) {
  auto* credentials = new AccountUserCredentialsProt("old", "old", "old");
  AuthenticationRequestProt request(credentials);
  const std::string object = bytes(
      "4C 49 00 00 00 0F 49 00 00 00 00 4C 49 00 00 00 70 49 00 00 00 00"
      "73 00 01 75 3B 73 00 01 61 3B 73 00 01 70 3B 3B 3B");
  MemoryBufferInputStream in(object.data(), object.size());
  AuthObjectFactory factory;
  BinaryReader reader(&factory, &in);
  reader.readObject(&request);
  EXPECT_EQ(request.getCredentials(), credentials);
  EXPECT_EQ(contentOf(credentials->getUserName()), "u");
}

TEST(AuthenticationRequest, RefusesOtherCredentialsThanThoseItHas) {
  AuthenticationRequestProt request(new LocalUserCredentials);
  const std::string object = bytes(
      "4C 49 00 00 00 0F 49 00 00 00 00 4C 49 00 00 00 70 49 00 00 00 00"
      "73 00 01 75 3B 73 00 01 61 3B 73 00 01 70 3B 3B 3B");
  MemoryBufferInputStream in(object.data(), object.size());
  AuthObjectFactory factory;
  BinaryReader reader(&factory, &in);
  const auto error = caught<UnexpectedType>([&] { reader.readObject(&request); });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->getActualType(), 112);
  EXPECT_EQ(error->getExpectedType(), 111);
}

TEST(AuthenticationRequest, KeepsTheCredentialsItHasWhenNoneCome) {
  auto* credentials = new LocalUserCredentials;
  AuthenticationRequestProt request(credentials);
  const std::string object = bytes("4C 49 00 00 00 0F 49 00 00 00 00 4C 49 00 00 00 01 3B 3B");
  MemoryBufferInputStream in(object.data(), object.size());
  AuthObjectFactory factory;
  BinaryReader reader(&factory, &in);
  reader.readObject(&request);
  EXPECT_EQ(request.getCredentials(), credentials);
}

TEST(AuthenticationRequest, PassesItsFieldToOtherReadingArchives) {
  test::RecordingReader archive;
  AuthenticationRequestProt request;
  EXPECT_EQ(&request.serialize(archive, 0), &archive);
  AuthenticationRequestProt withCredentials(new LocalUserCredentials);
  withCredentials.serialize(archive, 0);
  EXPECT_THAT(archive.lines(), ElementsAre("object - null", "object -"));
  EXPECT_EQ(request.getCredentials(), nullptr);
}

TEST(AuthenticationRequest, RefusesAnObjectThatIsNoCredentials) {
  const auto error = caught<UnexpectedType>([] {
    read(
        framed(bytes("4C 49 00 00 00 0F 49 00 00 00 00"
                     "4C 49 00 00 00 67 49 00 00 00 00 49 00 00 00 00 3B 3B")));
  });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->getActualType(), 103);
  EXPECT_EQ(error->getExpectedType(), 111);
}

TEST(AuthenticationRequest, RefusesARequestInsideItself) {
  const auto error = caught<UnexpectedType>([] {
    read(
        framed(bytes("4C 49 00 00 00 0F 49 00 00 00 00"
                     "4C 49 00 00 00 0F 49 00 00 00 00 4C 49 00 00 00 01 3B 3B 3B")));
  });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->getActualType(), 15);
  EXPECT_EQ(error->getExpectedType(), 111);
}

TEST(AuthenticationRequest, NestedWithoutEndMeetsTheReadersLimit) {
  const std::string level = bytes("4C 49 00 00 00 0F 49 00 00 00 01");
  std::string body;
  for (int i = 0; i < 100000; ++i) body += level;
  const auto error = caught<AssertionFailure>([&] { read(framed(body)); });
  ASSERT_TRUE(error);
  EXPECT_STREQ(error->what(), "depth <= 512");
}

TEST(AuthenticationRequest, LogsWhatItRefuses) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build discards log lines";
  const std::string frame =
      framed(bytes("4C 49 00 00 00 0F 49 00 00 00 00"
                   "4C 49 00 00 00 67 49 00 00 00 00 49 00 00 00 00 3B 3B"));
  EXPECT_THAT(test::logged([&] { caught<UnexpectedType>([&] { read(frame); }); }),
              Contains("AuthenticationRequestProt::serialize(): expected type 111, got 103 "
                       "throwing UnexpectedType"));
}

TEST(AuthObjectFactory, KnowsWhatALoginNeeds) {
  AuthObjectFactory factory;
  for (int type = 0; type < ObjectFactory::kCapacity; ++type) {
    const char* expected = type == 15    ? "AuthenticationRequest"
                           : type == 103 ? "ACEBinaryFormatParameterListProt"
                           : type == 111 ? "UserCredentials"
                           : type == 112 ? "AccountUserCredentials"
                                         : nullptr;
    EXPECT_STREQ(factory.getTypeName(type), expected) << type;
  }
  const auto made = [&](int type) {
    return std::unique_ptr<Serializable>(factory.createObject(type));
  };
  EXPECT_NE(dynamic_cast<AuthenticationRequestProt*>(made(15).get()), nullptr);
  EXPECT_NE(dynamic_cast<LocalUserCredentials*>(made(111).get()), nullptr);
  EXPECT_NE(dynamic_cast<AccountUserCredentialsProt*>(made(112).get()), nullptr);
  EXPECT_NE(dynamic_cast<ACEBinaryFormatParameterListProt*>(made(103).get()), nullptr);
}

TEST(AuthObjectFactory, CreatesAnotherOfItsKind) {
  AuthObjectFactory factory;
  const std::unique_ptr<Serializable> other(factory.create());
  EXPECT_NE(dynamic_cast<AuthObjectFactory*>(other.get()), nullptr);
}

TEST(AuthObjectFactory, RegistersInOrderAndLogsItsCopies) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build discards log lines";
  EXPECT_THAT(test::logged([] { AuthObjectFactory factory; }),
              ElementsAre("ObjectFactory::registerType: (15) AuthenticationRequest",
                          "ObjectFactory::registerType: (111) UserCredentials",
                          "ObjectFactory::registerType: (112) AccountUserCredentials",
                          "ObjectFactory::registerType: (103) ACEBinaryFormatParameterListProt",
                          "~UserCredentials()", "~UserCredentials()"));
  AuthObjectFactory factory;
  EXPECT_THAT(test::logged([&] { const std::unique_ptr<Serializable> other(factory.create()); }),
              Contains("AuthObjectFactory::create()"));
}

}  // namespace
}  // namespace nox
