#include "agent/commands/report.h"

#include <algorithm>
#include <utility>

#include "agent/conversions/characters.h"
#include "agent/failure.h"
#include "agent/multivalue.h"

namespace nox::agent {

namespace {

[[noreturn]] void refuse() {
  throw Failure("IE", "011",
                "the output is longer than a frame may be: list fewer records, or fetch them with "
                "a query");
}

/// How many bytes of `text` fit into `width` columns; a character at least.
std::size_t fitting(std::string_view text, std::size_t width) {
  std::size_t bytes = 0;
  std::size_t used = 0;
  for (Characters c(text); c; c.next()) {
    used += columnsOf(c.value());
    if (used > width && bytes > 0) break;
    bytes += c.bytes().size();
  }
  return bytes;
}

/// What a row costs besides its bytes.
constexpr std::size_t kReportRowCost = 32;

}  // namespace

/// The lines of one cell, cut as they are asked for: there may be as many as the row has bytes.
class Report::Lines {
public:
  Lines(std::string_view text, bool multivalued, std::size_t width)
      : values_(text, multivalued ? kValue : kAttribute), rest_(*values_), width_(width) {}

  bool ended() const { return !values_; }
  /// Empty behind the last.
  std::string_view next() {
    if (ended()) return {};
    const std::string_view line = rest_.substr(0, fitting(rest_, width_));
    rest_.remove_prefix(line.size());
    if (rest_.empty()) {
      values_.next();
      if (values_) rest_ = *values_;
    }
    return line;
  }

private:
  Fields values_;
  std::string_view rest_;  // of the value
  std::size_t width_;
};

Report::Report(const std::vector<Item>& columns, bool headings, std::size_t most)
    : headings_(headings), most_(most) {
  for (const Item& item : columns) {
    Column column;
    column.heading = item.heading();
    column.multivalued = item.multivalued();
    column.right = item.definition().justification == Justification::Right;
    column.format = item.definition().width;
    for (Fields line(column.heading, kValue); line && headings; line.next()) {
      column.widest = std::max(column.widest, columnsOf(*line));
    }
    columns_.push_back(std::move(column));
  }
}

void Report::add(std::string_view row) {
  if (columns_.empty()) return;
  bytes_ += row.size() + kReportRowCost;
  if (bytes_ > most_) refuse();
  rows_.emplace_back(row);
  Fields cell(row, kAttribute);
  for (Column& column : columns_) {
    for (Fields value(*cell, column.multivalued ? kValue : kAttribute); value; value.next()) {
      column.widest = std::max(column.widest, columnsOf(*value));
    }
    cell.next();
  }
}

void Report::setWidths() {
  for (Column& column : columns_) {
    const bool last = &column == &columns_.back();
    column.width = column.format.value_or(last ? column.widest : std::min(column.widest, kWidest));
  }
}

std::string Report::text() {
  if (columns_.empty()) return {};
  setWidths();
  std::string text;
  if (headings_) {
    std::vector<Lines> cells;
    for (const Column& column : columns_) cells.emplace_back(column.heading, true, column.width);
    append(text, std::move(cells));
  }
  for (const std::string& row : rows_) {
    std::vector<Lines> cells;
    Fields cell(row, kAttribute);
    for (const Column& column : columns_) {
      cells.emplace_back(*cell, column.multivalued, column.width);
      cell.next();
    }
    append(text, std::move(cells));
  }
  return text;
}

void Report::append(std::string& text, std::vector<Lines> cells) const {
  const auto ended = [](const Lines& cell) { return cell.ended(); };
  while (!std::all_of(cells.begin(), cells.end(), ended)) {
    if (!text.empty()) text += kAttribute;
    std::size_t blanks = 0;  // not written before something stands behind them
    for (std::size_t i = 0; i < cells.size(); ++i) {
      const Column& column = columns_[i];
      const std::string_view line = cells[i].next();
      const std::size_t used = std::min(columnsOf(line), column.width);
      if (i > 0) ++blanks;
      if (column.right) blanks += column.width - used;
      if (!line.empty()) {
        text.append(blanks, ' ');
        text += line;
        blanks = 0;
      }
      if (!column.right) blanks += column.width - used;
    }
    if (text.size() > most_) refuse();
  }
}

}  // namespace nox::agent
