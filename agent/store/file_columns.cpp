#include "agent/store/file_columns.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <unordered_map>
#include <utility>

#include "agent/multivalue.h"

namespace nox::agent {

namespace {

// Attributes of a dictionary's record.
constexpr int kKind = 1;
constexpr int kNumber = 2;
constexpr int kConversion = 3;
constexpr int kFormat = 5;
constexpr int kValues = 6;

constexpr std::size_t kMostAttributes = 65'535;
constexpr std::size_t kWidest = 1'000;

constexpr std::size_t kMostItems = 10'000;

// What a table of the store may have, less the id.
constexpr std::size_t kMostColumns = 1'999;

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string lower(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), [](char c) { return lower(c); });
  return result;
}

std::optional<std::size_t> numberAt(std::string_view& text, std::size_t most) {
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || number > most) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

/// Dates, times and decimals are shown as people read them; what only changes letters is not.
bool isShownConverted(std::string_view conversion) {
  for (Fields code(conversion, kValue); code; code.next()) {
    const std::string_view text = *code;
    if (text.substr(0, 1) == "D" || text.substr(0, 2) == "MT" || text.substr(0, 2) == "MD") {
      return true;
    }
  }
  return false;
}

bool isDecimal(std::string_view conversion) { return conversion.substr(0, 2) == "MD"; }

}  // namespace

bool isSameSqlName(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lower(x) == lower(y); });
}

void FileColumnsReader::add(std::string_view id, std::string_view record) {
  if (columns_.single.size() + columns_.multivalued.size() == kMostItems) return;
  if (id.empty() || id.front() == '@') return;  // "@ID", "@LIST": how the file is listed
  const std::string_view kind = extract(record, {kKind, 0, 0});
  if (kind.substr(0, kind.find(' ')) != "D") return;  // a description may follow the letter
  std::string_view number = extract(record, {kNumber, 0, 0});
  const std::optional<std::size_t> attribute = numberAt(number, kMostAttributes);
  if (!attribute || !number.empty()) return;

  FileColumn column;
  column.name = id;
  column.attribute = *attribute;
  const std::string_view conversion = extract(record, {kConversion, 0, 0});
  if (isShownConverted(conversion)) column.conversion = conversion;
  std::string_view format = extract(record, {kFormat, 0, 0});
  column.width = numberAt(format, kWidest).value_or(0);
  column.numeric = column.conversion.empty() ? format == "R" : isDecimal(column.conversion);
  const bool multivalued = extract(record, {kValues, 0, 0}) == "M";
  (multivalued ? columns_.multivalued : columns_.single).push_back(std::move(column));
}

FileColumns FileColumnsReader::finish() {
  std::vector<FileColumn>& single = columns_.single;
  std::stable_sort(single.begin(), single.end(), [](const FileColumn& a, const FileColumn& b) {
    return a.attribute < b.attribute;
  });
  if (single.size() > kMostColumns) single.resize(kMostColumns);

  // A name that another column has already gets a number. How many had it is remembered, so that
  // many spellings of one name take no longer than as many names.
  std::unordered_map<std::string, int> taken = {{"id", 1}};
  for (FileColumn& column : single) {
    const std::string plain = column.name;
    int& count = taken[lower(plain)];
    if (count == 0) {
      count = 1;
      continue;
    }
    do {
      column.name = plain + "_" + std::to_string(++count);
    } while (!taken.emplace(lower(column.name), 1).second);
  }
  return std::move(columns_);
}

}  // namespace nox::agent
