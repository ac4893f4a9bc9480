#include "client/command/output/text.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <array>
#include <cstdint>
#include <cstdio>

namespace nox::command {

namespace {

/// The character at `i`, which moves behind it; negative for bytes that are none.
UChar32 nextCharacter(std::string_view text, std::int32_t& i) {
  UChar32 character = 0;
  U8_NEXT(reinterpret_cast<const std::uint8_t*>(text.data()), i,
          static_cast<std::int32_t>(text.size()), character);
  return character;
}

void appendEscaped(std::string& to, std::string_view bytes) {
  for (const char c : bytes) {
    std::array<char, 8> escaped{};
    std::snprintf(escaped.data(), escaped.size(), "\\x%02X",
                  static_cast<unsigned int>(static_cast<unsigned char>(c)));
    to += escaped.data();
  }
}

bool isObeyed(UChar32 character) {
  switch (u_charType(character)) {
    case U_CONTROL_CHAR:
    case U_FORMAT_CHAR:  // among them those that turn the direction of text around
    case U_SURROGATE:
    case U_LINE_SEPARATOR:
    case U_PARAGRAPH_SEPARATOR:
      return true;
    default:
      return false;
  }
}

bool isPlain(std::string_view bytes) {
  for (const char c : bytes) {
    if (c < ' ' || c > '~') return false;
  }
  return true;
}

}  // namespace

std::string visible(std::string_view bytes, bool lines) {
  if (isPlain(bytes)) return std::string(bytes);
  std::string shown;
  shown.reserve(bytes.size());
  std::int32_t i = 0;
  while (i < static_cast<std::int32_t>(bytes.size())) {
    const auto begin = static_cast<std::size_t>(i);
    switch (bytes[begin]) {
      case '\xFE':
        shown += '^';
        ++i;
        continue;
      case '\xFD':
        shown += ']';
        ++i;
        continue;
      case '\xFC':
        shown += '\\';
        ++i;
        continue;
      default:
        break;
    }
    const UChar32 character = nextCharacter(bytes, i);
    const std::string_view piece = bytes.substr(begin, static_cast<std::size_t>(i) - begin);
    const bool keep = character >= 0 && (!isObeyed(character) || (lines && character == '\n'));
    if (keep) {
      shown += piece;
    } else {
      appendEscaped(shown, piece);
    }
  }
  return shown;
}

std::optional<std::string> xmlText(std::string_view bytes) {
  constexpr UChar32 kNoCharacter = 0xFFFE;  // and the one behind it
  std::string text;
  text.reserve(bytes.size());
  std::int32_t i = 0;
  while (i < static_cast<std::int32_t>(bytes.size())) {
    const auto begin = static_cast<std::size_t>(i);
    const UChar32 character = nextCharacter(bytes, i);
    switch (character) {
      case '&':
        text += "&amp;";
        continue;
      case '<':
        text += "&lt;";
        continue;
      case '>':
        text += "&gt;";
        continue;
      case '"':
        text += "&quot;";
        continue;
      // Readers make blanks of these unless they are written so.
      case '\t':
      case '\n':
      case '\r':
        text += "&#" + std::to_string(character) + ";";
        continue;
      default:
        break;
    }
    if (character < ' ' || character == kNoCharacter || character == kNoCharacter + 1) {
      return std::nullopt;
    }
    text += bytes.substr(begin, static_cast<std::size_t>(i) - begin);
  }
  return text;
}

std::size_t displayWidth(std::string_view utf8) {
  if (isPlain(utf8)) return utf8.size();
  std::size_t width = 0;
  std::int32_t i = 0;
  while (i < static_cast<std::int32_t>(utf8.size())) {
    const UChar32 character = nextCharacter(utf8, i);
    if (character < 0) {
      ++width;
      continue;
    }
    const int type = u_charType(character);
    if (type == U_NON_SPACING_MARK || type == U_ENCLOSING_MARK || type == U_FORMAT_CHAR) continue;
    const int eastAsian = u_getIntPropertyValue(character, UCHAR_EAST_ASIAN_WIDTH);
    width += eastAsian == U_EA_WIDE || eastAsian == U_EA_FULLWIDTH ? 2 : 1;
  }
  return width;
}

}  // namespace nox::command
