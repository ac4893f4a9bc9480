#include "agent/store/sqlite/sql_types.h"

#include <algorithm>
#include <charconv>
#include <string>

namespace nox::agent {

namespace {

// What the longest number takes: sign and digits, and a point and an exponent besides.
constexpr int kIntegerWidth = 20;
constexpr int kRealWidth = 24;

std::string upper(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), [](char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  });
  return result;
}

/// The rules by which the store itself finds the affinity of a column, in their order.
int typeOf(std::string_view declaration) {
  const std::string words = upper(declaration);
  const auto has = [&](const char* word) { return words.find(word) != std::string::npos; };
  if (has("INT")) return SqlType::kInteger;
  if (has("CHAR") || has("CLOB") || has("TEXT")) return SqlType::kText;
  if (has("BLOB")) return SqlType::kBlob;
  if (words.empty() || words == "ANY") return SqlType::kText;
  if (has("REAL") || has("FLOA") || has("DOUB")) return SqlType::kReal;
  return SqlType::kNumeric;
}

const char* nameOf(int type) {
  switch (type) {
    case SqlType::kInteger:
      return "INTEGER";
    case SqlType::kReal:
      return "REAL";
    case SqlType::kNumeric:
      return "NUMERIC";
    case SqlType::kBlob:
      return "BLOB";
    default:
      return "TEXT";
  }
}

/// The number that `text` holds between blanks; 0 where it holds none.
int numberIn(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  int number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return std::max(number, 0);
}

}  // namespace

SqlColumn columnOfType(std::string_view declaration) {
  SqlColumn column;
  column.dataType = typeOf(declaration);
  column.typeName = declaration.empty() ? nameOf(column.dataType) : std::string(declaration);
  column.blob = column.dataType == SqlType::kBlob;
  if (const std::size_t open = declaration.find('('); open != std::string_view::npos) {
    const std::string_view sizes = declaration.substr(open + 1);
    column.precision = numberIn(sizes);
    const std::size_t comma = sizes.find(',');
    if (comma != std::string_view::npos) column.scale = numberIn(sizes.substr(comma + 1));
  }
  column.displayWidth = column.precision;
  if (column.displayWidth == 0 && column.dataType == SqlType::kInteger) {
    column.displayWidth = kIntegerWidth;
  }
  if (column.displayWidth == 0 &&
      (column.dataType == SqlType::kReal || column.dataType == SqlType::kNumeric)) {
    column.displayWidth = kRealWidth;
  }
  return column;
}

}  // namespace nox::agent
