#include "agent/conversions/characters.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <cstdint>

namespace nox::agent {

namespace {

UChar32 codePoint(char32_t c) { return static_cast<UChar32>(c); }

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lower(x) == lower(y); });
}

void Characters::read() {
  rest_.remove_prefix(bytes_.size());
  bytes_ = {};
  if (rest_.empty()) return;
  constexpr std::int32_t kLongestCharacter = 4;
  const auto* const text = reinterpret_cast<const std::uint8_t*>(rest_.data());
  const auto length = static_cast<std::int32_t>(
      std::min<std::size_t>(rest_.size(), static_cast<std::size_t>(kLongestCharacter)));
  std::int32_t used = 0;
  UChar32 c = 0;
  U8_NEXT(text, used, length, c);
  value_ = c < 0 ? kNone : static_cast<char32_t>(c);
  bytes_ = rest_.substr(0, c < 0 ? 1 : static_cast<std::size_t>(used));
}

char32_t toUpper(char32_t c) {
  return c == Characters::kNone ? c : static_cast<char32_t>(u_toupper(codePoint(c)));
}

char32_t toLower(char32_t c) {
  return c == Characters::kNone ? c : static_cast<char32_t>(u_tolower(codePoint(c)));
}

bool isLetter(char32_t c) { return c != Characters::kNone && u_isalpha(codePoint(c)); }

void append(std::string& text, char32_t c) {
  std::array<std::uint8_t, U8_MAX_LENGTH> bytes{};
  std::size_t used = 0;
  U8_APPEND_UNSAFE(bytes.data(), used, codePoint(c));
  text.append(reinterpret_cast<const char*>(bytes.data()), used);
}

std::size_t columnsOf(char32_t c) {
  if (c < 0x300 || c == Characters::kNone) return 1;  // nothing below is wide or combines
  switch (u_charType(codePoint(c))) {
    case U_NON_SPACING_MARK:
    case U_ENCLOSING_MARK:
    case U_FORMAT_CHAR:
      return 0;
    default:
      break;
  }
  const int width = u_getIntPropertyValue(codePoint(c), UCHAR_EAST_ASIAN_WIDTH);
  return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

std::size_t columnsOf(std::string_view text) {
  std::size_t columns = 0;
  for (Characters c(text); c; c.next()) columns += columnsOf(c.value());
  return columns;
}

}  // namespace nox::agent
