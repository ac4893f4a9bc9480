// Value: what is bound to an SQL statement, and what a subroutine is given and gives back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "nox/client/export.h"
#include "nox/client/record.h"

namespace nox::client {

/// Null, text (UTF-8), a number or bytes; numbers are kept as text. A plain value: threads may use
/// different ones freely.
class NOX_CLIENT_EXPORT Value {
public:
  enum class Kind { Null, Text, Integer, Real, Bytes };

  Value() = default;
  Value(std::nullptr_t) {}
  /// A null pointer is null.
  Value(const char* text);
  Value(std::string text) : kind_(Kind::Text), bytes_(std::move(text)) {}
  Value(std::string_view text) : kind_(Kind::Text), bytes_(text) {}
  /// A field of a record, and whatever else is text by itself.
  template <
      class Text,
      std::enable_if_t<detail::kIsText<Text> && !std::is_convertible_v<Text, const char*>, int> = 0>
  Value(const Text& text) : Value(std::string_view(text)) {}
  /// The record's bytes, marks and all.
  Value(const Record& record);
  /// What is in it; null where nothing is.
  template <class T, std::enable_if_t<std::is_constructible_v<Value, const T&>, int> = 0>
  Value(const std::optional<T>& value) : Value(value ? Value(*value) : Value()) {}
  Value(std::nullopt_t) {}
  /// In decimal, whatever the locale; a char is text.
  template <
      class Number,
      std::enable_if_t<std::is_integral_v<Number> && !detail::kIsWideCharacter<Number>, int> = 0>
  Value(Number number)
      : kind_(std::is_same_v<Number, char> ? Kind::Text : Kind::Integer),
        bytes_(FieldText(number).view()) {}
  template <class Character, std::enable_if_t<detail::kIsWideCharacter<Character>, int> = 0>
  Value(Character) = delete;
  /// The shortest text that reads back as the same number, whatever the locale. Error 22023 for
  /// what is not finite.
  Value(double number);
  static Value bytes(std::string bytes);

  Kind kind() const { return kind_; }
  bool isNull() const { return kind_ == Kind::Null; }
  /// The text, the number in decimal, or the bytes; empty for null.
  const std::string& text() const& { return bytes_; }
  std::string text() && { return std::move(bytes_); }

  /// The number, whatever the kind. Error 22002 for null, 22018 where the text is none.
  std::int64_t int64() const;
  double real() const;

  friend bool operator==(const Value& a, const Value& b) {
    return a.kind_ == b.kind_ && a.bytes_ == b.bytes_;
  }
  friend bool operator!=(const Value& a, const Value& b) { return !(a == b); }

private:
  Kind kind_ = Kind::Null;
  std::string bytes_;
};

}  // namespace nox::client
