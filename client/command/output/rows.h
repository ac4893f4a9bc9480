// Rows in the form that the user asked for, written as they come.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/command/output/output.h"

namespace nox::command {

enum class Format { Table, Expanded, Csv, Tsv, Json, Jsonl, Raw };

std::optional<Format> parseFormat(std::string_view name);
const char* nameOf(Format format);
/// All names, for help and completion.
std::vector<std::string> formatNames();

struct OutputColumn {
  std::string name;
  bool right = false;   // aligned as numbers are
  bool number = false;  // JSON shows its values as numbers, where they are
};

struct OutputStyle {
  bool header = true;
  bool colour = false;
};

using OutputValue = std::optional<std::string_view>;  // nothing: null

/// Receives the columns, then row after row, then the end. Holds no more than the first rows, from
/// which a table takes its widths.
///
///   table     aligned columns under a heading; later values may be wider than their column
///   expanded  a line per value
///   csv       RFC 4180 with line feeds; null is nothing, an empty text ""
///   tsv       \t \n \r \\ escaped, null \N
///   json      an array of objects; jsonl an object per line. Values of columns of numbers are
///             numbers where they are such in JSON, bytes that are no UTF-8 {"base64": "..."}
///   raw       the bytes, columns joined by attribute marks, a line feed behind each row
class RowWriter {
public:
  virtual ~RowWriter() = default;
  virtual void begin(std::vector<OutputColumn> columns) = 0;
  virtual void row(const std::vector<OutputValue>& values) = 0;
  virtual void end() = 0;
};

std::unique_ptr<RowWriter> makeRowWriter(Format format, Output& output,
                                         const OutputStyle& style = {});

}  // namespace nox::command
