// Names of files, accounts and records: what they may look like.
#pragma once

#include <string>
#include <string_view>

namespace nox::agent {

/// A file has two parts: its records, and the dictionary that describes them.
enum class Part { Data, Dict };

/// One part of a file; "DICT name" names the dictionary.
struct FilePart {
  std::string file;
  Part part = Part::Data;

  std::string text() const { return part == Part::Dict ? "DICT " + file : file; }
  bool operator==(const FilePart& other) const { return part == other.part && file == other.file; }
};

constexpr std::size_t kLongestRecordId = 255;              // bytes
constexpr std::size_t kLongestRecord = 8u * 1024u * 1024;  // bytes

/// Whether `name` is `[A-Za-z0-9][A-Za-z0-9._$-]{0,63}`, as names of files, accounts, users and
/// saved things are.
bool isFileName(std::string_view name);

/// Whether `text` is "name" or "DICT name".
bool isFilePart(std::string_view text);

/// Takes "name" or "DICT name" apart. Throws Failure with the given code when it is neither.
FilePart parseFilePart(std::string_view text, const char* sqlClass, const char* sqlSubClass);

/// Throws Failure 22/021 for an id that is empty, no UTF-8, or holds a NUL or a mark (the bytes FC
/// to FE are no UTF-8 either way), and 22/001 for one beyond kLongestRecordId.
void checkRecordId(std::string_view id);

/// Throws Failure 22/001 for a record beyond kLongestRecord.
void checkRecord(std::string_view body);

/// Whether `text` is well-formed UTF-8 (no overlong forms, no surrogates, up to U+10FFFF).
bool isUtf8(std::string_view text);

}  // namespace nox::agent
