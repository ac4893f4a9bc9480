#include "nox/protocol/metadata_repository.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/support/contents.h"

namespace nox {
namespace {

using test::contentOf;

TEST(MetaDataRepository, KeepsTheSecondOfTwoValues) {
  MetaDataRepositoryProt repository;
  auto* second = new NOXPBlob("B");
  repository.setRepositoryEntry("EIS_PRODUCT_NAME", new NOXPBlob("A"));
  repository.setRepositoryEntry("EIS_PRODUCT_NAME", second);
  EXPECT_EQ(repository.getRepositorySize(), 1u);
  EXPECT_EQ(repository.getRepositoryEntry("EIS_PRODUCT_NAME"), second);
  repository.setRepositoryEntry("EIS_PRODUCT_NAME", std::string("C"));
  EXPECT_EQ(contentOf(repository.getRepositoryEntry("EIS_PRODUCT_NAME")), "C");
}

TEST(MetaDataRepository, HasNoValueForAnAbsentKey) {
  MetaDataRepositoryProt repository;
  EXPECT_EQ(repository.getRepositoryEntry("x"), nullptr);
  EXPECT_TRUE(repository.isEmptyValue("x"));
  EXPECT_EQ(repository.getRepositorySize(), 0u);
}

TEST(MetaDataRepository, TakesNothingForAnEmptyValue) {
  MetaDataRepositoryProt repository;
  repository.setRepositoryEntry("text", std::string());
  repository.setRepositoryEntry("blob", new NOXPBlob);
  repository.setRepositoryEntry("null", static_cast<NOXPBlob*>(nullptr));
  repository.setRepositoryEntry("full", std::string("x"));
  EXPECT_TRUE(repository.isEmptyValue("text"));
  EXPECT_TRUE(repository.isEmptyValue("blob"));
  EXPECT_TRUE(repository.isEmptyValue("null"));
  EXPECT_FALSE(repository.isEmptyValue("full"));
  EXPECT_EQ(repository.getRepositorySize(), 4u);
  EXPECT_EQ(repository.getRepositoryEntry("null"), nullptr);
}

TEST(MetaDataRepository, EndsATextAtItsFirstNul) {
  MetaDataRepositoryProt repository;
  repository.setRepositoryEntry("k", std::string("a\0b", 3));
  EXPECT_EQ(contentOf(repository.getRepositoryEntry("k")), "a");
  repository.setRepositoryEntry("k", new NOXPBlob("a\0b", 3));
  EXPECT_EQ(contentOf(repository.getRepositoryEntry("k")), std::string("a\0b", 3));
}

TEST(MetaDataRepository, KeepsAValueThatIsSetAgain) {
  MetaDataRepositoryProt repository;
  auto* value = new NOXPBlob("A");
  repository.setRepositoryEntry("k", value);
  repository.setRepositoryEntry("k", value);
  EXPECT_EQ(contentOf(repository.getRepositoryEntry("k")), "A");
  repository.setRepositoryEntry("t", std::string("T"));
  repository.setRepositoryEntry("t", repository.getRepositoryEntry("t"));
  EXPECT_EQ(contentOf(repository.getRepositoryEntry("t")), "T");
}

TEST(MetaDataRepository, CopiesDeeply) {
  auto original = std::make_unique<MetaDataRepositoryProt>();
  original->setRepositoryEntry("k", new NOXPBlob("A"));
  original->setRepositoryEntry("null", static_cast<NOXPBlob*>(nullptr));
  MetaDataRepositoryProt constructed(*original);
  MetaDataRepositoryProt assigned;
  assigned.setRepositoryEntry("old", std::string("gone"));
  assigned = *original;
  original.reset();
  for (const MetaDataRepositoryProt* copy : {&constructed, &assigned}) {
    EXPECT_EQ(copy->getRepositorySize(), 2u);
    EXPECT_EQ(contentOf(copy->getRepositoryEntry("k")), "A");
    EXPECT_EQ(copy->getRepositoryEntry("null"), nullptr);
  }
  const MetaDataRepositoryProt& itself = assigned;
  assigned = itself;
  EXPECT_EQ(contentOf(assigned.getRepositoryEntry("k")), "A");
}

}  // namespace
}  // namespace nox
