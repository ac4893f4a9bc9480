#include "nox/protocol/client_object_factory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "nox/core/exceptions.h"
#include "nox/protocol/remote/metadata_messages.h"
#include "tests/support/caught.h"
#include "tests/support/contents.h"
#include "tests/support/frames.h"
#include "tests/support/log_capture.h"

namespace nox {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;

TEST(ClientObjectFactory, KnowsEveryReplyAndEveryPayload) {
  ClientObjectFactory factory;
  std::vector<int> known;
  for (int code = 0; code < ObjectFactory::kCapacity; ++code) {
    if (!factory.getTypeName(code)) continue;
    known.push_back(code);
    const std::unique_ptr<Serializable> object(factory.createObject(code));
    EXPECT_EQ(object->getType(), code);
  }
  EXPECT_THAT(known, ElementsAre(101, 102, 103, 104, 105, 106, 107, 111, 112, 113, 114, 115, 116,
                                 117, 118, 119, 301, 302, 303, 304, 305, 306, 307, 308, 309, 310,
                                 311, 312, 313, 314, 401, 402, 403, 404, 503, 505));
}

TEST(ClientObjectFactory, ReadsTheMetadataReplyThatAnAgentSends) {
  MetaDataRepositoryProt repository;
  repository.setRepositoryEntry("EIS_PRODUCT_NAME", std::string("N"));
  noxp::remote::EISMetaDataResponseProt sent(&repository);
  ClientObjectFactory factory;
  const auto reply = test::readAs<noxp::remote::EISMetaDataReplyProt>(test::frameOf(sent), factory);
  ASSERT_NE(reply, nullptr);
  EXPECT_EQ(test::contentOf(reply->getProductName()), "N");
}

TEST(ClientObjectFactory, KnowsNoRequest) {
  ClientObjectFactory factory;
  const auto error = test::caught<UnknownType>([&] { factory.createObject(201); });
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->getTypeCode(), 201);
}

TEST(ClientObjectFactory, CreatesAnotherOfItsKind) {
  ClientObjectFactory factory;
  const test::LogCapture log;
  const std::unique_ptr<Serializable> another(factory.create());
  auto* created = dynamic_cast<ClientObjectFactory*>(another.get());
  ASSERT_NE(created, nullptr);
  EXPECT_STREQ(created->getTypeName(301), "ToviResponse");
  if (kLoggerOutput) {
    EXPECT_THAT(log.texts(), Contains("ClientObjectFactory::create()"));
  }
}

}  // namespace
}  // namespace nox
