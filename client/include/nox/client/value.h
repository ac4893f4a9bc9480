// Value: what is bound to an SQL statement, and what a subroutine is given and gives back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "nox/client/export.h"

namespace nox::client {

class Record;

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
  /// The record's bytes, marks and all.
  Value(const Record& record);
  /// In decimal, whatever the locale.
  template <class Number, class = std::enable_if_t<std::is_integral_v<Number>>>
  Value(Number number) : kind_(Kind::Integer), bytes_(std::to_string(number)) {}
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
