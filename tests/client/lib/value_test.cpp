// What is bound to statements.
#include <gtest/gtest.h>

#include <clocale>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

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

TEST(Value, TakesFieldsOfRecordsAsText) {
  Record record{"a", "42"};
  const Record& constant = record;
  const std::vector<Value> values{record[1], constant[2], std::string_view("b")};
  EXPECT_EQ(values, (std::vector<Value>{"a", "42", "b"}));
}

TEST(Value, TakesWhatIsInAnOptional) {
  EXPECT_EQ(Value(std::optional<int>(42)), Value(42));
  EXPECT_EQ(Value(std::optional<std::string>("a")), Value("a"));
  EXPECT_EQ(Value(std::optional<std::string_view>("a")), Value("a"));
  EXPECT_EQ(Value(std::optional<Record>(Record{"a"})), Value::bytes("a"));
  EXPECT_TRUE(Value(std::optional<int>()).isNull());
  EXPECT_TRUE(Value(std::nullopt).isNull());
}

TEST(Value, TakesACharacterAsText) {
  EXPECT_EQ(Value('c'), Value("c"));
  static_assert(!std::is_constructible_v<Value, wchar_t>);
  static_assert(!std::is_constructible_v<Value, char16_t>);
}

TEST(Value, TakesANullPointerForNull) {
  char text[] = "a";
  char* const pointer = text;
  char* const none = nullptr;
  EXPECT_EQ(Value(pointer), Value("a"));
  EXPECT_TRUE(Value(none).isNull());
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
