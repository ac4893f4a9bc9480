// Report: what LIST and SORT print.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/commands/dictionary.h"

namespace nox::agent {

/// A table of text, with the columns side by side and a blank between two. A column is as wide as
/// its item's format says, without one as its widest value (kWidest at most, but for the last
/// column); what is longer goes on in the next line. Each value of a multivalued item has a line of
/// its own. Widths count what a terminal shows.
class Report {
public:
  static constexpr std::size_t kWidest = 40;

  /// `most`: bytes that the text may have.
  Report(const std::vector<Item>& columns, bool headings, std::size_t most);

  /// Takes a row whose columns stand between attribute marks. Throws Failure IE/011 where the rows
  /// are more than the text may hold.
  void add(std::string_view row);
  /// The lines, with attribute marks between them. Throws likewise.
  std::string text();

private:
  struct Column {
    std::string heading;  // a line per value
    bool multivalued = false;
    bool right = false;
    std::optional<std::size_t> format;  // the width that the item has
    std::size_t widest = 1;             // of the heading and the values
    std::size_t width = 0;
  };
  class Lines;

  void setWidths();
  void append(std::string& text, std::vector<Lines> cells) const;

  std::vector<Column> columns_;
  bool headings_;
  std::size_t most_;
  std::size_t bytes_ = 0;
  std::vector<std::string> rows_;
};

}  // namespace nox::agent
