// Characters of UTF-8 text: their case, what they are, and how wide they are shown. The agent's
// only user of ICU's character properties.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace nox::agent {

constexpr bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool isAsciiLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
/// Visible, and neither digit nor letter.
constexpr bool isAsciiSign(char c) {
  return c > ' ' && c < '\x7F' && !isAsciiDigit(c) && !isAsciiLetter(c);
}
/// Case counts for ASCII letters only.
bool equalsIgnoringCase(std::string_view a, std::string_view b);

/// Walks a text: for (Characters c(text); c; c.next()) use(c.value(), c.bytes()). A byte that
/// belongs to no well-formed character counts as one of its own.
class Characters {
public:
  static constexpr char32_t kNone = 0xFFFFFFFF;

  explicit Characters(std::string_view text) : rest_(text) { read(); }
  explicit operator bool() const { return !bytes_.empty(); }
  /// kNone for a stray byte.
  char32_t value() const { return value_; }
  std::string_view bytes() const { return bytes_; }
  void next() { read(); }

private:
  void read();

  std::string_view rest_;
  std::string_view bytes_;
  char32_t value_ = kNone;
};

// One character for one, so that "ß" stays what it is. kNone is no letter.
char32_t toUpper(char32_t c);
char32_t toLower(char32_t c);
bool isLetter(char32_t c);
void append(std::string& text, char32_t c);

/// How many columns a terminal shows it in: 0 for a mark that combines with the character before, 2
/// for wide ones, else 1. Stray bytes take one.
std::size_t columnsOf(char32_t c);
std::size_t columnsOf(std::string_view text);

}  // namespace nox::agent
