// What is bound to statements.
#include <gtest/gtest.h>

#include <clocale>
#include <limits>
#include <string>

#include "nox/client/error.h"
#include "nox/client/record.h"
#include "nox/client/value.h"

namespace nox::client {
namespace {

TEST(Value, IsNullAtFirst) {
  EXPECT_TRUE(Value().isNull());
  EXPECT_TRUE(Value(nullptr).isNull());
  const char* const none = nullptr;
  EXPECT_TRUE(Value(none).isNull());
}

TEST(Value, KnowsTextNumbersAndBytes) {
  EXPECT_EQ(Value("a").kind(), Value::Kind::Text);
  EXPECT_EQ(Value(std::string("a")).kind(), Value::Kind::Text);
  EXPECT_EQ(Value(42).kind(), Value::Kind::Integer);
  EXPECT_EQ(Value(1.5).kind(), Value::Kind::Real);
  EXPECT_EQ(Value::bytes("a").kind(), Value::Kind::Bytes);
  EXPECT_EQ(Value(Record{"a", "b"}).kind(), Value::Kind::Bytes);
}

TEST(Value, WritesNumbersInDecimal) {
  EXPECT_EQ(Value(std::numeric_limits<std::int64_t>::min()).text(), "-9223372036854775808");
  EXPECT_EQ(Value(0.1).text(), "0.1");
  EXPECT_EQ(Value(1e300).text(), "1e+300");
}

TEST(Value, ReadsNumbers) {
  EXPECT_EQ(Value("-12").int64(), -12);
  EXPECT_EQ(Value(1.5).real(), 1.5);
  EXPECT_THROW(static_cast<void>(Value("x").int64()), Error);
  EXPECT_THROW(static_cast<void>(Value().real()), Error);
}

TEST(Value, RefusesWhatIsNotFinite) {
  EXPECT_THROW(static_cast<void>(Value{std::numeric_limits<double>::infinity()}), Error);
  EXPECT_THROW(static_cast<void>(Value{std::numeric_limits<double>::quiet_NaN()}), Error);
}

TEST(Value, DoesNotFollowTheLocale) {
  const char* const set = std::setlocale(LC_ALL, "de_DE.UTF-8");
  EXPECT_EQ(Value(1.5).text(), "1.5") << (set ? set : "no German locale here");
  EXPECT_EQ(Value("1.5").real(), 1.5);
  EXPECT_THROW(static_cast<void>(Value("1,5").real()), Error);
  std::setlocale(LC_ALL, "C");
}

TEST(Value, ComparesKindAndContent) {
  EXPECT_EQ(Value(1), Value(1L));
  EXPECT_NE(Value(1), Value("1"));
  EXPECT_NE(Value(""), Value());
}

}  // namespace
}  // namespace nox::client
