// Records of dictionaries, taken apart.
#include "agent/commands/definition.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "agent/failure.h"

namespace nox::agent::test {
namespace {

/// "^" stands for the attribute mark.
Definition define(std::string record) {
  std::replace(record.begin(), record.end(), '^', '\xFE');
  return parseDefinition(record);
}

std::string refusal(const std::string& record) {
  try {
    define(record);
    return "";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.state().sqlSubClass, "011");
    return failure.reason();
  }
}

TEST(Definition, NamesAnAttribute) {
  const Definition definition = define("D^7^MD2^Price^10R^M");
  EXPECT_FALSE(definition.expression);
  EXPECT_EQ(definition.attribute, 7u);
  EXPECT_EQ(definition.conversion.apply("1", Direction::Output), "0.01");
  EXPECT_EQ(definition.heading, "Price");
  EXPECT_EQ(definition.width, 10u);
  EXPECT_EQ(definition.justification, Justification::Right);
  EXPECT_TRUE(definition.multivalued);
}

TEST(Definition, NamesTheIdWithZero) { EXPECT_EQ(define("D^0").attribute, 0u); }

TEST(Definition, NeedsOnlyItsFirstTwoAttributes) {
  const Definition definition = define("D^1");
  EXPECT_TRUE(definition.conversion.empty());
  EXPECT_EQ(definition.heading, "");
  EXPECT_FALSE(definition.width);
  EXPECT_EQ(definition.justification, Justification::Left);
  EXPECT_FALSE(definition.multivalued);
}

TEST(Definition, HoldsAnExpression) {
  const Definition definition = define("I^record:len()^^Length^8R^S");
  EXPECT_EQ(definition.expression, "record:len()");
  EXPECT_EQ(definition.width, 8u);
}

TEST(Definition, MayBeDescribedBehindItsLetter) {
  EXPECT_EQ(define("D the customer's name^1").attribute, 1u);
}

TEST(Definition, IgnoresWhatStandsBehindItsAttributes) {
  EXPECT_EQ(define("D^1^^^^S^more^and more").attribute, 1u);
}

TEST(Definition, IsRefusedWithAReason) {
  EXPECT_EQ(refusal(""), "attribute 1 is \"\" and not D or I");
  EXPECT_EQ(refusal("X^1"), "attribute 1 is \"X\" and not D or I");
  EXPECT_EQ(refusal("DX^1"), "attribute 1 is \"DX\" and not D or I");
  EXPECT_EQ(refusal("D"), "attribute 2 is \"\" and not the number of an attribute");
  EXPECT_EQ(refusal("D^x"), "attribute 2 is \"x\" and not the number of an attribute");
  EXPECT_EQ(refusal("D^-1"), "attribute 2 is \"-1\" and not the number of an attribute");
  EXPECT_EQ(refusal("D^1x"), "attribute 2 is \"1x\" and not the number of an attribute");
  EXPECT_EQ(refusal("D^65536"), "attribute 2 is \"65536\" and not the number of an attribute");
  EXPECT_EQ(refusal("I"), "attribute 2 is \"\" and not an expression");
  EXPECT_EQ(refusal("D^1^Q7"), "attribute 3 is \"Q7\" and not a conversion");
  EXPECT_EQ(refusal("D^1^^^L"), "attribute 5 is \"L\" and not a width and L or R, as 10L");
  EXPECT_EQ(refusal("D^1^^^10"), "attribute 5 is \"10\" and not a width and L or R, as 10L");
  EXPECT_EQ(refusal("D^1^^^0L"), "attribute 5 is \"0L\" and not a width and L or R, as 10L");
  EXPECT_EQ(refusal("D^1^^^1001L"), "attribute 5 is \"1001L\" and not a width and L or R, as 10L");
  EXPECT_EQ(refusal("D^1^^^^X"), "attribute 6 is \"X\" and not S or M");
}

}  // namespace
}  // namespace nox::agent::test
