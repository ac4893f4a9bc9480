#include "agent/names.h"

#include <algorithm>
#include <cstdint>

#include "agent/failure.h"

namespace nox::agent {

namespace {

constexpr std::size_t kLongestName = 64;
constexpr std::string_view kDictPrefix = "DICT ";

bool isLetterOrDigit(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

}  // namespace

bool isFileName(std::string_view name) {
  return !name.empty() && name.size() <= kLongestName && isLetterOrDigit(name.front()) &&
         std::all_of(name.begin(), name.end(), [](char c) {
           return isLetterOrDigit(c) || c == '.' || c == '_' || c == '$' || c == '-';
         });
}

bool isFilePart(std::string_view text) {
  if (text.substr(0, kDictPrefix.size()) == kDictPrefix) text.remove_prefix(kDictPrefix.size());
  return isFileName(text);
}

FilePart parseFilePart(std::string_view text, const char* sqlClass, const char* sqlSubClass) {
  FilePart file;
  if (text.substr(0, kDictPrefix.size()) == kDictPrefix) {
    file.part = Part::Dict;
    text.remove_prefix(kDictPrefix.size());
  }
  if (!isFileName(text)) {
    throw Failure(sqlClass, sqlSubClass, "\"" + std::string(text) + "\" is no file name");
  }
  file.file = text;
  return file;
}

void checkRecordId(std::string_view id) {
  if (id.empty()) throw Failure("22", "021", "a record id has at least one byte");
  if (id.size() > kLongestRecordId) {
    throw Failure("22", "001", "a record id has at most 255 bytes");
  }
  if (id.find('\0') != std::string_view::npos || !isUtf8(id)) {
    throw Failure("22", "021", "a record id is UTF-8 text without NUL and without marks");
  }
}

void checkRecord(std::string_view body) {
  if (body.size() > kLongestRecord) throw Failure("22", "001", "a record has at most 8 MiB");
}

bool isUtf8(std::string_view text) {
  const auto at = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  std::size_t i = 0;
  while (i < text.size()) {
    const std::uint8_t lead = at(i);
    if (lead < 0x80) {
      ++i;
      continue;
    }
    // The second byte's range shuts out overlong forms, surrogates and what is above U+10FFFF.
    std::size_t more = 0;
    std::uint8_t low = 0x80;
    std::uint8_t high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
      more = 1;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      more = 2;
      if (lead == 0xE0) low = 0xA0;
      if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      more = 3;
      if (lead == 0xF0) low = 0x90;
      if (lead == 0xF4) high = 0x8F;
    } else {
      return false;
    }
    if (text.size() - i <= more) return false;
    if (at(i + 1) < low || at(i + 1) > high) return false;
    for (std::size_t k = 2; k <= more; ++k) {
      if (at(i + k) < 0x80 || at(i + k) > 0xBF) return false;
    }
    i += more + 1;
  }
  return true;
}

}  // namespace nox::agent
