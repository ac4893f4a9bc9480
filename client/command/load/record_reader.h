// Records from CSV, TSV and JSON lines, one after the other.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <nox/client/client.h>

#include "client/command/context.h"
#include "client/command/dictionary.h"

namespace nox::command {

struct InputRecord {
  std::string id;
  client::Record record;
  std::uint64_t line = 0;  // where it begins, from 1
  std::string source;      // its text
};

/// One record is no good; those behind it may be. Thrown by value.
class BadRecord : public std::runtime_error {
public:
  BadRecord(std::uint64_t line, const std::string& why, std::string source)
      : std::runtime_error(why), line_(line), source_(std::move(source)) {}
  std::uint64_t line() const { return line_; }
  const std::string& source() const { return source_; }

private:
  std::uint64_t line_;
  std::string source_;
};

/// A file, or standard input, read line by line. Throws Refused where it cannot be read, and for a
/// line of more than kLongestLine bytes.
class LineReader {
public:
  static constexpr std::size_t kLongestLine = 64u * 1024u * 1024u;

  /// "" and "-" are standard input.
  explicit LineReader(const std::string& path);

  /// Without its line feed, the first without a byte order mark; false at the end.
  bool next(std::string& line);
  std::uint64_t number() const { return number_; }
  std::uint64_t bytes() const { return bytes_; }
  /// Of the lines so far: another input is told from this one by it, unless somebody means to
  /// deceive.
  std::uint64_t digest() const { return digest_; }
  /// Of a plain file; 0 for others.
  std::uint64_t size() const { return input_.size(); }
  const InputFile& input() const { return input_; }

private:
  static constexpr std::size_t kBlock = 64 * 1024;

  InputFile input_;
  std::string block_;      // as it was read
  std::string_view rest_;  // of it
  std::uint64_t number_ = 0;
  std::uint64_t bytes_ = 0;
  std::uint64_t digest_;
};

class RecordReader {
public:
  virtual ~RecordReader() = default;
  /// The next record; false at the end. Throws BadRecord.
  virtual bool next(InputRecord& record) = 0;
};

/// How columns become records.
struct ColumnMapping {
  std::string idColumn;  // "": "ID" or "@ID"
  std::vector<DictionaryItem> items;
};

// Both borrow `lines`. The readers of columns read the heading at once, and throw Refused where a
// column is neither an item nor the number of an attribute, two are the same one, or none is the
// id. A second column with the id, which items of attribute 0 are, goes nowhere.
std::unique_ptr<RecordReader> makeCsvReader(LineReader& lines, const ColumnMapping& mapping);
std::unique_ptr<RecordReader> makeTsvReader(LineReader& lines, const ColumnMapping& mapping);
std::unique_ptr<RecordReader> makeJsonReader(LineReader& lines);

}  // namespace nox::command
